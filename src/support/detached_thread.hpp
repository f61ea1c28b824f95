// The library's own threads: detached, with a small stack, and counted until they have left.
//
// A caller's thread that must not be overtaken by the tear-down is counted too.
#pragma once

namespace detached_thread {

// 0, or what failed. The routine calls left() last of all.
int create(void* (*routine)(void*), void* argument);
void entered();
void left();

// Runs body(argument) on a thread of its own: 0, or what failed.
template <auto body, typename Argument> int start(Argument* argument) {
    return create(
        [](void* passed) -> void* {
            body(static_cast<Argument*>(passed));
            left();
            return nullptr;
        },
        argument);
}

// Waits until none is left; none of them may call it.
void wait_for_all();

} // namespace detached_thread
