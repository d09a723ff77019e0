// One allocation of the agent after the other finds no memory, from the start of the managers to a packet in
// the network agent's queue. Nobody falls over it, and of each call that was made the account tells.
#include "EventAgent.h"
#include "EventFamilies.h"
#include "EventUtils.h"
#include "pump_test_support.h"

#include <gtest/gtest.h>

namespace {

thread_local int untilFailure = 0; // 0: none fails

bool fails() {
    return untilFailure > 0 && --untilFailure == 0;
}

} // namespace

// `new` and `new[]` that give null have the last two names.
#define MAY_FAIL(name, parameters, ...)                                                                      \
    extern "C" void *__real_##name parameters;                                                               \
    extern "C" void *__wrap_##name parameters {                                                              \
        return fails() ? nullptr : __real_##name(__VA_ARGS__);                                               \
    }
MAY_FAIL(malloc, (size_t size), size)
MAY_FAIL(calloc, (size_t count, size_t size), count, size)
MAY_FAIL(_ZnwmRKSt9nothrow_t, (size_t size, const std::nothrow_t &none), size, none)
MAY_FAIL(_ZnamRKSt9nothrow_t, (size_t size, const std::nothrow_t &none), size, none)

using namespace pump_test;

namespace {

constexpr uint64_t FAMILIES = 12; // beside the statements

void callEachFamily(JNIEnv *env) {
    using namespace families;
    const jstring none = nullptr;
    ThreadData *td = callingThread(env);
    td = td != nullptr ? td : callingThread(env); // so that all calls find the same
    WSClientCall::begin(env, none, none, none);
    for (const auto sub : {Event::SUB_START, Event::SUB_END}) {
        NestedDraft<HttpEvent> request(td, sub);
        sendRequest(env, td, request, nullptr, nullptr, nullptr);
    }
    beginSQLRequest(env, nullptr, nullptr, nullptr);
    endSQLRequest(env, nullptr, nullptr, nullptr);
    JMSRequest::begin(env, Event::JMS_ACTION_1, none, none, none);
    JMSRequest::end(env, Event::JMS_ACTION_1, none, none, none);
    JCARequest::begin(env, none);
    JCARequest::end(env, none);
    JNDIRequest::begin(env, none, none);
    JNDIRequest::end(env, none, none);
    JDORequest::begin(env, none, none, none);
    JDORequest::end(env, none, none, none);
    JavaMailRequest::begin(env, none, none);
    JavaMailRequest::end(env, none, none);
    XQRequest::begin(env, none, none, 1);
    XQRequest::end(env, none, none, 1);
    beginBeanRequest(env, nullptr, nullptr, 0);
    endBeanRequest(env, nullptr);
    HeapAllocation::begin(env, 1, 1, none);
    HeapAllocation::end(env, 1, 1, none);
    LockAcquisition::begin(env, 1, none);
    LockAcquisition::end(env, 1, none);
    processGpsXQRequest(env, nullptr, nullptr, 7, nullptr); // a pair
    WSClientCall::end(env);
}

class OutOfMemory : public PumpTest, public ::testing::WithParamInterface<const char *>, public ThreadTaker {
protected:
    OutOfMemory() {
        properties.set("internal.probe.drops.exact", "true");
        properties.set("ea.popevent.size", GetParam());
        properties.set("internal.probe.event.packet.size", "1"); // several packets
        resendHook = [](JNIEnv *) { current->onPass(); };
        current = this;
    }

    bool canTakeThreads() override { return agent != nullptr && agent->isAlive(); }
    bool manageThreadData(ThreadData *thr) override { return agent->manageThreadData(thr); }

    // The agent asks for the initial data in each pass. All events of the first are sent in the others.
    void onPass() {
        if (++passes == 1) {
            callEachFamily(caller.get());
        } else if (passes == PASSES) {
            agent->requestStop();
        }
        agent->notifyPSReconnect(true);
    }

    static bool connect() {
        NetworkAgentMgr *network = NetworkAgentMgr::getInstance();
        if (network == nullptr) {
            return false;
        }
        network->start();
        NetworkClient client;
        NetworkAgent *link = network->getNetworkAgent(&client);
        if (link != nullptr) {
            link->alive_ = link->started_ = link->connected_ = true;
        }
        return link != nullptr;
    }

    void startManagers() {
        MemoryMonitor::create();
        if (memoryMonitor.get() != nullptr) {
            memoryMonitor.get()->start();
        }
        connected = connect();
        if (EvtAgentMgr::create() != nullptr) {
            pump()->start();
        }
        ThreadMgr::create();
        if (threadMgr.get() != nullptr) {
            threadMgr.get()->start();
        }
        ThreadMgr::setThreadTaker(this);
    }

    void runOneRound() {
        agent = std::make_unique<EventAgent>(1);
        agent->notifyPSReconnect(true);
        if (connected && pump() != nullptr) {
            agent->startThread(pumping.get());
        }
        if (passes == 0) { // nobody has taken the thread
            callEachFamily(caller.get());
        }
    }

    void stopManagers() {
        ThreadMgr::setThreadTaker(nullptr);
        agent.reset();
        if (connected) {
            NetworkClient client;
            NetworkAgent *link = NetworkAgentMgr::getInstance()->getNetworkAgent(&client);
            link->alive_ = link->started_ = link->connected_ = false;
        }
        NetworkAgentMgr::destroy();
        delete evtAgentMgr.get();
        if (threadMgr.get() != nullptr) {
            threadMgr.get()->stop();
        }
        MemoryMonitor::destroy();
    }

    static DropFigures takeAll() {
        DropFigures all;
        while (!lossAccount.isEmpty()) {
            all.add(lossAccount.take());
        }
        return all;
    }

    static constexpr int PASSES = 8;
    static inline OutOfMemory *current = nullptr;
    FakeJni caller;
    FakeJni pumping;
    std::unique_ptr<EventAgent> agent;
    bool connected = false;
    int passes = 0;
};

} // namespace

TEST_P(OutOfMemory, CostsAnEventAtMostAndTheAccountKnowsIt) {
    takeAll();
    int failing = 0;
    bool reached = true;
    while (reached && ++failing < 5000) {
        passes = 0;
        untilFailure = failing;
        startManagers();
        runOneRound();
        reached = untilFailure == 0;
        untilFailure = 0;
        stopManagers();
        const DropFigures lost = takeAll();
        const uint64_t expected[] = {FAMILIES, FAMILIES, 0, 0, 1, 1};
        EXPECT_TRUE(std::equal(expected, expected + DropFigures::KINDS, lost.counts))
            << "allocation " << failing << ": " << ::testing::PrintToString(lost.counts);
    }
    EXPECT_LT(20, failing) << "all of them have had their turn";
    EXPECT_FALSE(reached);
}

INSTANTIATE_TEST_SUITE_P(ByBatch, OutOfMemory, ::testing::Values("1", "3"));
