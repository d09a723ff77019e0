#include "EventFamilies.h"
#include "families_test_support.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

using namespace families_test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// ---------------------------------------------------------------- families and rules

// When a family's begins and ends are recorded.
enum Rule { NESTED, PLAIN, ANY, DRIVER, DATA_OBJECT, COUNTED };

struct Situation {
    const char *name;
    const char *words; // F is the family's name
    uint32_t level;
    bool suppressNested;
    // By rule: b and e are begin and end with their depth, then = the last depth. One alone: of all rules.
    std::vector<const char *> expected;
};

constexpr char TWICE[] = "b2 b3 e3 e2 =0";
constexpr char OUTSIDE[] = "b1 b2 e2 e1 =0";

const Situation situations[] = {
    {"outside a request", "+F -F", 2, false, {"=0", "=0", "b1 e1 =0", "b1 e1 =0", "=0", "b1 e1 =0"}},
    {"inside a request", "+http +F -F -http", 2, false, {"b2 e2 =0"}},
    {"in itself inside", "+http +F +F -F -F -http", 2, false, {TWICE}},
    {"in itself outside", "+F +F -F -F", 2, false, {"=0", "=0", OUTSIDE, OUTSIDE, "b2 e2 =0", OUTSIDE}},
    {"ends without begins", "-F -F", 2, false, {"=0", "=0", "e0 e0 =0", "e0 e0 =0", "=0", "e0 e-1 =-2"}},
    {"too many ends",
     "+http -F -F -http",
     2,
     false,
     {"e1 =0", "e1 =0", "e1 e0 =0", "e1 e0 =0", "=0", "e1 e0 =-1"}},
    {"begins left open", "+http +F +F -http -http", 2, false, {"b2 b3 =1"}},
    {"suppressed inside", "+http +F +F -F -F -http", 1, true, {"=0", TWICE, "=0", TWICE, "=0", TWICE}},
    {"suppressed in itself", "+F +F -F -F", 1, true, {"=0", "=0", "b1 e1 =0", OUTSIDE, "=0", OUTSIDE}},
    {"suppression needs level 1", "+http +F -F -http", 2, true, {"b2 e2 =0"}},
    {"suppression needs the switch", "+http +F -F -http", 1, false, {"b2 e2 =0"}},
};

struct Family {
    const char *name;
    Rule rule;
    const char *clocks; // of begin and end: w takes the wall clock first, c the CPU clock
    const char *begin;  // the records, # for depth and level
    const char *end;
    size_t weight;
    size_t endWeight = 0; // where it differs
};

