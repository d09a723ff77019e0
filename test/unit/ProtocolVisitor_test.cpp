#include "ProtocolVisitor.h"

#include "Bytes.h"
#include "EventDraft.h"
#include "FakeVm.h"
#include "class.h"
#include "decoder/RecordReader.h"

#include <chrono>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr char UNTOUCHED = '\x5A';
constexpr uint32_t LEVEL = 2;

using EventPtr = std::shared_ptr<EventDraft>;
using Make = EventPtr (*)();

// An event on the heap, with its texts.
template <typename E>
class Made : public std::shared_ptr<Draft<E>> {
public:
    template <typename... Args>
    explicit Made(Args... args) : std::shared_ptr<Draft<E>>(std::make_shared<Draft<E>>(args...)) {}
    E *operator->() const { return &***this; }
    void put(Text &field, std::string_view text) const { this->get()->put(field, text.data(), text.size()); }
    template <typename T>
    void putArray(Text &field, std::initializer_list<T> values) const {
        this->get()->put(field, values.begin(), values.size() * sizeof(T), alignof(T));
    }
};

// Every byte of the common fields differs, so that a swap of two bytes or two fields shows.
template <typename E, typename... Args>
Made<E> stamped(Args... args) {
    const Made<E> event(args...);
    event->threadId = 0x01020304;
    event->timeSec = 0x11121314;
    event->timeUSec = 0x15161718;
    event->cpuTime = 0x2122232425262728;
    return event;
}

template <typename E, typename... Args>
Made<E> nested(Args... args) {
    const Made<E> event = stamped<E>(args...);
    event->requestDepth = 0xA05; // goes out as its low byte
    return event;
}

// With @ for the prefix behind the type.
std::string record(std::string notation) {
    const size_t at = notation.find('@');
    return bytes(at == std::string::npos
                     ? notation
                     : notation.replace(at, 1, "01020304 05 11121314 15161718 2122232425262728"));
}

template <typename E, typename... Args>
EventPtr named(const char *request, const char *application, const char *url, Args... args) {
    auto event = nested<E>(args...);
    event.put(event->requestName, request);
    event.put(event->applicationName, application);
    event.put(event->url, url);
    event.put(event->userId, "me");
    return event;
}

template <typename E, Event::EventSubType SUB>
EventPtr plain() {
    return nested<E>(SUB);
}

template <Event::EventSubType SUB, int ACTION>
EventPtr jms() {
    auto event = nested<JMSEvent>(SUB);
    event->action = static_cast<Event::JMS_ACTION>(ACTION);
    event.put(event->server, "s");
    event.put(event->queue, "qq");
    event.put(event->selector, "x=1");
    return event;
}

template <int SUB>
EventPtr ejb() {
    auto event = nested<EJBEvent>(static_cast<Event::EventSubType>(SUB));
    event.putArray<int8_t>(event->data, {0, 8, 0, 2, 0x7F, 0x7F, 0, 0, 0, 0});
    event->count = 10;
    return event;
}

template <int SUB>
EventPtr xq() {
    auto event = nested<XQEvent>(static_cast<Event::EventSubType>(SUB));
    event.put(event->queueName, "Q");
    event.put(event->queueMgrName, "QM");
    event->action = 0x10B;
    return event;
}

// Null, empty, and one with a text.
template <typename E>
void putValues(const Made<E> &event) {
    EventDraft &draft = *event.get();
    draft.putTexts(event->ctxValues, 3);
    event->nCtxProps = 3;
    draft.put(draft.textAt(event->ctxValues, 1), "", 0);
    draft.put(draft.textAt(event->ctxValues, 2), "v", 1);
}

EventPtr generic(Event::EventType type) {
    auto event = nested<GenericEvent>(type, 0x1FE);
    putValues(event);
    return event;
}

EventPtr genericException() {
    auto event = stamped<GenericExceptionEvent>(9);
    putValues(event);
    return event;
}

