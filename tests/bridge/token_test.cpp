#include "access/token.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace {

class Token : public testing::Test {
  protected:
    Token() {
        char name[] = "/tmp/vxpad-token-XXXXXX";
        directory_ = ::mkdtemp(name);
    }
    ~Token() override { std::filesystem::remove_all(directory_); }

    std::filesystem::path written(const std::string& text, mode_t mode = 0600) const {
        const auto file = directory_ / "token";
        std::ofstream{file} << text;
        ::chmod(file.c_str(), mode);
        return file;
    }

    std::filesystem::path directory_;
};

std::string line_of(const std::filesystem::path& file) {
    std::string line;
    std::getline(std::ifstream(file), line);
    return line;
}

TEST_F(Token, IsAnotherOneEachTime) {
    const std::string one = bridge::make_token();
    EXPECT_EQ(one.size(), 64U);
    EXPECT_EQ(one.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(one, bridge::make_token());
}

TEST_F(Token, IsComparedAsAWhole) {
    const std::string token = bridge::make_token();
    EXPECT_TRUE(bridge::is_token(token, token));
    EXPECT_FALSE(bridge::is_token("", token));
    EXPECT_FALSE(bridge::is_token(token + token, token));
    EXPECT_FALSE(bridge::is_token(token.substr(1), token));
    for (std::size_t i = 0; i < token.size(); ++i) {
        std::string other = token;
        other[i] = 'x';
        EXPECT_FALSE(bridge::is_token(other, token)) << i;
    }
}

TEST_F(Token, IsReadFromAFileOfTheUsersAlone) {
    const std::string token = "ABCDEFGHIJKLMNOPQRSTUVWXYZ-_0123456789";
    EXPECT_EQ(bridge::read_token(written(token + "\n")), token);
    EXPECT_EQ(bridge::read_token(written(std::string(256, 'a'))), std::string(256, 'a'));
    for (const mode_t mode : {0640U, 0604U, 0620U, 0602U, 0610U}) {
        EXPECT_THROW(bridge::read_token(written(token, mode)), std::runtime_error) << mode;
    }
    for (const std::string& text : {std::string{}, std::string(31, 'a'), std::string(257, 'a'), token + "\n\n",
                                    token + " ", token + "\r\n", token + "é"}) {
        EXPECT_THROW(bridge::read_token(written(text)), std::runtime_error) << text;
    }
    EXPECT_THROW(bridge::read_token(directory_), std::runtime_error);
    EXPECT_THROW(bridge::read_token(directory_ / "nothing"), std::system_error);
    EXPECT_THROW(bridge::read_token("/dev/zero"), std::runtime_error);
}

TEST_F(Token, StandsInAPrivateFileForAsLongAsItCounts) {
    const auto file = directory_ / "deeper" / "address";
    {
        const bridge::PrivateFile kept{file, "secret"};
        struct stat status {};
        ASSERT_EQ(::stat(file.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0600U);
        ASSERT_EQ(::stat(file.parent_path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0700U);
        EXPECT_EQ(line_of(file), "secret");
    }
    EXPECT_TRUE(std::filesystem::is_empty(file.parent_path()));
}

TEST_F(Token, TakesThePlaceOfWhatStoodThere) {
    const auto file = directory_ / "address";
    std::ofstream{file} << "open to all\n";
    ::chmod(file.c_str(), 0644);
    const bridge::PrivateFile kept{file, "secret"};
    struct stat status {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(Token, OfAnotherBridgeIsLeftAlone) {
    const auto file = directory_ / "address";
    {
        const bridge::PrivateFile kept{file, "mine"};
        std::ofstream{file} << "another's\n";
    }
    EXPECT_EQ(line_of(file), "another's");
}

TEST_F(Token, WithoutAPlaceIsAnError) {
    EXPECT_THROW((bridge::PrivateFile{directory_ / "a" / "b" / "c", "secret"}), std::system_error);
    ::unsetenv("XDG_RUNTIME_DIR");
    EXPECT_THROW(bridge::default_address_file(), std::runtime_error);
    ::setenv("XDG_RUNTIME_DIR", "relative", 1);
    EXPECT_THROW(bridge::default_address_file(), std::runtime_error);
    ::setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);
    EXPECT_EQ(bridge::default_address_file(), "/run/user/7/vxpad-bridge/address");
}

} // namespace