const Family families[] = {
    {"sql", ANY, "wc", "SQLEvent.begin d# L# dataSourceName=ds sql=select 1", "SQLEvent.end d# L#",
     sizeof(SQLEvent) + 1000},
    {"wrapper", ANY, "wc", "SQLEvent.begin d# L# dataSourceName=ds2 sql=select 2", "SQLEvent.end d# L#",
     sizeof(SQLEvent) + 1000},
    {"driver", DRIVER, "wc", "SQLEvent.begin d# L# dataSourceName=ds3 sql=select 3", "SQLEvent.end d# L#",
     sizeof(SQLEvent) + 1000},
    {"jca", NESTED, "wc", "JCAEvent.begin d# eis=product L#", "JCAEvent.end d# L#", sizeof(JCAEvent) + 7,
     sizeof(JCAEvent) + 4},
    {"jndi", NESTED, "wc", "JNDIEvent.begin d# L# url=ldap://names lookup=java:ds", "JNDIEvent.end d# L#",
     sizeof(JNDIEvent) + 19},
    {"mail", PLAIN, "wc", "MailEvent.begin d# L# url=smtp://post subject=hello", "MailEvent.end d# L#",
     sizeof(MailEvent) + 16},
    {"jdo", DATA_OBJECT, "wc", "JDOEvent.begin d# className=Order methodName=find argumentString=id 7 L#",
     "JDOEvent.end d# L#", sizeof(JDOEvent) + 13},
    {"jms1", NESTED, "wc", "JMSEvent.1.begin d# server=tcp://broker queue=orders selector=prio > 3 L#",
     "JMSEvent.1.end d# L#", sizeof(JMSEvent) + 18},
    {"jms2", NESTED, "wc", "JMSEvent.2.begin d# server=tcp://broker queue=orders selector=prio > 3 L#",
     "JMSEvent.2.end d# L#", sizeof(JMSEvent) + 18},
    {"jms3", NESTED, "wc", "JMSEvent.3.begin d# server=tcp://broker queue=orders L#", "JMSEvent.3.end d# L#",
     sizeof(JMSEvent) + 18},
    {"jms4", NESTED, "wc", "JMSEvent.4.begin d# server=tcp://broker queue=orders L#", "JMSEvent.4.end d# L#",
     sizeof(JMSEvent) + 18},
    {"jms9", NESTED, "wc", "JMSEvent.3.begin d# server=tcp://broker queue=orders L#", "JMSEvent.3.end d# L#",
     sizeof(JMSEvent) + 18},
    {"jms-1", NESTED, "wc", "JMSEvent.3.begin d# server=tcp://broker queue=orders L#", "JMSEvent.3.end d# L#",
     sizeof(JMSEvent) + 18},
    {"xq", PLAIN, "wc", "XQEvent.begin d# queueName=orders queueMgrName=manager action=7 L#",
     "XQEvent.end d# action=7 L#", sizeof(XQEvent) + 13},
    {"ejb", ANY, "wc", "EJBEvent.begin d# bean=Cart method=add application=shop L#", "EJBEvent.end d# L#",
     sizeof(EJBEvent) + 100},
    {"generic", ANY, "ww", R"(GenericEvent.begin id=35 d# ctxValues=["a"," ",""," "] L#)",
     "GenericEvent.end id=35 d# L#", sizeof(GenericEvent) + 1, sizeof(GenericEvent)},
    {"iiopClient", COUNTED, "ww", "CommonEvent.begin d# className=Stub nameType=0 methodName=call L#",
     "CommonEvent.end d# L#", 328},
    {"iiopServer", COUNTED, "ww",
     "IIOPServerEvent.begin d# className=Skeleton nameType=0 methodName=serve L#",
     "IIOPServerEvent.end d# L#", sizeof(IIOPServerEvent)},
    {"wsClient", COUNTED, "ww",
     "WSClientEvent.begin d# applicationName=shop requestName=pay url=http://bank L#",
     "WSClientEvent.end d# L#", sizeof(WSClientEvent)},
    {"wsProvider", COUNTED, "ww",
     "WSProviderEvent.begin d# applicationName=bank requestName=book url=http://self L#",
     "WSProviderEvent.end d# L#", sizeof(WSProviderEvent)},
    {"invoke", COUNTED, "wc", "GPSEvent.invoke.begin d# token=0100FF L#", "GPSEvent.invoke.end d# L#",
     sizeof(RequestEvent) + 100},
    {"monitor", COUNTED, "cc", "GPSEvent.txmon.begin d# gateway=gate token= L#", "GPSEvent.invoke.end d# L#",
     sizeof(RequestEvent) + 100},
    {"receive", COUNTED, "ww", "GPSEvent.receive.begin d# token=0100FF L#", "GPSEvent.receive.end d# L#",
     sizeof(GPSEvent)},
    {"receive2", COUNTED, "cc", "GPSEvent.receive.begin d# token=74657874 L#", "GPSEvent.receive.end d# L#",
     sizeof(RequestEvent) + 100},
    {"heap", PLAIN, "wc",
     "HeapEvent.begin d# allocatingMethodId=7 instantiatedClassName=Item allocatingLineNumber=0 L#",
     "HeapEvent.end d# L#", sizeof(HeapEvent) + 4},
    {"acquisition", PLAIN, "wc", "LockAcquisitionEvent.begin d# lockingMethodId=7 lockedClassName=Cart L#",
     "LockAcquisitionEvent.end d# L#", sizeof(LockAcquisitionEvent) + 4},
    {"contention", PLAIN, "ww",
     "LockContentionEvent.begin d# lockingMethodId=7 lockedClassName=Cart owningRequestType=3 "
     "owningRequestName=pay owningApplicationName=bank owningMethodId=8 L#",
     "LockContentionEvent.end d# L#", sizeof(LockContentionEvent) + 7},
    {"release", PLAIN, "wc", "LockReleaseEvent.begin d# lockingMethodId=7 lockedClassName=Cart L#",
     "LockReleaseEvent.end d# L#", sizeof(LockReleaseEvent) + 4},
    {"page", COUNTED, "wc",
     "PortalPageEvent.begin d# requestName=home applicationName=shop url=http://p userId=ann L#",
     "PortalPageEvent.end d# L#", sizeof(RequestEvent) + 100},
    {"portlet", COUNTED, "wc",
     "PortalPortletEvent.begin d# requestName=news applicationName=News url=http://n userId=bob L#",
     "PortalPortletEvent.end d# L#", sizeof(RequestEvent) + 100},
    {"authentication", COUNTED, "ww", "PortalAuthenticationEvent.begin d# methodId=9 L#",
     "PortalAuthenticationEvent.end d# L#", sizeof(PortalPhaseEvent)},
    {"authorization", COUNTED, "ww", "PortalAuthorizationEvent.begin d# methodId=9 L#",
     "PortalAuthorizationEvent.end d# L#", sizeof(PortalPhaseEvent)},
    {"model", COUNTED, "ww", "PortalModelBuildingEvent.begin d# methodId=9 L#",
     "PortalModelBuildingEvent.end d# L#", sizeof(PortalPhaseEvent)},
    {"loading", COUNTED, "ww", "PortalPageLoadingEvent.begin d# methodId=9 L#",
     "PortalPageLoadingEvent.end d# L#", sizeof(PortalPhaseEvent)},
    {"rendering", COUNTED, "ww", "PortalPageRenderingEvent.begin d# methodId=9 L#",
     "PortalPageRenderingEvent.end d# L#", sizeof(PortalPhaseEvent)},
    {"action", COUNTED, "ww", "PortalActionEvent.begin d# methodId=9 L#", "PortalActionEvent.end d# L#",
     sizeof(PortalPhaseEvent)},
    {"gateway", COUNTED, "ww", "PortalGatewayServletEvent.begin d# pageName=PageNameUnknown L#",
     "PortalGatewayServletEvent.end d# pageName=last L#", sizeof(PortalGatewayServletEvent)},
};

