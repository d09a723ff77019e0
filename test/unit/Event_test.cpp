#include "Event.h"

#include "EventQueue.h"
#include "ProtocolVisitor.h"
#include "RecordedLog.h"
#include "class.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

TEST(Event, UnknownTypesAreRefusedWithAWarning) {
    const RecordedLog log(LGK_INFO);
    char area[64];
    ProtocolVisitor visitor(area, area, area + sizeof(area), nullptr);
    const std::vector<int> unknown = {2, 51, 98, 109, 1000000, -1, INT32_MIN};
    for (const int type : unknown) {
        RequestEvent event(static_cast<Event::EventType>(type), Event::SUB_START);
        EXPECT_FALSE(event.addToBuffer(&visitor)) << type;
        EXPECT_NE(std::string::npos, log.texts().back().find(std::to_string(type)));
    }
    EXPECT_EQ(std::vector<int>(unknown.size(), 1039), log.numbers());
    EXPECT_TRUE(RequestEvent(Event::TYPE_NOTHING, Event::SUB_START).addToBuffer(&visitor));
    EXPECT_EQ(area, visitor.getCursor());
    EXPECT_FALSE(SQLEvent(Event::SUB_START).addToBuffer(nullptr));
    EXPECT_EQ(unknown.size(), log.lines().size()) << "neither is told";
}

// What is freed twice or not at all is found by the address sanitiser.
TEST(Event, AClassGoesWithTheLastEventThatTellsOfIt) {
    auto *cls = new jclass_t;
    cls->methods = new jmethod_t[2];
    cls->methodCount = 2;
    cls->methods[1].signature = strdup("()V");
    cls->hold();
    EventQueue queue;
    {
        Draft<ClassEvent> queued(Event::SUB_CLASS_LOAD);
        queued->classRecord = cls;
        ASSERT_TRUE(queue.append(queued));
        Draft<ClassEvent> neverQueued(Event::SUB_CLASS_UNLOAD);
        neverQueued->classRecord = cls;
    }
    EXPECT_EQ(cls->methodCount, 2);
    queue.removeFirst();
}

} // namespace
