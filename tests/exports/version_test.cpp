// The version that the header tells, and the one of the loaded library.
#include "vxpadcom/vxpadcom.h"

#include <gmock/gmock.h>

#include <string>

namespace {

TEST(Version, OfTheLibraryIsThatOfItsHeader) {
    EXPECT_STREQ(vxpadcom_version(), VXPADCOM_VERSION_STRING);
}

TEST(Version, IsToldInNumbersToo) {
    EXPECT_EQ(std::to_string(VXPADCOM_VERSION_MAJOR) + "." + std::to_string(VXPADCOM_VERSION_MINOR) + "." +
                  std::to_string(VXPADCOM_VERSION_PATCH),
              VXPADCOM_VERSION_STRING);
}

TEST(Version, NumbersStandInTheOrderOfVersions) {
#if VXPADCOM_VERSION_NUMBER < VXPADCOM_VERSION(0, 1, 0)
    FAIL() << "the preprocessor does not compare";
#endif
    EXPECT_LT(VXPADCOM_VERSION(0, 1, 999), VXPADCOM_VERSION(0, 2, 0));
    EXPECT_LT(VXPADCOM_VERSION(0, 999, 0), VXPADCOM_VERSION(1, 0, 0));
}

} // namespace