std::string forFamily(std::string words, const Family &family) {
    for (size_t at = words.find('F'); at != std::string::npos; at = words.find('F', at)) {
        words.replace(at, 1, family.name);
    }
    return words;
}

// "b2 e2 " for the family's records; a record that is none of them and not of HTTP stands in full.
std::string patternOf(const std::vector<Seen> &seen, const Family &family) {
    std::string pattern;
    for (const Seen &each : seen) {
        if (each.text.rfind("HttpEvent", 0) == 0) {
            continue;
        }
        const std::string depth = std::to_string(each.depth);
        pattern += each.shape == family.begin ? "b" + depth
                   : each.shape == family.end ? "e" + depth
                                              : each.text;
        pattern += " ";
    }
    return pattern;
}

void expectWeights(const std::vector<Seen> &seen, const Family &family) {
    const size_t endWeight = family.endWeight != 0 ? family.endWeight : family.weight;
    for (const Seen &each : seen) {
        if (each.shape == family.begin || each.shape == family.end) {
            EXPECT_EQ(each.weight, static_cast<int>(each.shape == family.begin ? family.weight : endWeight));
        }
    }
}

void expectOneThreadForward(const std::vector<Seen> &seen, uint32_t threadId) {
    for (size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i].threadId, threadId);
        if (i > 0) {
            EXPECT_GE(seen[i].cpuTime, seen[i - 1].cpuTime);
            EXPECT_GE(seen[i].wallMillis, seen[i - 1].wallMillis);
        }
    }
}

TEST_F(FamiliesTest, EveryFamilyKeepsItsRuleInEverySituation) {
    for (const Family &family : families) {
        for (const Situation &situation : situations) {
            SCOPED_TRACE(std::string(family.name) + " " + situation.name);
            configure(situation.level, situation.suppressNested);
            onThread([&](Worker &worker) {
                worker.run(forFamily(situation.words, family));
                const std::vector<Seen> seen = worker.take();
                const ThreadData *td = worker.data();
                EXPECT_EQ(patternOf(seen, family) + "=" + std::to_string(td->requestDepth),
                          situation.expected[situation.expected.size() > 1 ? family.rule : 0]);
                EXPECT_EQ(worker.callInt("getNumPendingRequests"), td->requestDepth);
                EXPECT_EQ(td->suppressedNestedCount, 0);
                expectWeights(seen, family);
                expectOneThreadForward(seen, td->threadId);
            });
        }
    }
}

std::string clockOrder(const std::vector<Seen> &seen) {
    std::string order;
    for (const Seen &each : seen) {
        order += each.wallMillis <= each.cpuTime / 1000000 ? 'w' : 'c';
    }
    return order;
}

TEST_F(FamiliesTest, ClocksAreReadInTheOrderThatKeepsTheMeasuringOutside) {
    const SlowCpuClock clock;
    for (const Family &family : families) {
        SCOPED_TRACE(family.name);
        onThread([&](Worker &worker) {
            worker.data()->requestDepth = 1;
            worker.run(forFamily("+F -F", family));
            EXPECT_EQ(clockOrder(worker.take()), family.clocks);
        });
    }
    onThread([&](Worker &worker) {
        worker.run("+http -http !http");
        EXPECT_EQ(clockOrder(worker.take()), "wcc");
        worker.run("+http +xq -xqToken");
        EXPECT_EQ(clockOrder(worker.take()), "wwccc");
    });
}

TEST_F(FamiliesTest, CpuTimeRunsBackOnlyWhereARequestStarts) {
    const SlowCpuClock clock;
    onThread([&](Worker &worker) {
        const struct {
            const char *words;
            jlong now, recorded;
        } steps[] = {{"+sql", 5000, 5000}, {"-sql", 100, 5000}, {"+http", 100, 100}, {"+jca", 90, 100},
                     {"-jca", 300, 300},   {"+http", 200, 200}, {"-http", 150, 200}};
        for (const auto &step : steps) {
            clock.fixed = step.now;
            worker.run(step.words);
            const std::vector<Seen> seen = worker.take();
            ASSERT_THAT(seen, SizeIs(1)) << step.words;
            EXPECT_EQ(seen[0].cpuTime, step.recorded) << step.words;
        }
    });
}

TEST_F(FamiliesTest, BeanEventsShareTheirClocksExactlyWithinOneMillisecond) {
    const SlowCpuClock clock;
    clock.fixed = 1000;
    onThread([&](Worker &worker) {
        Seen last{};
        bool shared = false;
        bool apart = false;
        for (int i = 0; i < 100000 && !(shared && apart); ++i) {
            clock.fixed = clock.fixed + 7;
            worker.run(i % 2 == 0 ? "+ejb" : "-ejb");
            const Seen now = worker.take().at(0);
            EXPECT_EQ(now.cpuTime == last.cpuTime, now.wallMillis == last.wallMillis);
            (now.cpuTime == last.cpuTime ? shared : apart) = i > 0;
            last = now;
        }
        EXPECT_TRUE(shared && apart);
    });
}

