// A program that opens the library when it needs it, and closes it as soon as its threads have told their end.
#include "vxpadcom/vxpadcom.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace {

TEST(Unloading, BehindTheTearDownDoesNoHarm) {
    for (int i = 0; i < 20; ++i) {
        void* library = dlopen(LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        using Call = int();
        using SetHandler = int(unsigned int, unsigned int, vxpad_data_callback, void*);
        const auto call = [&](const char* name) { return reinterpret_cast<Call*>(dlsym(library, name))(); };
        EXPECT_EQ(call("Initialize"), 0);
        const auto set_handler = reinterpret_cast<SetHandler*>(dlsym(library, "SetOnDataReceivedHandler"));
        for (unsigned int interface = 0; interface < 8; ++interface) {
            EXPECT_EQ(set_handler(1, interface, nullptr, nullptr), 0); // starts a thread that ends at once, pad or not
        }
        EXPECT_EQ(call("Deinitialize"), 0);
        EXPECT_EQ(dlclose(library), 0);
    }
    void* still = dlopen(LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(still, nullptr) << "a thread that has told its end has a few instructions to go";
    dlclose(still);
}

} // namespace
