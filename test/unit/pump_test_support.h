// What the pump's tests share: JNI environments without a JVM, all managers over a real socket, a way to hold
// the leader between two passes, and what arrived as the receiver's decoder reads it.
#pragma once

#include "EvtAgentMgr.h"
#include "MemoryMonitor.h"
#include "ProbeState.h"
#include "QueuedEvents.h"
#include "ThreadData.h"
#include "ThreadMgr.h"
#include "decoder/StreamDecoder.h"
#include "net_test_support.h"

#include <condition_variable>
#include <optional>

namespace pump_test {

using namespace net_test;

// One thread's environment. Finds every class unless `classesMissing`, and counts what is called through it.
class FakeJni {
public:
    JNIEnv *get() { return &env; }

    static inline std::atomic<bool> classesMissing{false};
    static inline std::atomic<int> calls{0};

private:
    static jclass JNICALL findClass(JNIEnv *, const char *) {
        pending = classesMissing;
        return pending ? nullptr : reinterpret_cast<jclass>(&calls);
    }
    static const JNINativeInterface_ *table() {
        static const JNINativeInterface_ functions = [] {
            JNINativeInterface_ made{};
            made.FindClass = findClass;
            made.ExceptionCheck = [](JNIEnv *) -> jboolean { return pending; };
            made.ExceptionClear = [](JNIEnv *) { pending = false; };
            made.ExceptionDescribe = [](JNIEnv *) { ADD_FAILURE() << "an exception was described"; };
            made.DeleteLocalRef = [](JNIEnv *, jobject) {};
            made.GetStaticMethodID = [](JNIEnv *, jclass, const char *, const char *) {
                return reinterpret_cast<jmethodID>(&calls);
            };
            made.CallStaticVoidMethodV = [](JNIEnv *, jclass, jmethodID, va_list) { ++calls; };
            return made;
        }();
        return &functions;
    }

    static inline thread_local bool pending = false;
    JNIEnv env{table()};
};

// Stands in for the network's figures, which the leader asks for once a pass: there it can be held.
class PassStepper : public AgentPool {
public:
    void hold() {
        const std::lock_guard<std::mutex> guard(mutex);
        holding = true;
    }
    void awaitArrival() {
        std::unique_lock<std::mutex> guard(mutex);
        changed.wait(guard, [this] { return waiting; });
    }
    // Lets the held leader go on to its next arrival, `times` over.
    void step(int times = 1) {
        for (int i = 0; i < times; ++i) {
            awaitArrival();
            std::unique_lock<std::mutex> guard(mutex);
            const int before = arrivals;
            admitted = true;
            changed.notify_all();
            changed.wait(guard, [&] { return arrivals != before; });
        }
    }
    void release() {
        const std::lock_guard<std::mutex> guard(mutex);
        holding = false;
        changed.notify_all();
    }

    int32_t getTotalDataSize() override {
        std::unique_lock<std::mutex> guard(mutex);
        ++arrivals;
        waiting = true;
        changed.notify_all();
        changed.wait(guard, [this] { return admitted || !holding; });
        admitted = false;
        waiting = false;
        return 0;
    }
    int32_t getSleepTime() override { return 0; }
    bool setSleepTime(long) override { return true; }
    bool setThreadPriority(JNIEnv *, int) override { return true; }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool holding = false;
    bool waiting = false;
    bool admitted = false;
    int arrivals = 0;
};

// ---------------------------------------------------------------- what arrived

struct Received {
    int type;
    uint32_t threadId = 0;
    std::string text;
    std::vector<uint32_t> counters;
};

// Reads a stream strictly, initial block first. `whole` tells whether it ended at the end of a packet.
struct Stream {
    explicit Stream(std::string_view bytes) {
        ps::StreamDecoder decoder;
        ps::Record record;
        ps::Outcome outcome = ps::Outcome::NeedMore;
        while (!bytes.empty() && outcome == ps::Outcome::NeedMore) {
            bytes.remove_prefix(decoder.feed(bytes));
            while ((outcome = decoder.next(record)) == ps::Outcome::Record) {
                keep(record);
            }
        }
        EXPECT_NE(ps::Outcome::Fatal, outcome) << decoder.error().message << " " << decoder.error().bytes;
        whole = decoder.atBoundary();
    }

