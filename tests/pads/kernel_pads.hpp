// Virtual pads on the kernel of this machine, for all its programs, instead of in a tree that one program sees.
#pragma once

#include <gtest/gtest.h>
#include <string>

namespace pads {

// By VXPAD_TEST_KERNEL in the environment; the pads have then been plugged in by vxpad-emulator attach.
bool on_a_kernel();

// There the kernel and udev need their time for what comes and goes: until they show the pads that are plugged in, and
// no others. Elsewhere nothing is to be waited for.
void wait_for_kernel();

// Where a pad is plugged in: an emulated port is known by the pad's number, a kernel's by its serial number.
std::string port_of(int pad, const std::string& serial);

// The time that something may take at most; a kernel in a virtual machine may be far slower.
double patience(double seconds);

// A way over many moments at which a pad may go; each takes half a second where a kernel has to see it.
int next_moment(int moment);

} // namespace pads

// For a test, or SetUp().
#define SKIP_ON_A_KERNEL(why)                                                                                          \
    if (pads::on_a_kernel()) {                                                                                         \
        GTEST_SKIP() << (why);                                                                                         \
    }                                                                                                                  \
    static_assert(true)
