#include "cmdline.h"

#include "ChildRun.h"
#include "GivenArguments.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// A server's class path makes its command line far longer than one block of the reader; blanks, empty words
// and bytes beyond ASCII must come through as they are.
TEST(CommandLine, IsReadWhole) {
    const std::vector<std::string> given = {
        "-Dblank=a b", "", "-Dpath=/srv/\xC3\xA4/x", std::string(4095, 'c'), std::string(20000, 'd'), ""};
    if (leftToChild({given, {}, ""})) {
        return;
    }
    getCommandLineArgs();
    const int own = commandLineArgCount - static_cast<int>(given.size());
    ASSERT_GT(own, 0);
    for (size_t i = 0; i < given.size(); ++i) {
        EXPECT_EQ(given[i], commandLineArgs[own + static_cast<int>(i)]);
    }
    EXPECT_EQ(nullptr, commandLineArgs[commandLineArgCount]);
}

TEST(CommandLine, ValueOfTheFirstArgumentThatHasOne) {
    const GivenArguments arguments({"java", "x-Dkey=inside", "-Dkey=", "-Dkey", "-Dkey=one", "-Dkey=two"});
    EXPECT_STREQ("one", findCommandLineValue("-Dkey="));
    EXPECT_EQ(nullptr, findCommandLineValue("-Dother="));
    const GivenArguments none({});
    EXPECT_EQ(nullptr, findCommandLineValue("-Dkey="));
}

TEST(CommandLine, OptionWords) {
    struct Case {
        const char *text;
        const char *word;
        bool found;
        const char *rest;
    };
    const Case cases[] = {
        {"", "disableDC", false, ""},
        {"/srv/rt", "disableDC", false, "/srv/rt"},
        {"disabledc,/srv/rt", "disableDC", false, "disabledc,/srv/rt"},
        {"disableDC", "disableDC", true, "disableDC"},   // 9 characters: kept
        {"disableDC,", "disableDC", true, "disableDC,"}, // 10: kept
        {"disableDC,/srv", "disableDC", true, "/srv"},
        {"am.debug=on", "am.debug=on", true, "am.debug=on"},   // 11: kept, and names the directory
        {"am.debug=on,", "am.debug=on", true, "am.debug=on,"}, // 12: kept
        {"am.debug=on,C:/rt", "am.debug=on", true, "C:/rt"},
        {"/srv/rt,am.debug=on", "am.debug=on", true, "ebug=on"}, // the front is dropped wherever it stood
    };
    for (const Case &c : cases) {
        const char *text = c.text;
        EXPECT_EQ(c.found, takeOptionWord(text, c.word)) << c.text;
        EXPECT_STREQ(c.rest, text) << c.text;
    }
}

} // namespace