    std::vector<Received> records; // the initial block and signs of life left out
    bool whole;

private:
    void keep(const ps::Record &record) {
        Received received{record.spec->type, record.threadId, {}, {}};
        for (size_t i = 0; i < record.spec->fieldCount; ++i) {
            const ps::Kind kind = record.spec->fields[i].kind;
            if (kind == ps::Kind::Str) {
                received.text = record.values[i].text;
            } else if (kind == ps::Kind::Number) {
                received.counters.push_back(static_cast<uint32_t>(record.values[i].number));
            }
        }
        if (record.packet > 0 && (received.type != 44 || !received.text.empty())) {
            records.push_back(received);
        }
    }
};

// ---------------------------------------------------------------- the fixture

// The limit that appending knows is read once in a process: here, before a test changes the property.
inline void fixAppendLimit() {
    ThreadData td(nullptr);
    append<SQLEvent>(&td, Event::SUB_START);
    td.isAlive = false;
}

// All managers in the order of the agent's start, each agent on a thread of its own.
class PumpTest : public NetworkTest {
protected:
    PumpTest() {
        fixAppendLimit();
        eaTracer = nullptr; // it tells every pass
        FakeJni::classesMissing = false;
        FakeJni::calls = 0;
        properties.set("networkagent.publish.frequency", "1");
        properties.set("networkagent.ps.reconnect.frequency", "0");
        properties.set("networkagent.buffer.limit", "100000");
        properties.set("internal.probe.publishing.frequency", "1");
        properties.set("dc.turbomode.enabled", "false");
    }
    ~PumpTest() override {
        stop();
        delete evtAgentMgr.get();
        MemoryMonitor::destroy();
        resendHook = nullptr;
        probeDisabled = true;
        eventAgentReady = false;
        networkAgentReady = false;
    }

    // `agents` of the pool get a thread; -1 is all of them.
    void start(int agents = -1) {
        MemoryMonitor::create();
        memoryMonitor.get()->start();
        NetworkTest::start();
        MemoryMonitor::setNetworkPool(&stepper);
        EvtAgentMgr::create()->start();
        ThreadMgr::create();
        threadMgr.get()->start();
        running = true;
        if (server.has_value()) {
            answerWith(server->port());
        }
        for (int id = 0; id < (agents < 0 ? pump()->getPoolSize() : agents); ++id) {
            runAgent(id);
        }
    }
    void runAgent(int id) {
        threads.emplace_back([id] {
            FakeJni jni;
            evtAgentMgr.get()->startEvtAgent(jni.get(), id);
        });
    }
    void startAndWait() {
        start();
        ASSERT_TRUE(eventually([this] { return pump()->canTakeThreads(); }));
    }
    void stop() {
        stepper.release();
        if (running) {
            running = false;
            NetworkTest::stop();
            evtAgentMgr.get()->stop();
            threadMgr.get()->stop();
            memoryMonitor.get()->stop();
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        threads.clear();
    }

    static EvtAgentMgr *pump() { return evtAgentMgr; }
    static ThreadData *threadOf(FakeJni &jni) { return threadMgr.get()->getThreadData(jni.get()); }
    static void endThread(FakeJni &jni) {
        ThreadData *data = threadMgr.get()->findThreadData(jni.get());
        if (data != nullptr) {
            data->resetOnThreadEnd();
        }
    }

    // All records of all connections.
    std::vector<Received> received(bool wantWhole = false) {
        std::vector<Received> all;
        for (size_t i = 0; i < server->count(); ++i) {
            const Stream stream(server->bytes(i));
            EXPECT_TRUE(stream.whole || !wantWhole);
            all.insert(all.end(), stream.records.begin(), stream.records.end());
        }
        return all;
    }
    std::vector<std::string> receivedTexts() {
        std::vector<std::string> texts;
        for (const Received &record : received()) {
            texts.push_back(record.text);
        }
        return texts;
    }
    bool receivesText(const std::string &text) {
        return eventually([&] {
            const std::vector<std::string> texts = receivedTexts();
            return std::find(texts.begin(), texts.end(), text) != texts.end();
        });
    }

    PassStepper stepper;
    std::optional<PeerServer> server;
    bool running = false;
    std::vector<std::thread> threads;
};

} // namespace pump_test
