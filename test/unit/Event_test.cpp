#include "Event.h"

#include "ProbeLgKit.h"
#include "ProtocolVisitor.h"
#include "class.h"

#include <cstdarg>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Warning {
    int number;
    int type;
};
std::vector<Warning> warnings;

// The toolkit's calling form: format, then pairs of type code and value, then 0.
void recordWarning(LgkObject *, const char *, int, int number, const char *format, ...) {
    va_list args;
    va_start(args, format);
    va_arg(args, int);
    warnings.push_back({number, va_arg(args, int)});
    va_end(args);
}

// Catches the numbered warnings while it lives.
class WarningCatcher {
public:
    WarningCatcher() : oldLogger(msgLogger), oldWarn(lgkApi.warn) {
        warnings.clear();
        msgLogger = reinterpret_cast<LgkObject *>(this);
        lgkApi.warn = recordWarning;
    }
    ~WarningCatcher() {
        msgLogger = oldLogger;
        lgkApi.warn = oldWarn;
    }

private:
    LgkObject *oldLogger;
    LgkApi::MessageCall oldWarn;
};

TEST(Event, UnknownTypesAreRefusedWithAWarning) {
    const WarningCatcher catcher;
    char area[64];
    std::vector<int> refused;
    for (const int type : {2, 51, 98, 109, 1000000, -1, INT32_MIN}) {
        RequestEvent event(static_cast<Event::EventType>(type), Event::SUB_START);
        ProtocolVisitor visitor(area, area, area + sizeof(area), nullptr);
        EXPECT_FALSE(event.addToBuffer(&visitor)) << type;
        EXPECT_EQ(area, visitor.getCursor()) << type;
        refused.push_back(type);
    }
    ASSERT_EQ(refused.size(), warnings.size());
    for (size_t i = 0; i < refused.size(); ++i) {
        EXPECT_EQ(1039, warnings[i].number);
        EXPECT_EQ(refused[i], warnings[i].type);
    }
}

TEST(Event, TypeZeroPassesForSent) {
    const WarningCatcher catcher;
    char area[8];
    ProtocolVisitor visitor(area, area, area + sizeof(area), nullptr);
    EXPECT_TRUE(RequestEvent(Event::TYPE_NOTHING, Event::SUB_START).addToBuffer(&visitor));
    EXPECT_EQ(area, visitor.getCursor());
    EXPECT_TRUE(warnings.empty());
}

TEST(Event, NullVisitorIsRefusedQuietly) {
    const WarningCatcher catcher;
    EXPECT_FALSE(SQLEvent(Event::SUB_START).addToBuffer(nullptr));
    EXPECT_FALSE(CommonEvent(Event::SUB_START).addToBuffer(nullptr));
    EXPECT_TRUE(warnings.empty());
}

TEST(Event, KnownTypeSucceedsEvenIfItDoesNotFit) {
    ProtocolVisitor visitor(nullptr, nullptr, nullptr, nullptr);
    EXPECT_TRUE(SQLEvent(Event::SUB_START).addToBuffer(&visitor));
    EXPECT_TRUE(visitor.hasOverflowed());
}

TEST(Event, TwoClassesHaveAFixedCharge) {
    EXPECT_EQ(96, ClassEvent(Event::SUB_CLASS_LOAD).size);
    EXPECT_EQ(328, CommonEvent(Event::SUB_START).size);
    EXPECT_EQ(sizeof(IIOPServerEvent), static_cast<size_t>(IIOPServerEvent(Event::SUB_START).size));
    EXPECT_EQ(sizeof(GenericEvent), static_cast<size_t>(GenericEvent(Event::TYPE_GENERIC_STOP, 1, 500).size));
    EXPECT_EQ(sizeof(RequestEvent), static_cast<size_t>(HttpEvent(Event::SUB_START).size));
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
