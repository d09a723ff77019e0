// What the tests of the request families share: the agent's managers around a real JVM without a pump, the
// natives bound to their Java declarations, words run on Java threads of their own, and what these queued as
// the receiver's decoder reads it.
#pragma once

#include "EventAssembly.h"
#include "EventUtils.h"
#include "EvtAgentMgr.h"
#include "JVMTIUtils.h"
#include "MemoryMonitor.h"
#include "ProbeState.h"
#include "ProtocolVisitor.h"
#include "QueuedEvents.h"
#include "RealJvm.h"
#include "ThreadData.h"
#include "ThreadMgr.h"
#include "decoder/RecordReader.h"
#include "jnihelp.h"
#include "server/Render.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <dlfcn.h>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace families_test {

constexpr char PORTAL_AGENT[] = "com/qel/morvex/norak/dc/eventagent/PortalNativeEventAgentImpl";
constexpr char NATIVE_EVENT_AGENT[] = "com/qel/morvex/norak/dc/eventagent/NativeEventAgentImpl";

// One record as it would go out.
struct Seen {
    std::string
        text; // fields in the order of the wire: "SQLEvent.begin d1 L2 dataSourceName=ds sql=select 1"
    std::string shape; // the same with # in place of depth and level
    int depth;         // the byte, signed
    uint32_t threadId; // as the event has it, as the next two
    int64_t cpuTime;
    int64_t wallMillis;
    int weight;
};

// ---------------------------------------------------------------- decoding

inline std::string render(const ps::Record &record, const std::string &depth, const std::string &level) {
    static const std::set<std::string> unshown = {"conn",     "offset",  "seq",      "packet",
                                                  "type",     "name",    "thread",   "timeSec",
                                                  "timeUSec", "cpuTime", "nCtxProps"};
    std::string text = record.spec->name;
    const nlohmann::ordered_json json = ps::recordJson(0, record);
    for (const auto &[key, value] : json.items()) {
        if (key == "depth") {
            text += " d" + depth;
        } else if (key == "level") {
            text += " L" + level;
        } else if (unshown.count(key) == 0) {
            text += " " + key + "=" + (value.is_string() ? value.get<std::string>() : value.dump());
        }
    }
    return text;
}

// The event's record, read strictly and to its last byte.
inline Seen decoded(Event &event) {
    static thread_local std::vector<char> area(1 << 20);
    ProtocolVisitor visitor(area.data(), area.data(), area.data() + area.size(), nullptr);
    EXPECT_TRUE(event.addToBuffer(&visitor));
    const auto length = static_cast<size_t>(visitor.getCursor() - area.data());
    ps::RecordReader reader(area.data(), area.data() + length, area.size());
    ps::Record record;
    uint64_t type = 0;
    reader.readType(1, type);
    record.spec = ps::findSpec(static_cast<uint8_t>(type));
    const bool readable = record.spec != nullptr && reader.readFields(record) && reader.consumed() == length;
    EXPECT_TRUE(readable) << "record " << type << " of event type " << event.type;
    if (!readable) {
        return {"unreadable", "unreadable", 0, 0, 0, 0, 0};
    }
    const int depth = static_cast<int8_t>(record.depth);
    return {render(record, std::to_string(depth), std::to_string(record.level)),
            render(record, "#", "#"),
            depth,
            event.threadId,
            event.cpuTime,
            event.timeSec * int64_t{1000} + event.timeUSec / 1000,
            event.charge()};
}

inline std::vector<Seen> drain(ThreadData *td) {
    std::vector<Seen> seen;
    while (Event *event = td != nullptr ? td->eventQueue->first() : nullptr) {
        seen.push_back(decoded(*event));
        td->eventQueue->removeFirst();
    }
    return seen;
}

inline std::vector<std::string> textsOf(const std::vector<Seen> &seen) {
    std::vector<std::string> texts;
    for (const Seen &each : seen) {
        texts.push_back(each.text);
    }
    return texts;
}

// Answers the thread CPU clock with the wall clock of its question, in nanoseconds, and takes two
// milliseconds for it: a record then shows which of its two clocks came first. Or with a fixed value.
class SlowCpuClock {
public:
    SlowCpuClock() : original(jvmti->functions), table(*original) {
        fixed = -1;
        table.GetCurrentThreadCpuTime = [](jvmtiEnv *, jlong *nanos) {
            const jlong asked = wallMillis();
            *nanos = fixed >= 0 ? fixed.load() : asked * 1000000;
            while (fixed < 0 && wallMillis() < asked + 2) {
                std::this_thread::yield();
            }
            return JVMTI_ERROR_NONE;
        };
        jvmti->functions = &table;
    }
    ~SlowCpuClock() { jvmti->functions = original; }

    static inline std::atomic<jlong> fixed{-1};

private:
    static jlong wallMillis() {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    }

    const jvmtiInterface_1_ *const original;
    jvmtiInterface_1_ table;
};

// ---------------------------------------------------------------- Java

