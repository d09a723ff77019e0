#include "NamedObject.h"

#include "RecordedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

namespace {

struct Speaker : NamedObject {
    explicit Speaker(const char *name) : NamedObject(name) {}
    void speak() const {
        info("work()", 7, "one");
        warn("work()", 8, "two");
        error("work()", 9, "three");
    }
};

TEST(NamedObject, KeepsItsOwnNameAndSpeaksInOneForm) {
    char name[] = "Manager";
    const Speaker speaker(name);
    memset(name, 'x', sizeof(name) - 1);
    const RecordedLog log;
    speaker.speak();
    const std::vector<RecordedLog::Line> lines = log.lines();
    ASSERT_EQ(3U, lines.size());
    EXPECT_EQ("[Manager (work()@7)] one \n", lines[0].text);
    EXPECT_EQ(LGK_INFO, lines[0].level);
    EXPECT_EQ("[Manager (work()@8)] two \n", lines[1].text);
    EXPECT_EQ(LGK_WARN, lines[1].level);
    EXPECT_EQ("[Manager (work()@9)] three \n", lines[2].text);
    EXPECT_EQ(LGK_ERROR, lines[2].level);
    for (const RecordedLog::Line &line : lines) {
        EXPECT_EQ(0, line.number);
    }
    Speaker(nullptr).speak();
    EXPECT_TRUE(log.has("[ (work()@7)] one \n"));
}

} // namespace