// ---------------------------------------------------------------- HTTP

std::string httpPattern(const std::vector<Seen> &seen) {
    std::string pattern;
    for (const Seen &each : seen) {
        const std::string kind = each.text.substr(0, each.text.find(' '));
        pattern += (kind == "HttpEvent.begin" ? "b"
                    : kind == "HttpEvent.end" ? "e"
                                              : "f") +
                   std::to_string(each.depth) + " ";
    }
    return pattern;
}

TEST_F(FamiliesTest, HttpRequestsEndAsTheyShould) {
    const struct {
        const char *words;
        bool suppressNested; // at level 1
        const char *expected;
    } cases[] = {
        {"+http -http", false, "b1 e1 =0"},
        {"+http !http", false, "b1 f1 =0"},
        {"+http +http -http -http", false, "b1 b2 e2 e1 =0"},
        {"-http", false, "e1 =0"},
        {"!http", false, "f1 =0"},
        {"-cancel", false, "e1 =0"},
        {"+http +http +http -cancel", false, "b1 b2 b3 e1 =0"},
        {"+http +http +http !cancel", false, "b1 b2 b3 f1 =0"},
        {"+http +http +http -cancelled", false, "b1 b2 b3 e3 =2"},
        {"+http +http +http -http -http -http", true, "b1 e1 =0"},
        {"+http +http -http +http -http -http", true, "b1 e1 =0"},
        {"+http +http !http -http", true, "b1 f1 e1 =0"},
        {"+http +http -http -cancel", true, "b1 e1 =0"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.words);
        configure(c.suppressNested ? 1 : 2, c.suppressNested);
        onThread([&](Worker &worker) {
            worker.run(c.words);
            const std::vector<Seen> seen = worker.take();
            EXPECT_EQ(httpPattern(seen) + "=" + std::to_string(worker.data()->requestDepth), c.expected);
            for (const Seen &each : seen) {
                EXPECT_EQ(each.weight, static_cast<int>(sizeof(RequestEvent)) + averageUrlLength);
            }
            expectOneThreadForward(seen, worker.data()->threadId);
        });
    }
    configure(3, false);
    onThread([](Worker &worker) {
        worker.run("+http !http");
        EXPECT_THAT(textsOf(worker.take()),
                    ElementsAre("HttpEvent.begin d1 namesFlag=1 requestName=cart applicationName=shop "
                                "url=http://host/cart userId=ann L3",
                                "HttpEvent.failed d1 L3"));
    });
}

// ---------------------------------------------------------------- calls that stand alone, mixed calls

