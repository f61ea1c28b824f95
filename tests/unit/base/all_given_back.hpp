// What holds after every test over the stand-ins.
#pragma once

#include "standins.hpp"

#include <gmock/gmock.h>

namespace standins {

// Nothing of hidapi or libusb was used wrongly or kept.
inline void expect_all_given_back() {
    EXPECT_THAT(bus().misuses(), testing::IsEmpty());
    EXPECT_EQ(bus().open_handles(), 0);
    EXPECT_EQ(bus().open_lists(), 0);
    EXPECT_EQ(bus().usb_references(), 0);
}

} // namespace standins
