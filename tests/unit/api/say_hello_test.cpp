#include "api_test.hpp"

using api::GuardedText;
using standins::LogCapture;

namespace {

class SayHello : public api::Test {
  protected:
    // The text that comes back to a buffer of this size, and the reply.
    static std::string answer(const std::u16string& text, std::size_t size, unsigned int& reply) {
        GuardedText result(size);
        EXPECT_EQ(::SayHello(text.c_str(), result.data(), result.size(), &reply), 0);
        EXPECT_TRUE(result.guards_untouched());
        const auto units = std::min<std::size_t>(reply, size);
        EXPECT_TRUE(result.zero_from(units));
        return result.text(units);
    }

    static std::string quoted(std::size_t length) { return "someText = \"" + std::string(length, 'a') + "\""; }

    unsigned int reply_ = 0;
};

TEST_F(SayHello, QuotesTheText) {
    EXPECT_EQ(answer(u"abc", 64, reply_), std::string("someText = \"abc\"") + '\0');
    EXPECT_EQ(reply_, 17U);
    EXPECT_EQ(answer(u"", 64, reply_), std::string("someText = \"\"") + '\0');
    EXPECT_EQ(reply_, 14U);
}

TEST_F(SayHello, WritesNoMoreThanTheBufferHolds) {
    const std::string whole = std::string("someText = \"abc\"") + '\0';
    for (std::size_t size = 1; size < 20; ++size) {
        EXPECT_EQ(answer(u"abc", size, reply_), whole.substr(0, size));
        EXPECT_EQ(reply_, std::min<std::size_t>(size, 17));
    }
}

TEST_F(SayHello, AnswersWith255UnitsAtMost) {
    for (const std::size_t length : {239U, 240U, 241U, 242U, 253U, 254U, 255U, 300U, 5000U}) {
        const std::string whole = quoted(std::min<std::size_t>(length, 254)) + '\0';
        EXPECT_EQ(answer(std::u16string(length, u'a'), 400, reply_), whole.substr(0, 255)) << length;
        EXPECT_EQ(reply_, std::min<std::size_t>(whole.size(), 255)) << length;
    }
}

TEST_F(SayHello, ReadsNoFurtherThan256Units) {
    std::vector<char16_t> unterminated(256, u'a'); // the address sanitizer sees a look beyond
    GuardedText result(400);
    EXPECT_EQ(::SayHello(unterminated.data(), result.data(), 400, &reply_), 0);
    EXPECT_EQ(reply_, 255U);
}

TEST_F(SayHello, TreatsThePercentSignAsText) {
    EXPECT_EQ(answer(u"%s%n%d%%", 64, reply_), std::string("someText = \"%s%n%d%%\"") + '\0');
}

TEST_F(SayHello, ReturnsUnitsOutsideTheLocaleAsAllOnes) {
    GuardedText result(64);
    EXPECT_EQ(::SayHello(u"a\u00e9\u4e00", result.data(), 64, &reply_), 0);
    EXPECT_EQ(std::u16string(result.data(), reply_), std::u16string(u"someText = \"a\uffff\uffff\"") + u'\0');
}

TEST_F(SayHello, LogsItsSteps) {
    const LogCapture log;
    answer(u"abc", 64, reply_);
    for (const char* message :
         {"wstr_length(text):  3", "wstr_to_astr() populate:  abc", "result string: someText = \"abc\", string size: ",
          "buf_len: 17", "sizeof(pwc): 512", "befor call conversion for string:: someText = \"abc\", string size: ",
          "after astr_to_wstr() do wstr_length()  16", "wchar_t pwc[VXPAD_MAX_STRING_LENGTH]: someText = \"abc\"",
          "res_text:  someText = \"abc\", *reply: 17"}) {
        EXPECT_EQ(log.count(std::string("info: SayHello(): ") + message), 1) << message;
    }
}

TEST_F(SayHello, LogsTheLengthOfWhatItConverted) {
    const LogCapture log;
    answer(std::u16string(241, u'a'), 400, reply_); // 254 characters and the terminator
    EXPECT_EQ(log.count("after astr_to_wstr() do wstr_length()  254\n"), 1);
    answer(std::u16string(242, u'a'), 400, reply_); // 255 characters
    EXPECT_EQ(log.count("after astr_to_wstr() do wstr_length()  255\n"), 1);
}

} // namespace