TEST_F(FamiliesTest, CallsGiveTheRecordsTheyShould) {
    const std::string drop =
        "DroppedEvent otherStarts=0 otherEnds=0 methodStarts=0 methodEnds=0 sqlStarts=0 sqlEnds=0";
    std::string manyValues = "\" \""; // they are counted in one byte
    for (int i = 1; i < 255; ++i) {
        manyValues += ",\" \"";
    }
    const struct {
        const char *words;
        std::vector<std::string> records;
    } cases[] = {
        {"exception",
         {"ExceptionEvent exception=text className=Thrower methodName=run stackTrace=at Thrower.run"}},
        {"gwx",
         {"GWXEvent gatewayName=gate serverName=server progName=program snapShotTime=8589934592 "
          "count=4294967295 avgTimeTaken=12"}},
        {"dropped dropped", {drop, drop}},
        {"trace", {"TraceEvent requestName=system_trace L2"}},
        {"xqi",
         {"XQIEvent mgrName=manager queueName=orders snapShotTime=77 arrLength=2 types=[3,255] counts=[4,5] "
          "avgTimes=[6,7]"}},
        {"xqiLonger",
         {"XQIEvent mgrName=manager queueName=orders snapShotTime=77 arrLength=1 types=[3] counts=[4] "
          "avgTimes=[6]"}},
        {"xqiOtherLength xqiShortCounts xqiShortTimes xqiEmpty xqiNegative xqiNull xqiNullCounts "
         "xqiNullTimes",
         {}},
        {"+genericShort", {R"(GenericEvent.begin id=1 d1 ctxValues=["x"] L2)"}},
        {"+genericNegative", {"GenericEvent.begin id=1 d1 ctxValues=[] L2"}},
        {"+genericNone +genericNull", {}},
        {"+genericMany", {"GenericEvent.begin id=1 d1 ctxValues=[" + manyValues + "] L2"}},
        {"genericException", {R"(GenericExceptionEvent id=35 ctxValues=["a","","",""] L2)"}},
        {"genericExceptionNull", {"GenericExceptionEvent id=2 ctxValues=[] L2"}},
        {"wsClientFault",
         {"WSFaultEvent.begin d1 appName=shop faultCode=404 faultString=not found L2",
          "WSFaultEvent.end d1 L2"}},
        {"wsProviderFault",
         {"WSFaultEvent.begin d1 appName=bank faultCode=500 faultString=no money L2",
          "WSFaultEvent.end d1 L2"}},
        {"-xqToken", {}},
        {"+ejb +xq -xqToken -ejb",
         {"EJBEvent.begin d1 bean=Cart method=add application=shop L2",
          "XQEvent.begin d2 queueName=orders queueMgrName=manager action=7 L2", "XQEvent.end d2 action=7 L2",
          "GPSXQEvent.7.begin d2 queueName=orders gpsToken=01FE03 actionIs7=1 L2", "GPSXQEvent.7.end d2 L2",
          "EJBEvent.end d1 L2"}},
        {"+ejb +xq -xqNoToken -ejb",
         {"EJBEvent.begin d1 bean=Cart method=add application=shop L2",
          "XQEvent.begin d2 queueName=orders queueMgrName=manager action=7 L2", "XQEvent.end d2 action=10 L2",
          "GPSXQEvent.10.begin d2 queueName=orders gpsToken= actionIs7=0 L2", "GPSXQEvent.10.end d2 L2",
          "EJBEvent.end d1 L2"}},
        // The driver is silent where a wrapper has reported the statement.
        {"+sql +driver -driver -sql",
         {"SQLEvent.begin d1 L2 dataSourceName=ds sql=select 1", "SQLEvent.end d1 L2"}},
        {"+driver +wrapper +driver -driver -wrapper -driver",
         {"SQLEvent.begin d1 L2 dataSourceName=ds3 sql=select 3",
          "SQLEvent.begin d2 L2 dataSourceName=ds2 sql=select 2", "SQLEvent.end d2 L2",
          "SQLEvent.end d1 L2"}},
        // A data object's call in another counts from the level that it opened.
        {"+jdo +jca -jca -jdo", {"JCAEvent.begin d2 eis=product L2", "JCAEvent.end d2 L2"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.words);
        onThread([&](Worker &worker) {
            worker.run(c.words);
            EXPECT_EQ(textsOf(worker.take()), c.records);
        });
    }
}

// Texts that no weight was made for are charged in full, so that the governor sees them.
TEST_F(FamiliesTest, LongTextsAreChargedForWhatTheyHold) {
    onThread([](Worker &worker) {
        JNIEnv *env = worker.env;
        const LocalRef<jclass> strings(env, env->FindClass("java/lang/String"));
        const LocalRef<jstring> text(env, env->NewStringUTF(std::string(40000, 'x').c_str()));
        const LocalRef<jobjectArray> values(env, env->NewObjectArray(2, strings.get(), text.get()));
        const jstring none = nullptr;
        worker.data()->requestDepth = 1;
        exceptionGenericEvent(env, 1, 2, values.get());
        families::JDORequest::begin(env, text.get(), text.get(), text.get());
        families::JCARequest::begin(env, text.get());
        families::Exception::append(env, none, none, none, text.get());
        beginSQLRequest(env, nullptr, nullptr, text.get());
        worker.run("-xqLongest");
        const size_t usual = 2048;
        const size_t expected[] = {sizeof(GenericExceptionEvent) + 80000,
                                   sizeof(JDOEvent) + 120000,
                                   sizeof(JCAEvent) + 40000,
                                   sizeof(ExceptionEvent) + 40000 - usual,
                                   sizeof(SQLEvent) + 1000 + 40000 - usual,
                                   sizeof(XQEvent) + 13,
                                   sizeof(GPSXQEvent) + 65535 + 6 - usual,
                                   sizeof(GPSXQEvent)};
        const uint32_t queued = worker.data()->bytesQueued();
        const std::vector<Seen> seen = worker.take();
        ASSERT_THAT(seen, SizeIs(std::size(expected)));
        size_t sum = 0;
        for (size_t i = 0; i < seen.size(); ++i) {
            EXPECT_EQ(seen[i].weight, static_cast<int>(expected[i])) << i;
            sum += expected[i];
        }
        EXPECT_EQ(queued, sum);
    });
}

TEST_F(FamiliesTest, TokensGoOutWholeOrNotAtAll) {
    onThread([](Worker &worker) {
        worker.run("+ejb +xq -xqLongest +xq -xqTooLong");
        const std::vector<Seen> seen = worker.take();
        ASSERT_THAT(seen, SizeIs(9));
        const std::string longest =
            "GPSXQEvent.7.begin d2 queueName=orders gpsToken=" + std::string(size_t{2} * 65535, '0') +
            " actionIs7=0 L2";
        EXPECT_TRUE(seen[3].text == longest) << seen[3].text.size();
        EXPECT_EQ(seen[7].text, "GPSXQEvent.10.begin d2 queueName=orders gpsToken= actionIs7=0 L2");
    });
}

// ---------------------------------------------------------------- lengths

// A Java string made from so many 'a', then `middle`, then so many 'b'.
std::string longText(size_t before, const char *middle, size_t after) {
    return std::string(before, 'a') + middle + std::string(after, 'b');
}

// Statements are cut before a broken character, names at the byte.
TEST_F(FamiliesTest, TextsAreCutAtTheirLimit) {
    constexpr char TWO[] = "\xC3\xA9";
    constexpr char THREE[] = "\xE2\x82\xAC";
    constexpr char BROKEN[] = "\xEF\xBF\xBD"; // as it is shown
    const struct {
        Relaxed<int32_t> &limitOf;
        int32_t limit;
        std::string text, kept;
    } cases[] = {
        {sqlLimit, 5000, longText(6000, "", 0), longText(4999, "", 0)},
        {sqlLimit, 5000, longText(4999, "", 0), longText(4999, "", 0)},
        {sqlLimit, 5000, longText(4998, TWO, 100), longText(4998, "", 0)},
        {sqlLimit, 5000, longText(4997, TWO, 100), longText(4997, TWO, 0)},
        {sqlLimit, 5000, longText(4997, THREE, 0), longText(4997, "", 0)},
        {sqlLimit, 5000, longText(4996, THREE, 9), longText(4996, THREE, 0)},
        {sqlLimit, 3, THREE, ""},
        {sqlLimit, 1, "select", ""},
        {sqlLimit, 0, "select", ""},
        {sqlLimit, -7, "select", ""},
        {sqlLimit, INT32_MAX, longText(10000000, "", 0), longText(65535, "", 0)},
        {sqlLimit, INT32_MAX, longText(65534, TWO, 1), longText(65534, "", 0)},
        {urlLimit, 300, longText(300, "", 0), longText(299, "", 0)},
        {urlLimit, 300, longText(298, TWO, 5), longText(298, BROKEN, 0)},
        {urlLimit, 300, longText(299, "", 0), longText(299, "", 0)},
        {urlLimit, INT32_MAX, longText(70000, "", 0), longText(65535, "", 0)},
        {urlLimit, 0, "name", ""},
    };
    onThread([&](Worker &worker) {
        for (const auto &c : cases) {
            c.limitOf = c.limit;
            const LocalRef<jstring> text(worker.env, worker.env->NewStringUTF(c.text.c_str()));
            if (&c.limitOf == &sqlLimit) {
                beginSQLRequest(worker.env, nullptr, text.get(), text.get());
            } else {
                Draft<HttpEvent> event(Event::SUB_START);
                sendRequest(worker.env, worker.data(), event, text.get(), text.get(), text.get());
            }
            worker.data()->requestDepth = 0;
            const std::vector<Seen> seen = worker.take();
            ASSERT_THAT(seen, SizeIs(1));
            const std::string shown =
                seen[0].text.substr(seen[0].text.rfind(&c.limitOf == &sqlLimit ? "sql=" : "url="));
            EXPECT_EQ(shown.substr(4, c.kept.size()), c.kept) << c.limit;
            EXPECT_EQ(shown.size(),
                      4 + c.kept.size() + (&c.limitOf == &sqlLimit ? 0 : strlen(" userId= L2")));
        }
    });
}

TEST_F(FamiliesTest, TheFirst254TextsSetTheWeightOfAllThatFollow) {
    onThread([](Worker &worker) {
        JNIEnv *env = worker.env;
        const LocalRef<jstring> text(env, env->NewStringUTF("12345678"));
        const LocalRef<jstring> longer(env, env->NewStringUTF("1234567890123456"));
        const auto statement = [&](jstring sql) {
            beginSQLRequest(env, nullptr, sql, nullptr);
            return worker.take().at(0).weight - static_cast<int>(sizeof(SQLEvent));
        };
        const auto request = [&](jstring url) {
            Draft<HttpEvent> event(Event::SUB_START);
            sendRequest(env, worker.data(), event, longer.get(), longer.get(), url);
            return worker.take().at(0).weight - static_cast<int>(sizeof(RequestEvent));
        };
        for (int i = 1; i <= 253; ++i) {
            for (const jstring one : {text.get(), jstring(nullptr)}) { // which does not count
                ASSERT_EQ(statement(one), 1000);
                ASSERT_EQ(request(one), 100);
            }
        }
        for (const jstring one : {text.get(), longer.get()}) {
            EXPECT_EQ(statement(one), 9);
            EXPECT_EQ(request(one), 9);
        }
        worker.run("-sql +ejb");
        const std::vector<Seen> others = worker.take();
        EXPECT_EQ(others.at(0).weight, static_cast<int>(sizeof(SQLEvent)) + 9);
        EXPECT_EQ(others.at(1).weight, static_cast<int>(sizeof(EJBEvent)) + 9);
    });
}

// ---------------------------------------------------------------- questions, listeners, gate

TEST_F(FamiliesTest, NativesWithAResultAlwaysGiveTheThreadsNumber) {
    const struct {
        const char *name;
        bool disabled, refusing, unseen;
    } cases[] = {{"accepting", false, false, false},
                 {"refusing", false, true, false},
                 {"disabled", true, false, false},
                 {"a thread without data", false, false, true}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        probeDisabled = c.disabled;
        notAccepting = c.refusing;
        ThreadMgr::setThreadTaker(c.unseen ? nullptr : &taker);
        onThread([&](Worker &worker) {
            JNIEnv *env = worker.env;
            const LocalRef<jclass> cls(env, env->FindClass("am/test/families/Script"));
            const LocalRef<jobject> array(
                env, env->CallStaticObjectMethod(cls.get(),
                                                 env->GetStaticMethodID(cls.get(), "threadNumbers", "()[I")));
            ASSERT_FALSE(clearException(env));
            std::vector<jint> numbers(12);
            env->GetIntArrayRegion(static_cast<jintArray>(array.get()), 0, 12, numbers.data());
            EXPECT_NE(numbers[0], 0);
            EXPECT_THAT(numbers, Each(numbers[0]));
            const bool markerOnly = c.refusing;
            EXPECT_THAT(worker.take(), SizeIs(c.disabled || c.unseen ? 0 : markerOnly ? 1 : 11));
        });
    }
    notAccepting = false;
}

TEST_F(FamiliesTest, ThreadTimesAreThoseOfTheThread) {
    const SlowCpuClock clock;
    onThread([&](Worker &worker) {
        JNIEnv *env = worker.env;
        const LocalRef<jclass> cls(env, env->FindClass("com/qel/morvex/norak/dc/eventagent/ThreadTimes"));
        const LocalRef<jobject> times(env, env->AllocObject(cls.get()));
        const LocalRef<jstring> other(env, env->NewStringUTF("no times"));
        const auto fill = [&](jobject object, jlong now) {
            clock.fixed = now;
            worker.callStatic(NATIVE_EVENT_AGENT, "getThreadTimesNative", "(Ljava/lang/Object;)V", object);
            return env->GetLongField(times.get(), env->GetFieldID(cls.get(), "cpuTime", "J"));
        };
        const auto field = [&](const char *name) {
            return env->GetIntField(times.get(), env->GetFieldID(cls.get(), name, "I"));
        };
        EXPECT_EQ(fill(other.get(), 4000), 0);
        EXPECT_EQ(fill(nullptr, 4000), 0);
        EXPECT_EQ(fill(times.get(), 4000), 4000);
        EXPECT_EQ(fill(times.get(), 300), 4000) << "below what the thread has seen";
        EXPECT_NEAR(field("timeSec_"), time(nullptr), 5);
        EXPECT_EQ(field("timeUSec_") % 1000, 0);
        EXPECT_LT(field("timeUSec_"), 1000000);
        probeDisabled = true; // a thread then counts as unknown
        EXPECT_EQ(fill(times.get(), 9000), 4000);
    });
}

TEST_F(FamiliesTest, ListenersMayRefuseATypeAndMayFail) {
    constexpr char VETO[] = "am/test/families/Veto";
    const auto recordsOf = [](Worker &worker) {
        worker.run("+http +sql +jca -jca -sql -http");
        std::vector<std::string> kinds;
        for (const Seen &each : worker.take()) {
            kinds.push_back(each.text.substr(0, each.text.find(' ')));
        }
        return kinds;
    };
    const auto everything = ElementsAre("HttpEvent.begin", "SQLEvent.begin", "JCAEvent.begin", "JCAEvent.end",
                                        "SQLEvent.end", "HttpEvent.end");
    onThread([&](Worker &worker) {
        worker.callStatic(VETO, "install", "(IZ)V", static_cast<jint>(Event::TYPE_SQL), JNI_FALSE);
        EXPECT_THAT(recordsOf(worker),
                    ElementsAre("HttpEvent.begin", "JCAEvent.begin", "JCAEvent.end", "HttpEvent.end"));
        EXPECT_EQ(worker.data()->requestDepth, 0); // a refused event still counts
        setEntryExitNotification(false);
        EXPECT_THAT(recordsOf(worker), everything);
        setEntryExitNotification(true);
        worker.callStatic(VETO, "remove", "()V");
        EXPECT_THAT(recordsOf(worker), everything);
        worker.callStatic(VETO, "install", "(IZ)V", static_cast<jint>(Event::TYPE_SQL), JNI_TRUE);
        EXPECT_THAT(recordsOf(worker), everything);
        worker.callStatic(VETO, "remove", "()V");
        // What a listener does is recorded, and no listener is asked about it.
        worker.callStatic(VETO, "installMonitored", "()V");
        worker.run("+http -http");
        EXPECT_THAT(worker.take(), SizeIs(2 * 3));
        worker.callStatic(VETO, "remove", "()V");
    });
}

TEST_F(FamiliesTest, EventsWithoutAThreadEnterTheLeadersQueue) {
    EvtAgentMgr::create()->start(); // without a network it sends nothing
    std::thread agent([] {
        JNIEnv *own = RealJvm::env();
        evtAgentMgr->startEvtAgent(own, 0);
        RealJvm::vm()->DetachCurrentThread();
    });
    while (evtAgentMgr->getSpecialThreadData() == nullptr) {
        std::this_thread::yield();
    }
    onThread([](Worker &worker) {
        worker.run("status sampling samplingShort samplingNull");
        appendGCEvent(worker.env, 1700000000123, 1700000001045, 5, 600, 7000);
        resendSamplingRates(worker.env);
        EXPECT_THAT(worker.take(), IsEmpty());
        const std::vector<Seen> seen = drain(evtAgentMgr->getSpecialThreadData());
        EXPECT_THAT(textsOf(seen),
                    ElementsAre("PSStatusEvent message=well", "SamplingEvent levels=[1,2,3,4] useDefault=1",
                                "SamplingEvent levels=[9,2,3,4] useDefault=0", "GCEvent.begin",
                                "GCEvent.end usedObjects=5 usedObjectSpace=600 totalObjectSpace=7000",
                                "SamplingEvent levels=[9,2,3,4] useDefault=0"));
        EXPECT_EQ(seen[3].wallMillis, 1700000000123);
        EXPECT_EQ(seen[4].wallMillis, 1700000001045);
        EXPECT_EQ(seen[4].threadId, evtAgentMgr->getSpecialThreadData()->threadId);
        EXPECT_EQ(seen.back().threadId, worker.data()->threadId);
        worker.data()->resetOnThreadEnd(); // the agent owns it: it goes with the stop
    });
    evtAgentMgr->stop();
    agent.join();
    onThread([](Worker &worker) { worker.run("status sampling"); }); // nobody takes them
}

// ---------------------------------------------------------------- many threads, bad input

// A monitor that another thread waits for is recorded in that thread's request.
TEST_F(FamiliesTest, ContentionBelongsToTheThreadThatWaits) {
    onThread([](Worker &waiting) {
        const auto report = [&](jint threadId) {
            bool begun = false, ended = false;
            onThread([&](Worker &reporting) {
                begun = beginLockContention(reporting.env, 1, nullptr, 2, nullptr, nullptr, 3, threadId);
                ended = endLockContention(reporting.env, 1, nullptr, 2, nullptr, nullptr, 3, threadId);
                EXPECT_THAT(reporting.take(), IsEmpty()); // outside a request itself
                EXPECT_EQ(reporting.data()->requestDepth, 0);
            });
            return begun && ended;
        };
        const jint waitingId = static_cast<jint>(waiting.data()->threadId);
        EXPECT_FALSE(report(waitingId));
        waiting.data()->requestDepth = 1;
        waiting.data()->lastCpuTime = 777;
        EXPECT_FALSE(report(123456789)); // nobody's number: taken for the caller
        EXPECT_TRUE(report(waitingId));
        EXPECT_EQ(waiting.data()->requestDepth, 1);
        const std::vector<Seen> seen = waiting.take();
        ASSERT_THAT(seen, SizeIs(2));
        for (const Seen &each : seen) {
            EXPECT_EQ(each.cpuTime, 777);
            EXPECT_EQ(each.threadId, waiting.data()->threadId.get());
            EXPECT_EQ(each.depth, 2);
            EXPECT_GT(each.wallMillis, 0);
        }
    });
}

TEST_F(FamiliesTest, BadInputIsHarmlessInEveryStateOfTheAgent) {
    ThreadMgr *const threads = threadMgr;
    const struct {
        const char *name;
        void (*enter)();
        void (*leave)(ThreadMgr *threads);
    } states[] = {
        {"accepting", [] {}, [](ThreadMgr *) {}},
        {"refusing", [] { notAccepting = true; }, [](ThreadMgr *) { notAccepting = false; }},
        {"disabled", [] { probeDisabled = true; }, [](ThreadMgr *) { probeDisabled = false; }},
        {"open gate without a pump", [] { ThreadMgr::setThreadTaker(nullptr); }, [](ThreadMgr *) {}},
        {"managers stopped", [] { threadMgr->stop(); }, [](ThreadMgr *manager) { manager->start(); }},
        {"no thread manager", [] { threadMgr = nullptr; }, [](ThreadMgr *manager) { threadMgr = manager; }},
        {"nothing there", [] { MemoryMonitor::destroy(); }, [](ThreadMgr *) { MemoryMonitor::create(); }},
    };
    for (const auto &state : states) {
        SCOPED_TRACE(state.name);
        onThread([&](Worker &worker) {
            for (const bool inside : {false, true}) {
                if (inside) {
                    worker.run("+http");
                }
                state.enter();
                const LocalRef<jclass> cls(worker.env, worker.env->FindClass("am/test/families/BadInput"));
                const jmethodID callAll =
                    worker.env->GetStaticMethodID(cls.get(), "callAll", "()Ljava/lang/String;");
                const LocalRef<jobject> thrown(worker.env,
                                               worker.env->CallStaticObjectMethod(cls.get(), callAll));
                EXPECT_FALSE(clearException(worker.env));
                char *text = jniStringCopy(worker.env, static_cast<jstring>(thrown.get()));
                EXPECT_STREQ(text, "");
                free(text);
                state.leave(threads);
                ThreadMgr::setThreadTaker(&taker);
                worker.take(); // every record can be read
            }
            configure(2, false);
        });
    }
}

} // namespace
