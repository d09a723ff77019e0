#include "PropertyMgr.h"

#include "FakeVm.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

std::string trimmed(std::string text) {
    return strtrim(text.data());
}

class PropertyMgrTest : public testing::Test {
protected:
    PropertyMgrTest() : manager(new PropertyMgr) {}
    ~PropertyMgrTest() override { PropertyMgr::destroy(); }

    void parse(std::string line, bool nullValsOK) { manager->parseProperty(line.data(), nullValsOK); }

    const FakeVm vm;
    PropertyMgr *manager;
};

TEST(PropertyText, TrimsEverythingThatIsNotPlainAscii) {
    const struct {
        const char *text, *expected;
    } cases[] = {
        {"  a b\t\r\n", "a b"},
        {"", ""},
        {" \t\x01 ", ""},
        {"x", "x"},
        {"caf\xC3\xA9", "caf"},
        {"\xC3\xA9t\xC3\xA9", "t"},
        {"a\xC3\xA9z", "a\xC3\xA9z"},
        {"\x7F!", "\x7F!"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(trimmed(c.text), c.expected);
    }
    EXPECT_EQ(strtrim(nullptr), nullptr);
}

TEST_F(PropertyMgrTest, ReadsLinesOfEveryShape) {
    const struct {
        const char *line;
        bool nullValsOK;
        const char *key;
        bool stored;
        const char *value;
    } cases[] = {
        {"plain=1", false, "plain", true, "1"},
        {" blanks \t=  in and out ", false, "blanks", true, "in and out"},
        {"cut=b=c", false, "cut", true, "b"},
        {"double==v", false, "double", true, "v"},
        {"#comment=1", true, "#comment", false, nullptr},
        {"#comment=1", true, "comment", false, nullptr},
        {"refused=", false, "refused", false, nullptr},
        {"allowed=", true, "allowed", true, nullptr},
        {"wordOnly", true, "wordOnly", true, nullptr},
        {"=lone", false, "lone", false, nullptr},
        {"=loneToo", true, "loneToo", false, nullptr},
        {"empty= =x", false, "empty", true, ""},
        {"  =blankKey", true, "", false, nullptr},
        {"", true, "", false, nullptr},
        {"===", true, "", false, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        parse(c.line, c.nullValsOK);
        EXPECT_STREQ(manager->getProperty(c.key), c.value);
        const char *absent = "absent";
        EXPECT_EQ(manager->getStringProperty(c.key, absent) != absent, c.stored);
    }
    manager->parseProperty(nullptr, true);
}

TEST_F(PropertyMgrTest, LastValueWinsAndOwnsItsText) {
    std::string key = "k";
    std::string value = "first";
    EXPECT_TRUE(manager->putInternalProp(key.c_str(), value.c_str()));
    value = "xxxxx";
    EXPECT_STREQ(manager->getProperty("k"), "first");
    EXPECT_TRUE(manager->putInternalProp("k", nullptr));
    EXPECT_EQ(manager->getStringProperty("k", "def"), nullptr);
    EXPECT_TRUE(manager->putInternalProp("k", "last"));
    EXPECT_STREQ(manager->getInternalProp("k"), "last");
    EXPECT_FALSE(manager->putInternalProp(nullptr, "v"));
    EXPECT_EQ(manager->getProperty(nullptr), nullptr);
    EXPECT_EQ(manager->getIntProperty(nullptr, 7), 7);
    for (int i = 0; i < 1000; ++i) { // many more keys than buckets
        manager->putInternalProp(("key" + std::to_string(i)).c_str(), std::to_string(i).c_str());
    }
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(manager->getIntProperty(("key" + std::to_string(i)).c_str(), -1), i);
    }
}

TEST_F(PropertyMgrTest, WhatAThreadIsReadingOutlivesDestroy) {
    parse("k=text", false);
    manager->putInternalProp("empty", nullptr);
    const char *value = stringProperty("k", nullptr);
    EXPECT_STREQ(stringProperty("empty", "def"), "");
    EXPECT_EQ(stringProperty("empty", nullptr), nullptr);
    PropertyMgr::destroy();
    EXPECT_EQ(propertyMgr, nullptr);
    EXPECT_EQ(propertyMgrInstance, nullptr);
    EXPECT_STREQ(stringProperty("k", "def"), "def");
    EXPECT_EQ(intProperty("k", 1), 1);
    EXPECT_EQ(longProperty("k", 1), 1);
    EXPECT_TRUE(boolProperty("k", true));
    EXPECT_FLOAT_EQ(floatProperty("k", 0.5F), 0.5F);
    EXPECT_STREQ(value, "text");
    EXPECT_EQ(manager->getProperty("k"), value) << "a getter that was entered before";
    PropertyMgr::destroy();
}

// What a text is as a whole number, as a fraction between zero and one, and as a truth; {} is the default.
TEST_F(PropertyMgrTest, ReadsValuesOfEachKind) {
    const struct {
        std::string text;
        int32_t number;
        std::optional<float> fraction = {};
        std::optional<bool> truth = {};
    } cases[] = {
        {"42", 42},
        {"-1", -1},
        {"+5", 5},
        {"12abc", 12},
        {"010", 10},
        {"0x10", 0},
        {"2147483647", INT32_MAX},
        {"99999999999", INT32_MAX},
        {"-99999999999999999999999", INT32_MIN},
        {"", 0},
        {" =x", 0},
        {"0.9", 0, 0.9F},
        {".5", 0, 0.5F},
        {"1.0", 1, 1.0F},
        {"0.", 0, 0.0F},
        {"1", 1},
        {"1.5", 1},
        {"1.00001", 1},
        {".5x", 0},
        {"-0.5", 0},
        {"0.5.5", 0},
        {"0,5", 0},
        {"1e-1", 1},
        {"0." + std::string(5000, '9'), 0}, // longer than any number that a double holds
        {"true", 0, {}, true},
        {"TRUE", 0, {}, true},
        {"False", 0, {}, false},
        {"yes", 0},
        {"true x", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text.substr(0, 20));
        parse("v=" + c.text, true);
        EXPECT_EQ(manager->getIntProperty("v", 17), c.number);
        EXPECT_EQ(manager->getLongProperty("v", 17), c.number);
        EXPECT_FLOAT_EQ(manager->getFloatProperty("v", 0.4F), c.fraction.value_or(0.4F));
        for (const bool def : {false, true}) {
            EXPECT_EQ(manager->getBoolProperty("v", def), c.truth.value_or(def));
        }
    }
    EXPECT_EQ(manager->getIntProperty("absent", 17), 17);
    EXPECT_EQ(manager->getLongProperty("absent", 17), 17);
    EXPECT_FLOAT_EQ(manager->getFloatProperty("absent", 0.4F), 0.4F);
    EXPECT_TRUE(manager->getBoolProperty("absent", true));
    EXPECT_FLOAT_EQ(getFloat("2.5", 0.4F), 2.5F);
    EXPECT_FLOAT_EQ(getFloat(nullptr, 0.4F), 0.4F);
}

} // namespace
