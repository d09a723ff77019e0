#include "PropertyMgr.h"

#include "FakeVm.h"
#include "GivenArguments.h"

#include <gtest/gtest.h>

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

TEST_F(PropertyMgrTest, ReadsWholeNumbers) {
    const struct {
        const char *line;
        int32_t expected;
    } cases[] = {
        {"n=42", 42},  {"n=-1", -1},
        {"n=+5", 5},   {"n=12abc", 12},
        {"n=abc", 0},  {"n=", 0},
        {"n= =x", 0},  {"n=2147483647", INT32_MAX},
        {"n=0x10", 0}, {"n=99999999999", INT32_MAX},
        {"n=010", 10}, {"n=-99999999999999999999999", INT32_MIN},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        parse(c.line, true);
        EXPECT_EQ(manager->getIntProperty("n", 17), c.expected);
        EXPECT_EQ(manager->getLongProperty("n", 17), c.expected);
    }
    EXPECT_EQ(manager->getIntProperty("absent", 17), 17);
    EXPECT_EQ(manager->getLongProperty("absent", 17), 17);
}

TEST_F(PropertyMgrTest, ReadsFractionsBetweenZeroAndOne) {
    const float def = 0.4F;
    const struct {
        const char *line;
        float expected;
    } cases[] = {
        {"f=0.9", 0.9F}, {"f=.5", 0.5F},     {"f=1.0", 1.0F}, {"f=0.", 0.0F},  {"f=0.75", 0.75F},
        {"f=1.5", def},  {"f=.5x", def},     {"f=1", def},    {"f=-0.5", def}, {"f=0.5.5", def},
        {"f=", def},     {"f=1.00001", def}, {"f= =x", def},  {"f=0,5", def},  {"f=1e-1", def},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        parse(c.line, true);
        EXPECT_FLOAT_EQ(manager->getFloatProperty("f", def), c.expected);
    }
    // Longer than any number that a double holds.
    manager->putInternalProp("f", ("0." + std::string(5000, '9')).c_str());
    EXPECT_FLOAT_EQ(manager->getFloatProperty("f", def), def);
    EXPECT_FLOAT_EQ(manager->getFloatProperty("absent", def), def);
    EXPECT_FLOAT_EQ(getFloat("2.5", def), 2.5F);
    EXPECT_FLOAT_EQ(getFloat(nullptr, def), def);
}

TEST_F(PropertyMgrTest, ReadsBooleans) {
    for (const bool def : {false, true}) {
        const struct {
            const char *line;
            bool expected;
        } cases[] = {
            {"b=true", true}, {"b=TRUE", true}, {"b=False", false}, {"b=yes", def},
            {"b=1", def},     {"b=", def},      {"b=true x", def},  {"absent=true", def},
        };
        for (const auto &c : cases) {
            SCOPED_TRACE(c.line);
            manager->putInternalProp("b", "neither");
            parse(c.line, true);
            EXPECT_EQ(manager->getBoolProperty("b", def), c.expected);
        }
    }
}

// ---------------------------------------------------------------- the command line

class CommandLineTest : public testing::Test {
protected:
    CommandLineTest() { clearBuffers(); }
    ~CommandLineTest() override { clearBuffers(); }
    static void clearBuffers() {
        for (char *buffer :
             {rawHome, rawNorakHome, rawPlatform, rawNodeName, rawAppServer, rawProfileName, rawExtDirs}) {
            *buffer = '\0';
        }
    }
};

TEST_F(CommandLineTest, TakesTheFirstWordForEachBuffer) {
    const GivenArguments given(
        {"java", "-Dam.home=/one", "am.home=/two", "-Dam.nodename=", "am.nodename=node", "xam.appserver=no",
         "-Dam.appserver=server", "am.profilename=profile", "-Dam.ext.dirs=/x:/y", "norak61.home=/norak",
         "-Dappserver.platform=" + std::string(500, 'p'), "-D-Dam.home=/three"});
    initCommandLineArgs();
    EXPECT_STREQ(rawHome, "/one");
    EXPECT_STREQ(rawNodeName, "node");
    EXPECT_STREQ(rawAppServer, "server");
    EXPECT_STREQ(rawProfileName, "profile");
    EXPECT_STREQ(rawExtDirs, "/x:/y");
    EXPECT_STREQ(rawNorakHome, "/norak");
    EXPECT_EQ(std::string(rawPlatform), std::string(99, 'p'));
    const GivenArguments others({"-Dam.home=/four"});
    initCommandLineArgs();
    EXPECT_STREQ(rawHome, "/one") << "what is there stays";
}

} // namespace
