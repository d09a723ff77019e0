#include "ZykEncryptor.h"

#include "RecordedLog.h"
#include "TempDir.h"

#include <gtest/gtest.h>
#include <string>

namespace {

constexpr char PERMIT[] = "p7%Rw!c#u&Gn^4e*Yb$ad";

class PasswordFile : public testing::Test {
protected:
    // What the file holds, or "-" and the numbers of the messages.
    std::string read(const std::string &file, const char *permit = PERMIT) {
        const size_t before = log.numbers().size();
        char user[ZykEncryptor::TEXT_BYTES] = "untouched", password[ZykEncryptor::TEXT_BYTES] = "untouched";
        if (encryptor.getUidPaswdFromFile(file.c_str(), user, password, permit) == 0) {
            return std::string(user) + "/" + password;
        }
        std::string faults = "-";
        for (size_t i = before; i < log.numbers().size(); ++i) {
            faults += " " + std::to_string(log.numbers()[i]);
        }
        return faults;
    }
    std::string written(const std::string &uid, const std::string &password) {
        testing::internal::CaptureStdout();
        encryptor.generatePasswordFile(uid.c_str(), password.c_str(), file.c_str());
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_NE(printed.find("\nDecrypted password: " + password + " \n"), std::string::npos);
        return TempDir::read(file);
    }

    RecordedLog log;
    const TempDir directory;
    const std::string file = directory.path / "password";
    const ZykEncryptor encryptor;
};

TEST_F(PasswordFile, HoldsEachHalfOfAByteUnderEachCharacterOfTheKey) {
    const std::string key = "k#Tq9!mZ&2vL$xW";
    std::string expected = "ann:";
    for (const char half : {4, 1}) {
        for (const char each : key) {
            expected += static_cast<char>(each ^ half);
        }
    }
    EXPECT_EQ(written("ann", "A"), expected + "\xFF");
    EXPECT_EQ(read(file), "ann/A");
    EXPECT_EQ(log.numbers().back(), 1033);
    EXPECT_EQ(written("ann", ""), "ann:\xFF");
    EXPECT_EQ(read(file), "ann/");
    written(std::string(60, 'u'), std::string(1000, 'p'));
    EXPECT_EQ(read(file), std::string(49, 'u') + "/" + std::string(49, 'p'));
    written("\xC3\xA9", "\xE2\x82\xAC\x01\xFE");
    EXPECT_EQ(read(file), "\xC3\xA9/\xE2\x82\xAC\x01\xFE");
}

TEST_F(PasswordFile, EveryTamperingIsRefused) {
    const std::string whole = written("ann", "secret");
    for (size_t i = 4; i < whole.size(); ++i) {
        for (const int change : {1, 0x10, 0x80}) {
            std::string changed = whole;
            changed[i] = static_cast<char>(changed[i] ^ change);
            EXPECT_EQ(read(directory.write("changed", changed))[0], '-') << i;
        }
        EXPECT_EQ(read(directory.write("cut", whole.substr(0, i)))[0], '-') << i;
    }
    std::string block = whole; // consistent, but no half of a byte
    for (size_t i = 4; i < 19; ++i) {
        block[i] = static_cast<char>(block[i] ^ 0x10);
    }
    EXPECT_EQ(read(directory.write("block", block)), "- 1035");
    EXPECT_EQ(read(directory.write("half", whole.substr(0, 4) + whole.substr(19))), "- 1034");
}

TEST_F(PasswordFile, OddFilesAndArgumentsHaveTheirMessage) {
    EXPECT_EQ(read(directory.write("empty", "")), "- 1025");
    EXPECT_EQ(read(directory.write("huge", std::string(10000000, 'x'))), "- 1024");
    EXPECT_EQ(read(directory.write("long", "ann:" + std::string(60000, 'x'))), "- 1028");
    EXPECT_EQ(read(directory.write("colonless", "ann")), "- 1028");
    EXPECT_EQ(read(directory.path), "- 1024");
    EXPECT_EQ(read(directory.path / "none"), "- 1024");
    written("ann", "secret");
    EXPECT_EQ(read(file, "wrong"), "-");
    EXPECT_EQ(read(file, nullptr), "-");
    const auto number = [this] { return log.numbers().back(); };
    encryptor.generatePasswordFile("ann", std::string(1001, 'x').c_str(), file.c_str());
    EXPECT_EQ(number(), 1036);
    encryptor.generatePasswordFile(nullptr, "x", file.c_str());
    EXPECT_EQ(number(), 1029);
    EXPECT_EQ(read(file), "ann/secret") << "both left it alone";
    testing::internal::CaptureStdout();
    encryptor.generatePasswordFile("a:b", "x", file.c_str());
    EXPECT_EQ(number(), 1032); // the first colon ends the user id
    encryptor.generatePasswordFile("ann", "x", directory.path.c_str());
    EXPECT_EQ(number(), 1027);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(encryptor.getUidPaswdFromFile(nullptr, nullptr, nullptr, PERMIT), -1);
    EXPECT_EQ(number(), 1020);
    EXPECT_EQ(ZykEncryptor::writeToFile(nullptr, "a", nullptr, 0), -1);
    EXPECT_EQ(number(), 1026);
    EXPECT_EQ(encryptor.encode(nullptr), nullptr);
}

} // namespace
