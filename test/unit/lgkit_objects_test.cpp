#include "lgkit_test_support.h"

#include <atomic>

using namespace lgkitTest;

class LgkitObjects : public LogTest {
protected:
    static std::string property(LgkObject *object, const char *name, int expectedFound) {
        int found = -1;
        char *value = LgkGetObjProp(object, name, &found);
        EXPECT_EQ(expectedFound, found) << name;
        const std::string copy = value != nullptr ? value : "(null)";
        LgkMemoryFree(value);
        return copy;
    }
};

TEST_F(LgkitObjects, unusableFilesAreRefusedSilently) {
    const fs::path big = writeFile("big", "logger." + id + ".level=1000\n#" + std::string(1000000, 'x'));
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    for (const fs::path &path :
         {directory / "missing", directory, writeFile("empty", ""), big,
          writeFile("binary", std::string("\0\1\2=\n\xff\xfe", 7)), fs::path("/dev/zero")}) {
        EXPECT_NE(1, LgkOpenToolkit(path.c_str())) << path;
    }
    EXPECT_NE(1, LgkOpenToolkit(nullptr));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ(nullptr, LgkGetObject(loggerName().c_str(), nullptr));
}

TEST_F(LgkitObjects, brokenLinesAreSkippedAndToldOnce) {
    testing::internal::CaptureStderr();
    LgkObject *logger =
        openLogger("# comment\n\nno equals sign\n=value\n.x=1\nnodot=1\ntrailing.=1\n" + loggerName() +
                   ".level=loud\n  " + loggerName() + ".spaced = a b=c \t\r\n" + loggerName() + ".empty=\n" +
                   loggerName() + ".long=" + std::string(5000, 'x') + "\n");
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ("lgkit: " + (directory / "lgkit.properties").string() +
                  ": 7 line(s) ignored, the first is line 6\n",
              told);
    EXPECT_EQ("4000", property(logger, "level", 1)); // the malformed level changed nothing
    EXPECT_EQ("a b=c", property(logger, "spaced", 1));
    EXPECT_EQ("", property(logger, "empty", 1));
    EXPECT_EQ("(null)", property(logger, "absent", 0));
    EXPECT_EQ("(null)", property(logger, "long", 0));
}

TEST_F(LgkitObjects, nullsAreHarmless) {
    LgkObject *logger = openLogger();
    EXPECT_EQ(0, LgkIsLoggable(nullptr, 6000));
    EXPECT_EQ(0, LgkIsLoggable(LgkGetObject(handlerName().c_str(), nullptr), 6000));
    EXPECT_EQ("(null)", property(nullptr, "level", 0));
    EXPECT_EQ("(null)", property(logger, nullptr, 0));
    EXPECT_EQ(0, LgkSetObjProp(nullptr, "level", "1") + LgkSetObjProp(logger, nullptr, "1") +
                     LgkSetObjProp(logger, "level", nullptr) + LgkSetObjPropInt(nullptr, "level", 1));
    LgkReleaseObject(nullptr);
    LgkMemoryFree(nullptr);
    LgkLogInfo(nullptr, "zykprobeMessages", 1, 1006, "dropped", 0);
    LgkLogDebugMax(nullptr, nullptr, nullptr, 0, nullptr, 0);
    LgkLogText(nullptr, nullptr, 0);
    LgkLogText(logger, nullptr, 0);
    LgkLogInfo(logger, nullptr, 0, 0, nullptr, 0);
    LgkSetObjPropInt(logger, "level", 0);
    LgkLogDebugMax(logger, nullptr, nullptr, 7, nullptr, 0);
    LgkLogInfo(LgkGetObject(handlerName().c_str(), nullptr), nullptr, 0, 0, "not a logger", 0);
    settle(logger);
    EXPECT_EQ((std::vector<std::string>{"INFO", "DEBUG_MAX (null):7 (null)", "ERROR settled"}), texts());
}

TEST_F(LgkitObjects, levelDecidesWhatIsWritten) {
    LgkObject *logger = openLogger();
    const auto logAll = [&] {
        LgkLogDebugMax(logger, "a.cpp", "f()", 1, "entry", 0);
        LgkLogDebugMid(logger, "a.cpp", "f()", 2, "entry", 0);
        LgkLogDebugMin(logger, "a.cpp", "f()", 3, "entry", 0);
        LgkLogInfo(logger, nullptr, 0, 0, "i", 0);
        LgkLogWarn(logger, nullptr, 0, 0, "w", 0);
        LgkLogFatal(logger, nullptr, 0, 0, "f", 0);
        LgkLogText(logger, "text", 0);
    };
    const std::vector<std::string> all = {"DEBUG_MAX a.cpp:1 f() entry",
                                          "DEBUG_MID a.cpp:2 f() entry",
                                          "DEBUG_MIN a.cpp:3 f() entry",
                                          "INFO i",
                                          "WARN w",
                                          "FATAL f"};
    std::vector<std::string> expected;
    for (int level : {0, 1000, 1001, 3000, 4000, 6000, 6001, 19999}) {
        ASSERT_EQ(1, LgkSetObjPropInt(logger, "level", level));
        logAll();
        for (size_t i = 0; i < all.size(); ++i) {
            const int its = static_cast<int>(i + 1) * 1000;
            EXPECT_EQ(its >= level, LgkIsLoggable(logger, its) == 1) << its << " at " << level;
            if (its >= level) {
                expected.push_back(all[i]);
            }
        }
        expected.push_back("text");
    }
    LgkSetObjProp(logger, "level", "4000");
    settle(logger);
    expected.push_back("ERROR settled");
    EXPECT_EQ(expected, texts());
}

// Mostly for the thread sanitiser: every kind of access at once.
TEST_F(LgkitObjects, threadsLogWhileLevelsAndFilesChange) {
    LgkObject *logger = openLogger();
    LgkObject *handler = LgkGetObject(handlerName().c_str(), nullptr);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                if (LgkIsLoggable(logger, 2000)) {
                    LgkLogDebugMid(logger, "a.cpp", "f()", 1, "n=%d", LGK_ARG_INT, 5, 0);
                }
                LgkMemoryFree(LgkGetObjProp(handler, "fileName", nullptr));
            }
        });
    }
    for (int round = 0; round < 50; ++round) {
        LgkSetObjPropInt(logger, "level", round % 2 == 0 ? 1000 : 4000);
        LgkSetObjProp(handler, "fileName", (directory / std::to_string(round % 5)).c_str());
        LgkLogError(logger, "zykprobeMessages", 1, 1006, "e", 0);
        openLogger();
    }
    stop = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    settle(logger);
}