template <int SUB, int32_t TOKEN_LENGTH>
EventPtr gps() {
    auto event = nested<GPSEvent>(static_cast<Event::EventSubType>(SUB));
    event.put(event->gateway, "gw");
    event.putArray<int8_t>(event->requestName, {1, 0, 0x7F, 4});
    event->tokenLength = TOKEN_LENGTH;
    return event;
}

template <Event::EventSubType SUB, int32_t ACTION>
EventPtr gpsXq() {
    auto event = nested<GPSXQEvent>(SUB);
    event.put(event->queueName, "Q");
    event.putArray<int8_t>(event->gpsToken, {0, 2});
    event->tokenLength = 2;
    event->action = ACTION;
    return event;
}

template <int32_t USE_DEFAULT>
EventPtr sampling() {
    auto event = stamped<SamplingEvent>();
    const int32_t levels[] = {0x01020304, -1, 0, 100};
    std::copy(levels, levels + 4, event->levels);
    event->useDefault = USE_DEFAULT;
    return event;
}

EventPtr dropped() {
    auto event = stamped<DroppedEvent>();
    event->otherStarts = 1;
    event->otherEnds = 2;
    event->methodStarts = 3;
    event->methodEnds = 4;
    event->sqlStarts = 5;
    event->sqlEnds = 0x06070809;
    return event;
}

EventPtr status(const char *message) {
    auto event = stamped<PSStatusEvent>();
    if (message != nullptr) {
        event.put(event->message, message);
    }
    return event;
}

EventPtr exception() {
    auto event = stamped<ExceptionEvent>();
    event.put(event->exception, "E");
    event.put(event->className, "C");
    event.put(event->stackTrace, "at x\n");
    return event;
}

template <Event::EventSubType SUB>
EventPtr gc() {
    auto event = stamped<GCEvent>(SUB);
    event->usedObjects = 1;
    event->usedObjectSpace = 0x0102030405060708;
    event->totalObjectSpace = UINT64_MAX;
    return event;
}

EventPtr gwx() {
    auto event = stamped<GWXEvent>();
    event.put(event->gatewayName, "g");
    event.put(event->serverName, "s");
    event.put(event->progName, "p");
    event->snapShotTime = 0x0102030405060708;
    event->count = 3;
    event->avgTimeTaken = -2;
    return event;
}

template <int32_t LENGTH>
EventPtr xqi() {
    auto event = stamped<XQIEvent>();
    event.put(event->mgrName, "m");
    event.put(event->queueName, "q");
    event->snapShotTime = 7;
    event.putArray<int8_t>(event->types, {1, -2});
    event.putArray<int32_t>(event->counts, {3, 0x01020304});
    event.putArray<int64_t>(event->avgTimes, {5, 0x0102030405060708});
    event->arrLength = LENGTH;
    return event;
}

// With its class, of so many methods, the second one without texts.
EventPtr classEvent(Event::EventSubType sub, int methods) {
    auto event = stamped<ClassEvent>(sub);
    auto *cls = new jclass_t;
    cls->name = strdup("a/B");
    cls->sequence = 0x0A0B0C0D;
    cls->id = 0x0E0F0001;
    cls->deleteWithEvent = 1;
    cls->methodCount = methods;
    cls->methods = new jmethod_t[2];
    cls->methods[0].id = 31;
    cls->methods[0].name = strdup("m");
    cls->methods[0].signature = strdup("()V");
    cls->methods[1].id = 32;
    event->classRecord = cls;
    return event;
}

template <Event::EventSubType SUB>
EventPtr method() {
    auto event = stamped<MethodEvent>(SUB);
    event->methodId = -2;
    return event;
}

// The fields get "a", "bb", "ccc" in the order told.
template <typename E, auto... FIELDS>
EventPtr texts() {
    auto event = nested<E>(Event::SUB_START);
    const char *values[] = {"a", "bb", "ccc"};
    const char **next = values;
    (event.put((**event.get()).*FIELDS, *next++), ...);
    return event;
}