// Binds every native of a class whose symbol is in this process, as the JVM does with an agent's library.
inline void bindNatives(JNIEnv *env, const char *className) {
    const LocalRef<jclass> cls(env, env->FindClass(className));
    const LocalRef<jclass> helper(env, env->FindClass("am/test/families/Natives"));
    ASSERT_TRUE(cls && helper);
    const jmethodID of = env->GetStaticMethodID(helper.get(), "of", "(Ljava/lang/Class;)[Ljava/lang/String;");
    const LocalRef<jobject> list(env, env->CallStaticObjectMethod(helper.get(), of, cls.get()));
    ASSERT_FALSE(clearException(env));
    const auto texts = static_cast<jobjectArray>(list.get());
    const auto textAt = [&](jsize index) {
        const LocalRef<jobject> text(env, env->GetObjectArrayElement(texts, index));
        return jniStringCopy(env, static_cast<jstring>(text.get()));
    };
    for (jsize i = 0; i + 2 < env->GetArrayLength(texts); i += 3) {
        char *name = textAt(i);
        char *signature = textAt(i + 1);
        char *symbol = textAt(i + 2);
        const JNINativeMethod method{name, signature, dlsym(RTLD_DEFAULT, symbol)};
        EXPECT_NE(method.fnPtr, nullptr) << symbol;
        if (method.fnPtr != nullptr) {
            env->RegisterNatives(cls.get(), &method, 1);
        }
        for (char *text : {name, signature, symbol}) {
            free(text);
        }
    }
}

inline void bindAllNatives(JNIEnv *env) {
    static bool done = false;
    if (!done) {
        done = true;
        for (const char *cls : {NATIVE_EVENT_AGENT, PORTAL_AGENT, "com/zykora/command/MethodLevelModule",
                                "com/zykora/probe/l3trace/BcmRuntime", "com/zykora/jdbc/ZykoraStatement",
                                "oracle/jdbc/driver/OracleStatement"}) {
            bindNatives(env, cls);
        }
    }
}

// The test's own Java thread while it lasts.
class Worker {
public:
    explicit Worker(JNIEnv *own) : env(own) {}
    // As the thread's end in a running agent.
    ~Worker() {
        ThreadData *td = threadMgr->findThreadData(env);
        if (td != nullptr) {
            td->resetOnThreadEnd();
            threadMgr->deleteThreadData(td);
        }
    }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    void run(const std::string &words) {
        const LocalRef<jstring> text(env, env->NewStringUTF(words.c_str()));
        callStatic("am/test/families/Script", "run", "(Ljava/lang/String;)V", text.get());
    }
    template <typename... Args>
    void callStatic(const char *className, const char *name, const char *signature, Args... args) {
        const LocalRef<jclass> cls(env, env->FindClass(className));
        env->CallStaticVoidMethod(cls.get(), env->GetStaticMethodID(cls.get(), name, signature), args...);
        EXPECT_FALSE(clearException(env)) << name;
    }
    jint callInt(const char *name) {
        const LocalRef<jclass> cls(env, env->FindClass(NATIVE_EVENT_AGENT));
        const jint answer =
            env->CallStaticIntMethod(cls.get(), env->GetStaticMethodID(cls.get(), name, "()I"));
        EXPECT_FALSE(clearException(env)) << name;
        return answer;
    }
    std::vector<Seen> take() { return drain(threadMgr->findThreadData(env)); }
    ThreadData *data() { return threadMgr->getThreadData(env); }

    JNIEnv *const env;
};

// Takes threads and leaves their queues to the test.
class IdleTaker : public ThreadTaker {
public:
    bool canTakeThreads() override { return true; }
    bool manageThreadData(ThreadData *) override { return true; }
};

class FamiliesTest : public testing::Test {
protected:
    FamiliesTest() {
        bindAllNatives(RealJvm::env());
        ThreadMgr::create();
        ThreadMgr::setThreadTaker(&taker);
        threadMgr->start();
        MemoryMonitor::create();
        memoryMonitor->start();
        probeDisabled = false;
        configure(2, false);
    }
    ~FamiliesTest() override {
        probeDisabled = true;
        configure(oldLevel, false);
        setEntryExitNotification(false);
        setListenerCount(0);
        if (memoryMonitor != nullptr) {
            memoryMonitor->start(); // limits and averages as at first
            MemoryMonitor::destroy();
        }
        delete evtAgentMgr.get();
        ThreadMgr::setThreadTaker(nullptr);
        threadMgr->stop();
    }

    static void configure(uint32_t level, bool suppressNested) {
        probeLevel = level;
        disableNestedRequests = suppressNested;
    }

    // `body(worker)` on a new Java thread.
    template <typename Body>
    static void onThread(Body body) {
        RealJvm::onJavaThread([&](JNIEnv *env) {
            Worker worker(env);
            body(worker);
        });
    }

    const uint32_t oldLevel = probeLevel;
    RealVmSkin skin;
    IdleTaker taker;
};

} // namespace families_test
