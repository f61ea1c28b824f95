// Variables of a thread that are looked at in each call.
#pragma once

// At a fixed distance from the thread's other memory, so that finding one takes no function call. Programs that load
// the library later have little room for such variables: large ones are to be plain.
#define VX_THREAD_LOCAL [[gnu::tls_model("initial-exec")]] thread_local