constexpr auto START = Event::SUB_START;
constexpr auto END = Event::SUB_END;
constexpr auto FAILED = Event::SUB_FAILED;

struct Golden {
    const char *name;
    Make make;
    const char *expected;
};

const Golden RECORDS[] = {
    // Written out in full once; the others use @ for the prefix.
    {"http begin", [] { return named<HttpEvent>("r", "app", "/u", START); },
     "04 01020304 05 11121314 15161718 2122232425262728 01 0001'r' 0003'app' 0002'/u' 0002'me' 02 7F7F"},
    {"http begin, names equal the url", [] { return named<HttpEvent>("/u", "/u", "/u", START); },
     "04 @ 00 0000 0000 0002'/u' 0002'me' 02 7F7F"},
    {"http begin, only the application differs", [] { return named<HttpEvent>("/u", "/v", "/u", START); },
     "04 @ 01 0002'/u' 0002'/v' 0002'/u' 0002'me' 02 7F7F"},
    {"http begin, only the name differs", [] { return named<HttpEvent>("/", "/u", "/u", START); },
     "04 @ 01 0001'/' 0002'/u' 0002'/u' 0002'me' 02 7F7F"},
    {"http begin, nothing filled", plain<HttpEvent, START>, "04 @ 00 0000 0000 0000 0000 02 7F7F"},
    {"http end", [] { return named<HttpEvent>("r", "a", "u", END); }, "05 @ 02 7F7F"},
    {"http failed", [] { return named<HttpEvent>("r", "a", "u", FAILED); }, "32 @ 02 7F7F"},
    {"http, other subtype", [] { return named<HttpEvent>("r", "a", "u", Event::SUB_ALONE); }, "32 @ 02 7F7F"},
    {"do verb begin", [] { return named<DoVerbForEvent>("r", "a", "/u", START); },
     "70 @ 01 0001'r' 0001'a' 0002'/u' 02 7F7F"},
    {"do verb begin, names equal the url", [] { return named<DoVerbForEvent>("u", "u", "u", START); },
     "70 @ 00 0000 0000 0001'u' 02 7F7F"},
    {"do verb end", plain<DoVerbForEvent, END>, "71 @ 02 7F7F"},
    {"poll begin", [] { return named<PollForEvent>("r", "a", "/u", START); },
     "72 @ 01 0001'r' 0001'a' 0002'/u' 02 7F7F"},
    {"poll end", plain<PollForEvent, END>, "73 @ 02 7F7F"},
    {"trace request", [] { return named<TraceEvent>("req", "a", "u"); },
     "08 11121314 15161718 0003'req' 02 7F7F"},
    {"ejb begin", ejb<0>, "06 @ 0008 0002 7F7F 0000 0000 02 7F7F"},
    {"ejb end", ejb<1>, "07 @ 02 7F7F"},
    {"ejb, other subtype", ejb<2>, "00 @ 02 7F7F"},
    {"sql begin", texts<SQLEvent, &SQLEvent::dataSourceName, &SQLEvent::sql>,
     "09 @ 02 0001'a' 0002'bb' 7F7F"},
    {"sql end", plain<SQLEvent, END>, "0A @ 02 7F7F"},
    {"jndi begin", texts<JNDIEvent, &JNDIEvent::url, &JNDIEvent::lookup>, "21 @ 02 0001'a' 0002'bb' 7F7F"},
    {"jndi end", plain<JNDIEvent, END>, "22 @ 02 7F7F"},
    {"mail begin", texts<MailEvent, &MailEvent::url, &MailEvent::subject>, "23 @ 02 0001'a' 0002'bb' 7F7F"},
    {"mail end", plain<MailEvent, END>, "24 @ 02 7F7F"},
    {"jms 1 begin", jms<START, 1>, "19 @ 0001's' 0002'qq' 0003'x=1' 02 7F7F"},
    {"jms 1 end", jms<END, 1>, "1A @ 02 7F7F"},
    {"jms 2 begin", jms<START, 2>, "1B @ 0001's' 0002'qq' 0003'x=1' 02 7F7F"},
    {"jms 2 end", jms<END, 2>, "1C @ 02 7F7F"},
    {"jms 3 begin", jms<START, 3>, "1D @ 0001's' 0002'qq' 02 7F7F"},
    {"jms 3 end", jms<END, 3>, "1E @ 02 7F7F"},
    {"jms 4 begin", jms<START, 4>, "1F @ 0001's' 0002'qq' 02 7F7F"},
    {"jms 4 end", jms<END, 4>, "20 @ 02 7F7F"},
    {"jms 5 begin", jms<START, 5>, "00 @ 0001's' 0002'qq' 02 7F7F"},
    {"jms 0 end", jms<END, 0>, "00 @ 02 7F7F"},
    {"jca begin", texts<JCAEvent, &JCAEvent::eis>, "25 @ 0001'a' 02 7F7F"},
    {"jca end", plain<JCAEvent, END>, "26 @ 02 7F7F"},
    {"jdo begin", texts<JDOEvent, &JDOEvent::className, &JDOEvent::methodName, &JDOEvent::argumentString>,
     "93 @ 0001'a' 0002'bb' 0003'ccc' 02 7F7F"},
    {"jdo end", plain<JDOEvent, END>, "94 @ 02 7F7F"},
    {"xq begin", xq<0>, "6E @ 0001'Q' 0002'QM' 0B 02 7F7F"},
    {"xq end", xq<1>, "6F @ 0B 02 7F7F"},
    {"xq, other subtype", xq<2>, ""},
    {"iiop client begin", texts<CommonEvent, &CommonEvent::className, &CommonEvent::methodName>,
     "96 @ 0001'a' 00000000 0002'bb' 02 7F7F"},
    {"iiop client end", plain<CommonEvent, END>, "97 @ 02 7F7F"},
    {"iiop server begin", texts<IIOPServerEvent, &IIOPServerEvent::className, &IIOPServerEvent::methodName>,
     "98 @ 0001'a' 00000000 0002'bb' 02 7F7F"},
    {"iiop server end", plain<IIOPServerEvent, END>, "99 @ 02 7F7F"},
    {"ws client begin",
     texts<WSClientEvent, &WSClientEvent::applicationName, &WSClientEvent::requestName, &WSClientEvent::url>,
     "C7 @ 0001'a' 0002'bb' 0003'ccc' 02 7F7F"},
    {"ws client end", plain<WSClientEvent, END>, "C8 @ 02 7F7F"},
    {"ws provider begin",
     texts<WSProviderEvent, &WSProviderEvent::applicationName, &WSProviderEvent::requestName,
           &WSProviderEvent::url>,
     "C9 @ 0001'a' 0002'bb' 0003'ccc' 02 7F7F"},
    {"ws provider end", plain<WSProviderEvent, END>, "CA @ 02 7F7F"},
    {"ws fault begin",
     texts<WSFaultEvent, &WSFaultEvent::appName, &WSFaultEvent::faultCode, &WSFaultEvent::faultString>,
     "CB @ 0001'a' 0002'bb' 0003'ccc' 02 7F7F"},
    {"ws fault end", plain<WSFaultEvent, END>, "CC @ 02 7F7F"},
    {"generic start", [] { return generic(Event::TYPE_GENERIC_START); },
     "63 FE @ 03 0001' ' 0000 0001'v' 02 7F7F"},
    {"generic stop", [] { return generic(Event::TYPE_GENERIC_STOP); }, "64 FE @ 02 7F7F"},
    {"generic exception", genericException, "6C 09 01020304 03 0000 0000 0001'v' 02 7F7F"},
    {"gps invocation start", gps<0, 4>, "33 @ 0004 01007F04 02 7F7F"},
    {"gps invocation start, no token", gps<0, 0>, "33 @ 0000 02 7F7F"},
    {"gps invocation end", gps<1, 4>, "34 @ 02 7F7F"},
    {"gps receive start", gps<5, 2>, "35 @ 0002 0100 02 7F7F"},
    {"gps receive complete", gps<6, 4>, "36 @ 02 7F7F"},
    {"gps monitor invocation", gps<7, 1>, "9A @ 0002'gw' 0001 01 02 7F7F"},
    {"gps, other subtype", gps<8, 4>, "00 @ 02 7F7F"},
    {"gps xq 10 begin", gpsXq<START, 10>, "37 @ 0001'Q' 0002 0002 00 02 7F7F"},
    {"gps xq 11 end", gpsXq<END, 11>, "38 @ 02 7F7F"},
    {"gps xq 7 begin", gpsXq<START, 7>, "39 @ 0001'Q' 0002 0002 01 02 7F7F"},
    {"gps xq 13 begin", gpsXq<START, 13>, "39 @ 0001'Q' 0002 0002 00 02 7F7F"},
    {"gps xq 7 end", gpsXq<END, 7>, "3A @ 02 7F7F"},
    {"gps xq, other action", gpsXq<END, 8>, "00 @ 02 7F7F"},
    {"sampling", sampling<1>, "27 01020304 FFFFFFFF 00000000 00000064 01 7F7F"},
    {"sampling, not the default", sampling<2>, "27 01020304 FFFFFFFF 00000000 00000064 00 7F7F"},
    {"dropped", dropped, "0B 01020304 00000001 00000002 00000003 00000004 00000005 06070809 7F7F"},
    {"status", [] { return status("up"); }, "2C 0002'up' 7F7F"},
    {"status, no message", [] { return status(nullptr); }, "2C 0000 7F7F"},
    {"exception", exception, "2D 0001'E' 0001'C' 0000 0005'at x' 0A 7F7F"},
    {"gc start", gc<START>, "0D 01020304 11121314 15161718 7F7F"},
    {"gc end", gc<END>,
     "0E 01020304 11121314 15161718 0000000000000001 0102030405060708 FFFFFFFFFFFFFFFF 7F7F"},
    {"gateway figures", gwx, "28 0001'g' 0001's' 0001'p' 0102030405060708 00000003 FFFFFFFFFFFFFFFE 7F7F"},
    {"queue figures", xqi<2>,
     "29 0001'm' 0001'q' 0000000000000007 00000002 01 00000003 0000000000000005 FE 01020304 0102030405060708"
     "7F7F"},
    {"class load", [] { return classEvent(Event::SUB_CLASS_LOAD, 2); },
     "01 0A0B0C0D 0003'a/B' 00000002 0000001F 0001'm' 0003'()V' 00000020 0000 0000 7F7F"},
    {"class unload", [] { return classEvent(Event::SUB_CLASS_UNLOAD, 2); },
     "0C 0A0B0C0D 0E0F0001 00000002 0000001F 00000020 7F7F"},
    {"class unload, no methods", [] { return classEvent(Event::SUB_CLASS_UNLOAD, 0); },
     "0C 0A0B0C0D 0E0F0001 00000000 7F7F"},
    {"method entry", method<START>, "02 01020304 FFFFFFFE 11121314 15161718 2122232425262728 7F7F"},
    {"method exit", method<END>, "03 01020304 FFFFFFFE 11121314 15161718 2122232425262728 7F7F"},
    {"queue figures, none", xqi<0>, "29 0001'm' 0001'q' 0000000000000007 00000000 7F7F"},
    {"queue figures, negative count", xqi<-3>, "29 0001'm' 0001'q' 0000000000000007 00000000 7F7F"},
};

