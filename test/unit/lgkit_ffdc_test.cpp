#include "lgkit/lgffdc.h"
#include "lgkit_test_support.h"

#include <sys/stat.h>

using namespace lgkitTest;

class LgkitFfdc : public LogTest {
protected:
    void SetUp() override {
        LogTest::SetUp();
        ASSERT_EQ(1, LgkInitFFDCExtensions());
        incidentsDirectory = directory / "not" / "there" / "yet";
    }

    LgkObject *openWithHandler(const std::string &more) {
        const std::string name = "handler.ffdc." + id;
        LgkObject *logger =
            openLogger(name + ".files=" + "\n" + name + ".baseDir=\n" + name + ".minInterval=0\n" + more);
        handler = LgkGetObject(name.c_str(), "lgk_ffdchandler");
        EXPECT_EQ(1, LgkFFDCTriggerHandlerSetBaseDir(handler, incidentsDirectory.c_str()));
        return logger;
    }

    std::vector<fs::path> incidentsNow() const {
        std::error_code error;
        std::vector<fs::path> found;
        for (const auto &entry : fs::directory_iterator(incidentsDirectory, error)) {
            found.push_back(entry.path());
        }
        return found;
    }

    // Waits for so many incidents, then until the worker is through with all that was logged.
    std::vector<fs::path> incidents(LgkObject *logger, size_t count) const {
        EXPECT_TRUE(waitUntil([&] { return incidentsNow().size() >= count; }));
        LgkSetObjProp(handler, "files", "");
        settle(logger);
        return incidentsNow();
    }

    fs::path incidentsDirectory;
    LgkObject *handler = nullptr;
};

TEST_F(LgkitFfdc, errorCopiesTheListedFiles) {
    const fs::path first = writeFile("first.txt", "first content");
    fs::create_directories(directory / "sub");
    std::ofstream(directory / "sub" / "first.txt") << "namesake";
    const fs::path pipe = directory / "pipe";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    LgkObject *logger = openWithHandler("");
    const std::string list = first.string() + "," + (directory / "sub" / "first.txt").string() + " " +
                             pipe.string() + ", " + (directory / "missing").string() + " log.txt";
    ASSERT_EQ(1, LgkFileCopyHandlerSetFiles(handler, list.c_str()));

    LgkLogWarn(logger, nullptr, 0, 0, "only a warning", 0);
    LgkLogError(logger, nullptr, 0, 0, "it broke: %d", LGK_ARG_INT, 42, 0);
    const std::vector<fs::path> found = incidents(logger, 1);
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ("first content", contentOf(found[0] / "first.txt"));
    EXPECT_EQ("namesake", contentOf(found[0] / "first.txt.2"));
    EXPECT_EQ("ERROR it broke: 42\n", contentOf(found[0] / "incident.txt"));
    const std::string log = contentOf(found[0] / "log.txt"); // a bare name lies beside the log
    EXPECT_NE(std::string::npos, log.find("ERROR it broke: 42\n"));
    EXPECT_FALSE(fs::exists(found[0] / "pipe"));
    EXPECT_FALSE(fs::exists(found[0] / "missing"));
}

TEST_F(LgkitFfdc, limitsHold) {
    const struct {
        const char *limit;
        const char *value;
        size_t expected;
    } cases[] = {{"maxIncidents", "3", 3}, {"minInterval", "3600", 1}, {"maxIncidents", "0", 1}};
    LgkObject *logger = openWithHandler("");
    const std::string data = writeFile("data", "x").string();
    size_t logged = 0;
    for (const auto &c : cases) {
        incidentsDirectory = directory / (c.limit + std::string(c.value));
        LgkFFDCTriggerHandlerSetBaseDir(handler, incidentsDirectory.c_str());
        LgkFileCopyHandlerSetFiles(handler, data.c_str());
        LgkLogError(logger, nullptr, 0, 0, "again",
                    0); // without the limit, and for the interval to count from
        ASSERT_TRUE(waitUntil([&] { return incidentsNow().size() == 1; }));
        LgkSetObjProp(handler, c.limit, c.value);
        for (int i = 0; i < 5; ++i) {
            LgkLogError(logger, nullptr, 0, 0, "again", 0);
        }
        logged += 6;
        ASSERT_TRUE(waitUntil([&] {
            const std::vector<std::string> lines = texts();
            return static_cast<size_t>(std::count(lines.begin(), lines.end(), "ERROR again")) == logged;
        }));
        EXPECT_EQ(c.expected, incidents(logger, c.expected).size()) << c.limit;
        LgkSetObjProp(handler, "maxIncidents", "20");
        LgkSetObjProp(handler, "minInterval", "0");
    }
}

TEST_F(LgkitFfdc, largeFilesKeepTheirEndWithinTheBytes) {
    const std::string one = writeFile("one", std::string(200000, 'a') + "the end").string();
    const std::string two = writeFile("two", "rest").string();
    LgkObject *logger = openWithHandler("handler.ffdc." + id + ".maxBytes=100007\n");
    LgkFileCopyHandlerSetFiles(handler, (one + " " + two).c_str());
    LgkLogFatal(logger, nullptr, 0, 0, "fatal", 0);
    const std::vector<fs::path> found = incidents(logger, 1);
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ(std::string(100000, 'a') + "the end", contentOf(found[0] / "one"));
    EXPECT_EQ("", contentOf(found[0] / "two"));
}

TEST_F(LgkitFfdc, unusableDirectoryCostsTheIncidentOnly) {
    LgkObject *logger = openWithHandler("");
    const std::string data = writeFile("data", "x").string();
    LgkFileCopyHandlerSetFiles(handler, data.c_str());
    LgkFFDCTriggerHandlerSetBaseDir(handler, (data + "/below").c_str()); // below a file
    char *base = LgkFFDCTriggerHandlerGetBaseDir(handler);
    EXPECT_EQ(data + "/below", base);
    LgkMemoryFree(base);
    settle(logger);
    LgkLogText(logger, "still alive", 0);
    EXPECT_TRUE(waitForText(file, "still alive"));
}
