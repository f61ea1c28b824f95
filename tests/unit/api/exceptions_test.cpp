#include "api_test.hpp"

using api::GuardedText;
using api::Record;
using api::record_of;

namespace {

class Exceptions : public api::Test {
  protected:
    void TearDown() override {
        lib_exception_type = former_type_;
        Test::TearDown();
    }

    static int file_one() { return GetDeviceCount(nullptr); }

    char* former_type_ = lib_exception_type;
};

constexpr const char* handle_message = "Error of input parameters, incorrect unsigned int exception_handle";

TEST_F(Exceptions, HandlesRunFrom1To63AndStartAgain) {
    for (int round = 0; round < 3; ++round) {
        for (int expected = 1; expected <= 63; ++expected) {
            EXPECT_EQ(file_one(), expected);
        }
    }
}

TEST_F(Exceptions, TheRingKeepsTheLast63) {
    const int first = TranslateErrorCode(0, nullptr, 0, nullptr);
    for (int i = 0; i < 62; ++i) {
        file_one();
    }
    EXPECT_EQ(record_of(first).function, "TranslateErrorCode");
    EXPECT_EQ(file_one(), first);
    EXPECT_EQ(record_of(first).function, "GetDeviceCount");
    EXPECT_EQ(record_of(63).function, "GetDeviceCount");
}

TEST_F(Exceptions, ARecordHasTypeCodeNameAndMessage) {
    const int handle = file_one();
    EXPECT_EQ(record_of(handle),
              (Record{258, "GetDeviceCount", "Error of input parameters, unsigned int *reply is NULL"}));
    GuardedText type(64);
    unsigned int reply = 0;
    EXPECT_EQ(GetExceptionType(static_cast<unsigned int>(handle), type.data(), 64, &reply), 0);
    EXPECT_EQ(reply, 11U);
    EXPECT_EQ(type.text(11), "libvxpadcom");
    EXPECT_TRUE(type.zero_from(11));
    EXPECT_TRUE(type.guards_untouched());
}

TEST_F(Exceptions, TheTypeIsCopiedWhenARecordIsFiled) {
    const auto type_of = [](int handle) {
        GuardedText type(300);
        unsigned int reply = 0;
        EXPECT_EQ(GetExceptionType(static_cast<unsigned int>(handle), type.data(), 300, &reply), 0);
        EXPECT_TRUE(type.zero_from(reply));
        return type.text(reply);
    };
    const int before = file_one();
    std::string other = "other %s%n";
    lib_exception_type = other.data();
    const int after = file_one();
    std::string longest(300, 't');
    lib_exception_type = longest.data();
    const int cut = file_one();
    EXPECT_EQ(type_of(before), "libvxpadcom");
    EXPECT_EQ(type_of(after), "other %s%n");
    EXPECT_EQ(type_of(cut), std::string(254, 't'));
}

TEST_F(Exceptions, NameAndMessageCountTheTerminatorAndTheTypeDoesNot) {
    const auto handle = static_cast<unsigned int>(file_one());
    const struct {
        int (*read)(unsigned int, char16_t*, int, unsigned int*);
        std::string text;
        unsigned int counted;
    } members[] = {{GetExceptionType, "libvxpadcom", 11},
                   {GetExceptionName, "GetDeviceCount", 15},
                   {GetExceptionMessage, "Error of input parameters, unsigned int *reply is NULL", 55}};
    for (const auto& member : members) {
        for (const unsigned int size : {1U, 5U, 11U, 14U, 15U, 16U, 54U, 55U, 56U, 400U}) {
            GuardedText text(size);
            unsigned int reply = 0;
            ASSERT_EQ(member.read(handle, text.data(), text.size(), &reply), 0);
            EXPECT_EQ(reply, std::min(size, member.counted));
            const auto visible = std::min<std::size_t>(size, member.text.size());
            EXPECT_EQ(text.text(visible), member.text.substr(0, visible));
            EXPECT_TRUE(text.zero_from(visible));
            EXPECT_TRUE(text.guards_untouched());
        }
    }
}

TEST_F(Exceptions, Handle0IsEmptyOnceAnythingWasFiled) {
    file_one();
    unsigned int reply = api::preset;
    GuardedText text(64);
    EXPECT_EQ(GetExceptionType(0, text.data(), 64, &reply), 0);
    EXPECT_EQ(reply, 0U);
    EXPECT_TRUE(text.zero_from(0));
    EXPECT_EQ(GetExceptionName(0, text.data(), 64, &reply), 0);
    EXPECT_EQ(reply, 1U);
    EXPECT_EQ(GetExceptionMessage(0, text.data(), 64, &reply), 0);
    EXPECT_EQ(reply, 1U);
    EXPECT_TRUE(text.zero_from(0));
    EXPECT_EQ(GetExceptionCode(0, &reply), 0);
    EXPECT_EQ(reply, 0U);
}

TEST_F(Exceptions, Handle0StaysEmptyWhenTheRingHasWrapped) {
    for (int i = 0; i < 200; ++i) {
        file_one();
    }
    unsigned int reply = api::preset;
    EXPECT_EQ(GetExceptionCode(0, &reply), 0);
    EXPECT_EQ(reply, 0U);
}

struct Reader {
    const char* name;
    int (*read)(unsigned int, char16_t*, int, unsigned int*);
    friend std::ostream& operator<<(std::ostream& out, const Reader& one) { return out << one.name; }
};

class ExceptionReader : public Exceptions, public testing::WithParamInterface<Reader> {
  protected:
    // The handle names nothing: a record of that is filed and nothing is written.
    void expect_refused(unsigned int handle) {
        GuardedText text(64);
        unsigned int reply = api::preset;
        const int filed = GetParam().read(handle, text.data(), 64, &reply);
        ASSERT_NE(filed, 0) << handle;
        EXPECT_EQ(reply, api::preset);
        EXPECT_TRUE(text.untouched());
        EXPECT_EQ(record_of(filed), (Record{api::unknown, GetParam().name, handle_message}));
    }
};

TEST_P(ExceptionReader, RefusesHandle0BeforeAnythingWasFiled) {
    expect_refused(0);
}

TEST_P(ExceptionReader, RefusesHandlesThatWereNeverFilled) {
    file_one();
    for (const unsigned int handle : {20U, 62U, 63U}) {
        expect_refused(handle);
    }
}

TEST_P(ExceptionReader, RefusesHandlesBeyondTheRing) {
    for (int i = 0; i < 63; ++i) {
        file_one();
    }
    for (const unsigned int handle : {64U, 65U, 1000U, 0x80000000U, 0xFFFFFFFFU}) {
        expect_refused(handle);
    }
}

TEST_P(ExceptionReader, RefusesHandlesOfTheTimeBeforeATearDown) {
    for (int i = 0; i < 10; ++i) {
        file_one();
    }
    Deinitialize();
    for (const unsigned int handle : {5U, 10U}) {
        expect_refused(handle);
    }
    Initialize();
    EXPECT_EQ(file_one(), 1);
}

TEST_P(ExceptionReader, ChecksAHandleAbove64FirstAndAnUnusedOneLast) {
    unsigned int reply = 0;
    if (GetParam().read == GetExceptionType || GetParam().read == GetExceptionName ||
        GetParam().read == GetExceptionMessage) {
        EXPECT_EQ(record_of(GetParam().read(65, nullptr, 0, nullptr)).message, handle_message);
        char16_t text = 0;
        EXPECT_EQ(record_of(GetParam().read(64, nullptr, 0, nullptr)).message,
                  "Error of input parameters, char *res_text is NULL");
        EXPECT_EQ(record_of(GetParam().read(64, &text, 0, nullptr)).message,
                  "Error of input parameters, int res_text_size is 0");
        EXPECT_EQ(record_of(GetParam().read(64, &text, 1, nullptr)).message,
                  "Error of input parameters, unsigned int *reply is NULL");
        EXPECT_EQ(record_of(GetParam().read(64, &text, 1, &reply)).message, handle_message);
    } else {
        EXPECT_EQ(record_of(GetParam().read(65, nullptr, 0, nullptr)).message, handle_message);
        EXPECT_EQ(record_of(GetParam().read(64, nullptr, 0, nullptr)).message,
                  "Error of input parameters, unsigned int *reply is NULL");
        EXPECT_EQ(record_of(GetParam().read(64, nullptr, 0, &reply)).message, handle_message);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Members, ExceptionReader,
    testing::Values(Reader{"GetExceptionType", GetExceptionType}, Reader{"GetExceptionName", GetExceptionName},
                    Reader{"GetExceptionMessage", GetExceptionMessage},
                    Reader{"GetExceptionCode", [](unsigned int handle, char16_t*, int,
                                                  unsigned int* reply) { return GetExceptionCode(handle, reply); }}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(Exceptions, ANegativeCodeArrivesAsItsPattern) {
    const int handle = TranslateErrorCode(0, nullptr, 0, nullptr);
    unsigned int code = 0;
    EXPECT_EQ(GetExceptionCode(static_cast<unsigned int>(handle), &code), 0);
    EXPECT_EQ(code, 0xFFFFFFFFU);
}

TEST_F(Exceptions, TheCodeIsLoggedOnEveryPathWithAReply) {
    const standins::LogCapture log;
    unsigned int reply = 5;
    GetExceptionCode(70, &reply);
    EXPECT_EQ(log.count("info: GetExceptionCode(): OUTPUT: *reply: 5\n"), 1);
    GetExceptionCode(1, &reply);
    EXPECT_EQ(log.count("info: GetExceptionCode(): OUTPUT: *reply: -1\n"), 1);
    GetExceptionCode(40, &reply);
    EXPECT_EQ(log.count("OUTPUT: *reply: "), 3);
    GetExceptionCode(1, nullptr);
    EXPECT_EQ(log.count("OUTPUT: *reply: "), 3);
}

TEST_F(Exceptions, EveryFailureIsLoggedOnceWithItsFunction) {
    const standins::LogCapture log;
    file_one();
    EXPECT_EQ(log.count("error: GetDeviceCount(): Error of input parameters, unsigned int *reply is NULL"), 1);
}

struct CodeName {
    unsigned int code;
    const char* name;
};

TEST_F(Exceptions, CodesAreTranslatedByExactValue) {
    const CodeName names[] = {{0, "VXPCEC_SUCCESS"},
                              {1, "VXPCEC_DLL_NOT_LOADED"},
                              {2, "VXPCEC_EXCEPTION_CAUGHT"},
                              {257, "VXPCEC_INVALID_HANDLE"},
                              {258, "VXPCEC_INVALID_PARAMETER"},
                              {769, "VXPCEC_TIMEOUT"},
                              {770, "VXPCEC_NO_MORE_ELEMENTS"},
                              {0xFFFFFFFF, "VXPCEC_UNKNOWN"},
                              {3, "VXPCEC_UNKNOWN"},
                              {256, "VXPCEC_UNKNOWN"},
                              {259, "VXPCEC_UNKNOWN"},
                              {0x102U + 0x10000U, "VXPCEC_UNKNOWN"},
                              {0xFFFFFFFE, "VXPCEC_UNKNOWN"}};
    for (const auto& [code, name] : names) {
        const auto length = std::string_view(name).size();
        for (const std::size_t size :
             {std::size_t{1}, std::size_t{5}, length, length + 1, length + 2, std::size_t{300}}) {
            GuardedText text(size);
            unsigned int reply = 0;
            EXPECT_EQ(TranslateErrorCode(code, text.data(), text.size(), &reply), 0);
            EXPECT_EQ(reply, std::min(size, length + 1));
            EXPECT_EQ(text.text(std::min(size, length)), std::string(name).substr(0, size));
            EXPECT_TRUE(text.zero_from(std::min(size, length)));
            EXPECT_TRUE(text.guards_untouched());
        }
    }
}

} // namespace