// An area with guard bytes behind its limit, and a visitor over it.
struct Area {
    explicit Area(size_t room, size_t guard = 64)
        : memory(room + guard, UNTOUCHED),
          visitor(memory.data(), memory.data(), memory.data() + room, nullptr) {}
    size_t used() const { return static_cast<size_t>(visitor.getCursor() - visitor.getStart()); }
    std::string written() const { return memory.substr(0, used()); }

    std::string memory;
    ProtocolVisitor visitor;
};

// How far the receiver's decoder reads a record; a number without a layout stands for itself.
size_t readableTo(const std::string &bytes) {
    ps::RecordReader reader(bytes.data(), bytes.data() + bytes.size(), bytes.size());
    ps::Record record;
    uint64_t type = 0;
    if (!reader.readType(1, type) || type == 0) {
        return bytes.size();
    }
    record.spec = ps::findSpec(static_cast<uint8_t>(type));
    return record.spec != nullptr && reader.readFields(record) ? reader.consumed() : 0;
}

class ProtocolVisitorTest : public ::testing::Test {
protected:
    ProtocolVisitorTest() : oldLevel(probeLevel) { probeLevel = LEVEL; }
    ~ProtocolVisitorTest() override { probeLevel = oldLevel; }

    FakeVm vm;
    uint32_t oldLevel;
};

