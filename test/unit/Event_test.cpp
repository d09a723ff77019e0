#include "Event.h"

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

// What a destructor frees twice or not at all is found by the address sanitiser.
TEST(Event, FreesWhatItOwns) {
    PortalMethodConstantEvent *constant = new PortalMethodConstantEvent;
    char name[] = "doView";
    constant->methodName = name;
    delete constant;
    EXPECT_STREQ("doView", name);

    GenericEvent *generic = new GenericEvent(Event::TYPE_GENERIC_START, 1, 2);
    generic->ctxValues[1] = strdup("second");
    EXPECT_EQ(nullptr, generic->ctxValues[0]);
    delete generic;

    EXPECT_EQ(0, GenericExceptionEvent(1, -5).nCtxProps);

    LockContentionEvent *contention = new LockContentionEvent(Event::SUB_START);
    contention->lockedClassName = strdup("java/lang/Object");
    contention->owningRequestName = strdup("/request");
    delete contention;
}

TEST(Event, ClassRecordGoesWithItsEventOnlyIfItSaysSo) {
    jclass_t registered;
    registered.name = strdup("shop/Cart");
    ClassEvent *event = new ClassEvent(Event::SUB_CLASS_LOAD);
    event->classRecord = &registered;
    delete event;
    EXPECT_STREQ("shop/Cart", registered.name);

    jclass_t *carried = new jclass_t;
    carried->deleteWithEvent = 1;
    carried->methods = new jmethod_t[2];
    carried->methodCount = 2;
    carried->methods[1].signature = strdup("()V");
    event = new ClassEvent(Event::SUB_CLASS_UNLOAD);
    event->classRecord = carried;
    delete event;
}

} // namespace
