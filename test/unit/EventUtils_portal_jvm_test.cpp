// Producers whose records and natives stand elsewhere: allocations, monitors, the portal. The events are
// looked at in the queue.
#include "BRSPortal.h"
#include "EventFamilies.h"
#include "families_test_support.h"

using namespace families_test;

namespace {

std::vector<Queued> takeEvents(ThreadData &td) {
    std::vector<Queued> events;
    while (Queued event = takeFirst(*td.eventQueue)) {
        events.push_back(std::move(event));
    }
    return events;
}

std::string shown(const Text &text) {
    return text.isNull() ? "null" : text.data();
}

template <typename E>
std::string figuresOf(const E &event) {
    std::string text;
    for (const CountAndTime &figure : event.figures) {
        text += std::to_string(figure.count) + "/" + std::to_string(figure.avgTime) + " ";
    }
    return text;
}

std::string requestFields(const RequestEvent &event) {
    return shown(event.requestName) + " " + shown(event.applicationName) + " " + shown(event.url) + " " +
           shown(event.userId);
}

struct Producer {
    const char *name;
    void (*call)(JNIEnv *env, jstring text, Event::EventSubType subType);
    Event::EventType type;
    bool counted; // without a test of the depth; else inside a request only
    const char *clocks;
    std::string begin, end; // what `fields` gives
    size_t weight;
    std::string (*fields)(const Event &event);
    int32_t (*depth)(const Event &event);
};

template <typename E>
int32_t depthOf(const Event &event) {
    return static_cast<const E &>(event).requestDepth;
}

template <typename E>
std::string phaseFields(const Event &event) {
    return std::to_string(static_cast<const E &>(event).methodId);
}

template <typename E>
std::string lockFields(const Event &event) {
    const E &lock = static_cast<const E &>(event);
    return std::to_string(lock.lockingMethodId) + " " + shown(lock.lockedClassName);
}

template <typename Phase>
void phase(JNIEnv *env, jstring, Event::EventSubType subType) {
    subType == Event::SUB_START ? Phase::begin(env, 9) : Phase::end(env);
}

template <Event::EventType type>
void portalRequest(JNIEnv *env, jstring text, Event::EventSubType subType) {
    appendPortalRequestEvent(env, type, subType, text, text, text, text);
}

const Producer producers[] = {
    {"heap",
     [](JNIEnv *env, jstring text, Event::EventSubType sub) {
         using families::HeapAllocation;
         sub == Event::SUB_START ? HeapAllocation::begin(env, 7, 35, text)
                                 : HeapAllocation::end(env, 7, 35, text);
     },
     Event::TYPE_HEAP, false, "wc", "7 four 0", "7 null 0", sizeof(HeapEvent) + 4,
     [](const Event &event) {
         const auto &heap = static_cast<const HeapEvent &>(event);
         return std::to_string(heap.allocatingMethodId) + " " + shown(heap.instantiatedClassName) + " " +
                std::to_string(heap.allocatingLineNumber);
     },
     depthOf<HeapEvent>},
    {"acquisition",
     [](JNIEnv *env, jstring text, Event::EventSubType sub) {
         using families::LockAcquisition;
         sub == Event::SUB_START ? LockAcquisition::begin(env, 7, text) : LockAcquisition::end(env, 7, text);
     },
     Event::TYPE_LOCK_ACQUISITION, false, "wc", "7 four", "7 null", sizeof(LockAcquisitionEvent) + 4,
     lockFields<LockAcquisitionEvent>, depthOf<LockAcquisitionEvent>},
    {"release",
     [](JNIEnv *env, jstring text, Event::EventSubType sub) {
         using families::LockRelease;
         sub == Event::SUB_START ? LockRelease::begin(env, 7, text) : LockRelease::end(env, 7, text);
     },
     Event::TYPE_LOCK_RELEASE, false, "wc", "7 four", "7 null", sizeof(LockReleaseEvent) + 4,
     lockFields<LockReleaseEvent>, depthOf<LockReleaseEvent>},
    {"contention",
     [](JNIEnv *env, jstring text, Event::EventSubType sub) {
         (sub == Event::SUB_START ? beginLockContention : endLockContention)(env, 7, text, 3, text, text, 8,
                                                                             -1);
     },
     Event::TYPE_LOCK_CONTENTION, false, "ww", "7 four 3 four four 8", "7 null 3 null null 8",
     sizeof(LockContentionEvent) + 8,
     [](const Event &event) {
         const auto &lock = static_cast<const LockContentionEvent &>(event);
         return lockFields<LockContentionEvent>(event) + " " + std::to_string(lock.owningRequestType) + " " +
                shown(lock.owningRequestName) + " " + shown(lock.owningApplicationName) + " " +
                std::to_string(lock.owningMethodId);
     },
     depthOf<LockContentionEvent>},
    {"page", portalRequest<Event::TYPE_PORTAL_PAGE>, Event::TYPE_PORTAL_PAGE, true, "wc",
     "four four four four", "null null null null", sizeof(RequestEvent) + 100,
     [](const Event &event) { return requestFields(static_cast<const RequestEvent &>(event)); },
     depthOf<RequestEvent>},
    {"portlet", portalRequest<Event::TYPE_PORTAL_PORTLET>, Event::TYPE_PORTAL_PORTLET, true, "wc",
     "four four four four", "null null null null", sizeof(RequestEvent) + 100,
     [](const Event &event) { return requestFields(static_cast<const RequestEvent &>(event)); },
     depthOf<RequestEvent>},
    {"authentication", phase<families::PortalAuthentication>, Event::TYPE_PORTAL_AUTHENTICATION, true, "ww",
     "9", "0", sizeof(PortalAuthenticationEvent), phaseFields<PortalAuthenticationEvent>,
     depthOf<PortalAuthenticationEvent>},
    {"authorization", phase<families::PortalAuthorization>, Event::TYPE_PORTAL_AUTHORIZATION, true, "ww", "9",
     "0", sizeof(PortalAuthorizationEvent), phaseFields<PortalAuthorizationEvent>,
     depthOf<PortalAuthorizationEvent>},
    {"model", phase<families::PortalModelBuilding>, Event::TYPE_PORTAL_MODEL_BUILDING, true, "ww", "9", "0",
     sizeof(PortalModelBuildingEvent), phaseFields<PortalModelBuildingEvent>,
     depthOf<PortalModelBuildingEvent>},
    {"loading", phase<families::PortalPageLoading>, Event::TYPE_PORTAL_PAGE_LOADING, true, "ww", "9", "0",
     sizeof(PortalPageLoadingEvent), phaseFields<PortalPageLoadingEvent>, depthOf<PortalPageLoadingEvent>},
    {"rendering", phase<families::PortalPageRendering>, Event::TYPE_PORTAL_PAGE_RENDERING, true, "ww", "9",
     "0", sizeof(PortalPageRenderingEvent), phaseFields<PortalPageRenderingEvent>,
     depthOf<PortalPageRenderingEvent>},
    {"action", phase<families::PortalAction>, Event::TYPE_PORTAL_ACTION, true, "ww", "9", "0",
     sizeof(PortalActionEvent), phaseFields<PortalActionEvent>, depthOf<PortalActionEvent>},
    {"gateway with a name",
     [](JNIEnv *env, jstring text, Event::EventSubType sub) {
         appendPortalGatewayServletRequestEvent(env, sub, text);
     },
     Event::TYPE_PORTAL_GATEWAY_SERVLET, true, "ww", "null", "four", sizeof(PortalGatewayServletEvent),
     [](const Event &event) { return shown(static_cast<const PortalGatewayServletEvent &>(event).pageName); },
     depthOf<PortalGatewayServletEvent>},
    {"gateway",
     [](JNIEnv *env, jstring, Event::EventSubType sub) { appendPortalGatewayServletRequestEvent(env, sub); },
     Event::TYPE_PORTAL_GATEWAY_SERVLET, true, "ww", "null", "last page", sizeof(PortalGatewayServletEvent),
     [](const Event &event) { return shown(static_cast<const PortalGatewayServletEvent &>(event).pageName); },
     depthOf<PortalGatewayServletEvent>},
};

std::string clockOrder(const std::vector<Queued> &events) {
    std::string order;
    for (const Queued &event : events) {
        const int64_t wallMillis = event->timeSec * int64_t{1000} + event->timeUSec / 1000;
        order += wallMillis <= event->cpuTime / 1000000 ? 'w' : 'c';
    }
    return order;
}

class ProducersTest : public FamiliesTest {
protected:
    // Begin and end at a depth; what is expected with depths as "2 2=1", the last one being the thread's.
    static std::string depths(Worker &worker, const Producer &producer, int32_t depth, const char *words,
                              jstring text) {
        worker.data()->requestDepth = depth;
        for (const char *word = words; *word != '\0'; ++word) {
            producer.call(worker.env, text, *word == '+' ? Event::SUB_START : Event::SUB_END);
        }
        std::string pattern;
        for (const Queued &event : takeEvents(*worker.data())) {
            EXPECT_EQ(event->type, producer.type);
            EXPECT_EQ(event->threadId, worker.data()->threadId.get());
            pattern +=
                (event->subType == Event::SUB_START ? "+" : "-") + std::to_string(producer.depth(*event));
        }
        return pattern + "=" + std::to_string(worker.data()->requestDepth);
    }
};

TEST_F(ProducersTest, KeepTheirRuleFieldsClocksAndWeight) {
    const SlowCpuClock clock;
    for (const Producer &producer : producers) {
        SCOPED_TRACE(producer.name);
        onThread([&](Worker &worker) {
            const LocalRef<jstring> text(worker.env, worker.env->NewStringUTF("four"));
            worker.data()->pageName = strdup("last page");
            EXPECT_EQ(depths(worker, producer, 1, "+-", text.get()), "+2-2=1");
            EXPECT_EQ(depths(worker, producer, 0, "+-", text.get()), producer.counted ? "+1-1=0" : "=0");
            EXPECT_EQ(depths(worker, producer, 0, "-", text.get()), producer.counted ? "-0=-1" : "=0");
            worker.data()->requestDepth = 1;
            producer.call(worker.env, text.get(), Event::SUB_START);
            producer.call(worker.env, text.get(), Event::SUB_END);
            const std::vector<Queued> events = takeEvents(*worker.data());
            ASSERT_EQ(events.size(), 2U);
            EXPECT_EQ(producer.fields(*events[0]), producer.begin);
            EXPECT_EQ(producer.fields(*events[1]), producer.end);
            EXPECT_EQ(clockOrder(events), producer.clocks);
            EXPECT_EQ(events[0]->charge(), static_cast<int>(producer.weight));
            EXPECT_EQ(events[1]->charge(), static_cast<int>(producer.weight));
            producer.call(worker.env, nullptr, Event::SUB_START); // a null text is an empty one
            takeEvents(*worker.data());
        });
    }
}

TEST_F(ProducersTest, FiguresStandAlone) {
    onThread([](Worker &worker) {
        JNIEnv *env = worker.env;
        static const char NAME[] = "render";
        appendPortalAuthAcEvent(env, Event::TYPE_PORTAL_ACCESS_CONTROL, 3, 1LL << 40);
        appendPortalAggregateDataEvent(env, Event::TYPE_PORTAL_MODEL_BUILDING_SUM, 4, 5);
        appendPortalCredentialVaultEvent(env, {{1, 2}, {3, 4}, {5, 6}, {7, 8}, {9, 10}});
        appendPortalContentAccessEvent(env, {{11, 12}, {13, 14}, {15, 16}, {17, 18}});
        appendPortalMethodConstantEvent(env, 21, NAME);
        const std::vector<Queued> events = takeEvents(*worker.data());
        ASSERT_EQ(events.size(), 5U);
        const auto &login = static_cast<const PortalAuthAcEvent &>(*events[0]);
        EXPECT_EQ(login.type, Event::TYPE_PORTAL_ACCESS_CONTROL);
        EXPECT_EQ(login.count, 3);
        EXPECT_EQ(login.avgTime, 1LL << 40);
        const auto &sum = static_cast<const PortalAggregateDataEvent &>(*events[1]);
        EXPECT_EQ(sum.type, Event::TYPE_PORTAL_MODEL_BUILDING_SUM);
        EXPECT_EQ(sum.count, 4);
        EXPECT_EQ(figuresOf(static_cast<const PortalCredentialVaultEvent &>(*events[2])),
                  "1/2 3/4 5/6 7/8 9/10 ");
        EXPECT_EQ(figuresOf(static_cast<const PortalContentAccessEvent &>(*events[3])),
                  "11/12 13/14 15/16 17/18 ");
        const auto &constant = static_cast<const PortalMethodConstantEvent &>(*events[4]);
        EXPECT_EQ(constant.methodId, 21);
        EXPECT_EQ(constant.methodName, NAME);
        EXPECT_EQ(constant.subType, Event::SUB_START);
    });
}

// A monitor that another thread waits for is recorded in that thread's request.
TEST_F(ProducersTest, ContentionBelongsToTheThreadThatWaits) {
    onThread([](Worker &waiting) {
        const auto report = [&](jint threadId) {
            bool begun = false, ended = false;
            onThread([&](Worker &reporting) {
                begun = beginLockContention(reporting.env, 1, nullptr, 2, nullptr, nullptr, 3, threadId);
                ended = endLockContention(reporting.env, 1, nullptr, 2, nullptr, nullptr, 3, threadId);
                EXPECT_TRUE(takeEvents(*reporting.data()).empty()); // outside a request itself
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
        const std::vector<Queued> events = takeEvents(*waiting.data());
        ASSERT_EQ(events.size(), 2U);
        for (const Queued &event : events) {
            EXPECT_EQ(event->cpuTime, 777);
            EXPECT_EQ(event->threadId, waiting.data()->threadId.get());
            EXPECT_EQ(depthOf<LockContentionEvent>(*event), 2);
            EXPECT_GT(event->timeSec, 0U);
        }
    });
}

} // namespace