TEST_F(ProtocolVisitorTest, EachRecordHasItsBytes) {
    for (const Golden &golden : RECORDS) {
        SCOPED_TRACE(golden.name);
        Area area(500);
        EXPECT_TRUE(golden.make()->event().addToBuffer(&area.visitor));
        EXPECT_FALSE(area.visitor.hasOverflowed());
        EXPECT_EQ(record(golden.expected), area.written());
        EXPECT_EQ(readableTo(area.written()), area.used());
    }
}

TEST_F(ProtocolVisitorTest, TooSmallAnAreaIsNeverLeftAndItsNeedIsCounted) {
    for (const Golden &golden : RECORDS) {
        SCOPED_TRACE(golden.name);
        const std::string whole = record(golden.expected);
        const EventPtr event = golden.make();
        for (size_t room = 0; room < whole.size(); ++room) {
            Area area(room, whole.size());
            event->event().addToBuffer(&area.visitor);
            ASSERT_TRUE(area.visitor.hasOverflowed()) << room;
            ASSERT_EQ(whole.size(), area.used()) << room;
            // The record as far as it was stored, and nothing behind that.
            const size_t stored = area.memory.find_last_not_of(UNTOUCHED) + 1;
            ASSERT_LE(stored, room);
            ASSERT_EQ(whole.substr(0, stored), area.memory.substr(0, stored)) << room;
        }
        // Rolled back, it comes out the same in the next packet.
        Area area(whole.size());
        area.visitor.setCursor(area.visitor.getStart() + 1);
        event->event().addToBuffer(&area.visitor);
        ASSERT_EQ(!whole.empty(), area.visitor.hasOverflowed());
        area.visitor.setCursor(area.visitor.getStart());
        area.visitor.clearOverflow();
        event->event().addToBuffer(&area.visitor);
        ASSERT_EQ(whole, area.written());
        ASSERT_FALSE(area.visitor.hasOverflowed());
    }
}

