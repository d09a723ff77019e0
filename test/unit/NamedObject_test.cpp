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
    EXPECT_THAT(log.texts(),
                testing::ElementsAre("[Manager (work()@7)] one \n", "[Manager (work()@8)] two \n",
                                     "[Manager (work()@9)] three \n"));
    EXPECT_EQ(LGK_INFO, log.lines()[0].level);
    EXPECT_EQ(LGK_WARN, log.lines()[1].level);
    EXPECT_EQ(LGK_ERROR, log.lines()[2].level);
    Speaker(nullptr).speak();
    EXPECT_TRUE(log.has("[ (work()@7)] one \n"));
}

} // namespace