TEST_F(ProtocolVisitorTest, BeyondSixteenBitsAllBytesAreKeptAndTheLowPartOfTheirLength) {
    const struct {
        size_t length;
        const char *prefix;
    } cases[] = {{0, "0000"},     {1, "0001"},     {255, "00FF"},  {256, "0100"},
                 {65535, "FFFF"}, {65536, "0000"}, {65539, "0003"}};
    for (const auto &c : cases) {
        const std::string value(c.length, 'x');
        Area text(70000), token(70000);
        text.visitor.addString(value.c_str());
        token.visitor.addBlob(value.data(), static_cast<int64_t>(c.length));
        EXPECT_EQ(bytes(c.prefix) + value, text.written()) << c.length;
        EXPECT_EQ(bytes(c.prefix) + value, token.written()) << c.length;
    }
    Area none(10);
    none.visitor.addBlob("token", -70000);
    none.visitor.addBlob(nullptr, 5);
    EXPECT_EQ(bytes("0000 0000"), none.written());
}

TEST_F(ProtocolVisitorTest, CountOfContextValuesIsNotCapped) {
    Draft<GenericEvent> event(Event::TYPE_GENERIC_START, 1);
    event.putTexts(event->ctxValues, 300);
    event->nCtxProps = 300;
    Area area(2000);
    event->addToBuffer(&area.visitor);
    EXPECT_EQ(static_cast<char>(44), area.memory[23]);
    EXPECT_EQ(24u + 300 * 3 + 3, area.used());
}

// ---------------------------------------------------------------- initial block and packets

TEST_F(ProtocolVisitorTest, InitRecordCarriesTheLowHalfOfTheMilliseconds) {
    const auto lowMillis = [] {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
    };
    Area area(17);
    const uint32_t before = lowMillis();
    area.visitor.addInitRecord();
    const uint32_t after = lowMillis();
    const std::string record = area.written();
    ASSERT_FALSE(area.visitor.hasOverflowed());
    EXPECT_NE(1, record[5]); // the number of another platform
    EXPECT_EQ(bytes("000007D0 64") + record[5] + bytes("01 00000000") + record.substr(11, 4) + bytes("7F7F"),
              record);
    uint32_t sent = 0;
    for (size_t i = 11; i < 15; ++i) {
        sent = sent << 8 | static_cast<unsigned char>(record[i]);
    }
    EXPECT_LE(sent - before, after - before);
}

TEST_F(ProtocolVisitorTest, ServerInitRecordWithNothingConfigured) {
    const struct {
        const char *version;
        const char *numbers;
    } cases[] = {{"8.5.23", "08 05 17"},
                 {"6.300.1", "06 2C 01"},
                 {"7.1", "07 01 00"},
                 {"beta", "00 00 00"},
                 {"", "00 00 00"}};
    const ServerFacts old = serverFacts;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.version);
        snprintf(serverFacts.appServerVersion, sizeof(serverFacts.appServerVersion), "%s", c.version);
        snprintf(serverFacts.componentId, sizeof(serverFacts.componentId), "agent-7");
        serverFacts.adminServerPort = 8880;
        Area area(200);
        area.visitor.addJ2EEInitRecord(nullptr);
        EXPECT_EQ(bytes(std::string("65 C8") + c.numbers +
                        "0007'agent-7' 0011'<NO CLUSTER NAME>' 0000 0000 000022B0 7F7F"),
                  area.written());
    }
    serverFacts = old;
}

// ---------------------------------------------------------------- events that write themselves

class CachedNameEvent : public CommonEvent {
public:
    using CommonEvent::CommonEvent;
    bool isNameCachedByType() override { return true; }
    bool addExtraFields(ProtocolVisitor *visitor) override {
        visitor->addU16(0xEEEE);
        return true;
    }
};

TEST_F(ProtocolVisitorTest, CachedNameGoesOutOnceUntilTheCacheIsCleared) {
    const std::string withName = record("96 @ 0000 0000002D 0001'm' EEEE 02 7F7F");
    const std::string withoutName = record("96 @ 0000 0000002D 0000 EEEE 02 7F7F");
    const auto write = [](size_t room = 100) {
        auto event = nested<CachedNameEvent>(START);
        event.put(event->methodName, "m");
        Area area(room);
        event->addToBuffer(&area.visitor);
        return area.visitor.hasOverflowed() ? "too long" : area.written();
    };
    ProtocolVisitor::clearCommonNameCache();
    EXPECT_EQ(withName, write());
    EXPECT_EQ(withoutName, write());
    ProtocolVisitor::clearCommonNameCache();
    EXPECT_EQ(withName, write());
    ProtocolVisitor::clearCommonNameCache();
    EXPECT_EQ("too long", write(withName.size() - 1));
    EXPECT_EQ(withName, write());
    ProtocolVisitor::clearCommonNameCache();
}

} // namespace
