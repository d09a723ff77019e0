// Each test loads the agent in a process of its own, into a JVM that is a table of functions.
#include "ChildRun.h"
#include "FakeVm.h"
#include "JVMTIAgent.h"
#include "ProbeMgr.h"
#include "RecordedJvmti.h"
#include "cmdline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr jint WANTED_VERSION = 0x30010166;

class LoadingJvm {
public:
    LoadingJvm() {
        jvmti = nullptr;
        jvmpiWrapper = nullptr;
        eventInterface = nullptr;
        invocation.GetEnv = [](JavaVM *, void **env, jint version) {
            EXPECT_EQ(WANTED_VERSION, version);
            ++timesAsked;
            *env = givenEnv;
            return answer;
        };
        recorded.table.GetCapabilities = [](jvmtiEnv *, jvmtiCapabilities *out) {
            *out = {};
            out->can_get_bytecodes = 1;
            return capabilityResult;
        };
        recorded.table.AddCapabilities = [](jvmtiEnv *, const jvmtiCapabilities *in) {
            if (capabilityResult != JVMTI_ERROR_NONE && in->can_tag_objects != 0) {
                return capabilityResult;
            }
            const auto *given = reinterpret_cast<const unsigned char *>(in);
            std::transform(given, given + sizeof(added), reinterpret_cast<unsigned char *>(&added),
                           reinterpret_cast<unsigned char *>(&added), std::bit_or<unsigned char>());
            return JVMTI_ERROR_NONE;
        };
        recorded.table.RelinquishCapabilities = [](jvmtiEnv *, const jvmtiCapabilities *in) {
            relinquished = *in;
            return JVMTI_ERROR_NONE;
        };
        recorded.table.SetEventCallbacks = [](jvmtiEnv *, const jvmtiEventCallbacks *in, jint size) {
            EXPECT_EQ(35 * static_cast<jint>(sizeof(void *)), size);
            memcpy(&callbacks, in, static_cast<size_t>(size));
            return JVMTI_ERROR_NONE;
        };
        recorded.table.GetThreadInfo = [](jvmtiEnv *, jthread, jvmtiThreadInfo *) {
            ++threadsLookedAt;
            return JVMTI_ERROR_THREAD_NOT_ALIVE;
        };
        givenEnv = &recorded.environment;
    }

    jint load(const char *options) {
        std::string text = options != nullptr ? options : "";
        return Agent_OnLoad(&machine, options != nullptr ? text.data() : nullptr, nullptr);
    }
    static std::vector<std::pair<int, int>> switched() {
        std::vector<std::pair<int, int>> result(RecordedJvmti::switches.begin(),
                                                RecordedJvmti::switches.end());
        RecordedJvmti::switches.clear();
        return result;
    }

    FakeVm vm;
    RecordedJvmti recorded;
    JNIInvokeInterface_ invocation{};
    JavaVM machine{&invocation};
    static inline jint answer = JNI_OK;
    static inline void *givenEnv = nullptr;
    static inline jvmtiError capabilityResult = JVMTI_ERROR_NONE;
    static inline int timesAsked = 0;
    static inline int threadsLookedAt = 0;
    static inline jvmtiCapabilities added{};
    static inline jvmtiCapabilities relinquished{};
    static inline jvmtiEventCallbacks callbacks{};
};

// ---------------------------------------------------------------- whether it runs

TEST(AgentLoad, SwitchesDecideWhetherItRuns) {
    if (inChild()) {
        LoadingJvm jvm;
        const jint result = jvm.load(nullptr);
        printf("%d %d", result, LoadingJvm::timesAsked);
        endChild();
    }
    struct Case {
        const char *variable;
        std::vector<std::string> arguments;
        bool runs;
    };
    const Case cases[] = {
        {"", {}, true},
        {"false", {}, false},
        {"FaLsE", {}, false},
        {"0", {}, true},
        {"falsehood", {}, true},
        {"TRUE", {"-DNORAK_DC_ENABLED=FALSE"}, false},
        {"", {"-DNORAK_DC_ENABLED=true", "-DNORAK_DC_ENABLED=false"}, false}, // too short to decide
        {"", {"-DNORAK_DC_ENABLED=never", "-DNORAK_DC_ENABLED=false"}, true}, // the first long one decides
        {"", {"-DNORAK_DC_ENABLED=falsehood"}, true},
        {"", {"x-DNORAK_DC_ENABLED=false", "-DNORAK_DC_ENABLED="}, true},
    };
    for (const Case &c : cases) {
        const ChildResult child = runInChild({c.arguments, {{"AM_DC_ENABLED", c.variable}}, ""});
        EXPECT_EQ(c.runs ? "0 1" : "0 0", child.out) << c.variable << testing::PrintToString(c.arguments);
        EXPECT_EQ("", child.err);
    }
}

TEST(AgentLoad, FailuresStopTheJvmWithOneLine) {
    if (leftToChild()) {
        return;
    }
    LoadingJvm jvm;
    const auto failing = [](const std::function<jint()> &load) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(-1, load());
        EXPECT_EQ(nullptr, jvmtiAgent.get());
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ("## ERROR: JVM Pointer is NULL, cannot proceed. Please check the JDK install \n",
              failing([] { return Agent_OnLoad(nullptr, nullptr, nullptr); }));
    LoadingJvm::answer = JNI_EVERSION;
    EXPECT_EQ("## ERROR: Unable to create jvmtiEnv, GetEnv failed, Error No: -3 \n",
              failing([&] { return jvm.load(""); }));
    LoadingJvm::answer = JNI_OK;
    LoadingJvm::givenEnv = nullptr;
    EXPECT_EQ("## ERROR: Unable to create jvmtiEnv, GetEnv failed, Error No: 0 \n",
              failing([&] { return jvm.load(""); }));
    EXPECT_THAT(LoadingJvm::switched(), IsEmpty());
    endChild();
}

TEST(AgentLoad, SetsTheJvmUp) {
    if (!inChild()) {
        for (const std::string word : {"FALSE", "false", "0"}) {
            const ChildResult child = runInChild({{}, {{"AM_HEAPDUMP", word}}, ""});
            EXPECT_EQ(0, child.status) << child.out << child.err;
            EXPECT_EQ(word == "FALSE" ? "" : "## Heap dump is disabled.\n", child.out);
        }
        return;
    }
    LoadingJvm jvm;
    EXPECT_EQ(0, jvm.load("/srv/runtime"));
    const bool heapDumps = std::string(getenv("AM_HEAPDUMP")) == "FALSE"; // which is not the word
    EXPECT_EQ(heapDumps, heapDumpEnabled);
    EXPECT_EQ(heapDumps, LoadingJvm::added.can_tag_objects == 1);
    EXPECT_THAT(LoadingJvm::switched(), ElementsAre(Pair(1, 50), Pair(1, 51), Pair(1, 54)));
    EXPECT_EQ(1U, LoadingJvm::added.can_get_bytecodes); // what was there before
    EXPECT_EQ(1U, LoadingJvm::added.can_generate_all_class_hook_events);
    EXPECT_EQ(1U, LoadingJvm::added.can_get_current_thread_cpu_time);
    EXPECT_EQ(0U, LoadingJvm::added.can_generate_garbage_collection_events);
    EXPECT_EQ(nullptr, LoadingJvm::callbacks.GarbageCollectionStart);
    ASSERT_NE(nullptr, jvmtiAgent.get());
    EXPECT_EQ(JVMTI_PHASE_PRIMORDIAL, static_cast<int>(jvmpiWrapper->phase));
    EXPECT_EQ(jvmpiWrapper.get(), eventInterface.get());
    EXPECT_EQ(&jvm.machine, realJvm);
    Agent_OnUnload(&jvm.machine);
    EXPECT_NE(nullptr, jvmtiAgent.get());
    endChild();
}

// Failed JVMTI calls, monitors included, do not end the start.
TEST(AgentLoad, GoesOnWithoutWhatTheJvmRefuses) {
    if (leftToChild()) {
        return;
    }
    LoadingJvm jvm;
    jvm.vm.failMonitorCreation(true);
    LoadingJvm::capabilityResult = JVMTI_ERROR_NOT_AVAILABLE;
    EXPECT_EQ(0, jvm.load(""));
    EXPECT_EQ(1U, LoadingJvm::added.can_get_current_thread_cpu_time);
    EXPECT_EQ(1U, LoadingJvm::added.can_generate_all_class_hook_events);
    EXPECT_EQ(0U, LoadingJvm::added.can_tag_objects) << "the one that was refused";
    LoadingJvm::callbacks.VMDeath(jvmti, nullptr);
    EXPECT_TRUE(vmDeadSeen);
    endChild();
}

// ---------------------------------------------------------------- events

struct CountingProcessor : GCProcessor {
    void gcStart() override { ++starts; }
    void gcFinish() override { ++finishes; }
    int starts = 0;
    int finishes = 0;
};

void sendEveryEvent() {
    LoadingJvm::callbacks.ThreadStart(jvmti, fakeEnv(1), nullptr);
    LoadingJvm::callbacks.ThreadEnd(jvmti, fakeEnv(1), nullptr);
    LoadingJvm::callbacks.GarbageCollectionStart(jvmti);
    LoadingJvm::callbacks.GarbageCollectionFinish(jvmti);
}

TEST(AgentEvents, FlowWhileTheProbeCollects) {
    if (leftToChild()) {
        return;
    }
    LoadingJvm jvm;
    CountingProcessor processor;
    gcProcessor = &processor;
    EXPECT_EQ(0, jvm.load(""));
    EXPECT_EQ(1U, LoadingJvm::added.can_generate_garbage_collection_events);
    sendEveryEvent();
    EXPECT_EQ(0, LoadingJvm::threadsLookedAt);
    EXPECT_EQ(1, processor.starts); // told whatever the state of the probe
    EXPECT_EQ(0, processor.finishes);
    probeDisabled = false;
    sendEveryEvent();
    EXPECT_EQ(1, LoadingJvm::threadsLookedAt); // the end of a thread needs no name
    EXPECT_EQ(2, processor.starts);
    EXPECT_EQ(1, processor.finishes);
    gcProcessor = nullptr;
    sendEveryEvent();
    LoadingJvm::callbacks.VMDeath(jvmti, nullptr);
    const int before = LoadingJvm::threadsLookedAt;
    gcProcessor = &processor;
    sendEveryEvent();
    EXPECT_EQ(before, LoadingJvm::threadsLookedAt);
    EXPECT_EQ(2, processor.starts);
    endChild();
}

TEST(AgentEvents, AreIgnoredIfItIsHollow) {
    if (inChild()) {
        LoadingJvm jvm;
        CountingProcessor processor;
        gcProcessor = &processor;
        EXPECT_EQ(0, jvm.load(getenv("AM_TEST_OPTIONS")));
        EXPECT_TRUE(dcDisabledOption);
        EXPECT_EQ(nullptr, jvmtiAgent.get());
        EXPECT_EQ(1U, LoadingJvm::added.can_generate_all_class_hook_events);
        EXPECT_THAT(LoadingJvm::switched(), ElementsAre(Pair(1, 50), Pair(1, 51)));
        LoadingJvm::callbacks.VMInit(jvmti, fakeEnv(1), nullptr);
        EXPECT_THAT(LoadingJvm::switched(),
                    ElementsAre(Pair(1, 52), Pair(1, 53), Pair(1, 54), Pair(1, 81), Pair(1, 82)));
        probeDisabled = false;
        sendEveryEvent();
        LoadingJvm::callbacks.VMDeath(jvmti, fakeEnv(1));
        EXPECT_EQ(0, LoadingJvm::threadsLookedAt + processor.starts + processor.finishes);
        EXPECT_FALSE(jvmShuttingDown);
        endChild();
    }
    for (const char *options : {"disableDC", "disableDC,/srv/rt", "/srv/disableDCx"}) {
        const ChildResult child = runInChild({{}, {{"AM_TEST_OPTIONS", options}}, ""});
        EXPECT_EQ(0, child.status) << child.out;
        EXPECT_EQ("", child.out + child.err);
    }
}

// A JVM that knows no class at all.
TEST(AgentEvents, WithoutItsJavaHalfItLiesDormant) {
    if (leftToChild()) {
        return;
    }
    LoadingJvm jvm;
    EXPECT_EQ(0, jvm.load(""));
    LoadingJvm::switched();
    JNINativeInterface_ table{};
    table.FindClass = [](JNIEnv *, const char *) -> jclass { return nullptr; };
    table.ExceptionCheck = [](JNIEnv *) -> jboolean { return JNI_FALSE; };
    table.NewStringUTF = [](JNIEnv *, const char *) -> jstring { return nullptr; };
    table.NewString = [](JNIEnv *, const jchar *, jsize) -> jstring { return nullptr; };
    table.ExceptionClear = [](JNIEnv *) {};
    JNIEnv env{&table};
    LoadingJvm::callbacks.VMInit(jvmti, &env, nullptr);
    EXPECT_THAT(LoadingJvm::switched(),
                ElementsAre(Pair(0, 52), Pair(0, 53), Pair(0, 54), Pair(0, 81), Pair(0, 82), Pair(0, 71)));
    EXPECT_EQ(1U, LoadingJvm::relinquished.can_tag_objects);
    EXPECT_EQ(1U, LoadingJvm::relinquished.can_get_current_thread_cpu_time);
    EXPECT_EQ(1U, LoadingJvm::relinquished.can_generate_all_class_hook_events);
    EXPECT_EQ(JVMTI_PHASE_LIVE, static_cast<int>(jvmpiWrapper->phase));
    // The lock of VM init is free again.
    std::thread([] { LoadingJvm::callbacks.VMDeath(jvmti, nullptr); }).join();
    EXPECT_TRUE(vmDeadSeen);
    endChild();
}

TEST(AgentEvents, DeathWaitsForTheProbeManager) {
    if (leftToChild()) {
        return;
    }
    LoadingJvm jvm;
    EXPECT_EQ(0, jvm.load(""));
    jvmtiAgent->setPhase(JVMTI_PHASE_LIVE);
    ProbeMgr::initialize();
    std::thread javaSide([] {
        while (!jvmShuttingDown) {
            std::this_thread::yield();
        }
        EXPECT_NE(nullptr, jvmtiAgent.get());
        ProbeMgr::destroy();
    });
    const auto start = std::chrono::steady_clock::now();
    testing::internal::CaptureStderr();
    LoadingJvm::callbacks.VMDeath(jvmti, nullptr);
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    javaSide.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(JVMTI_PHASE_DEAD, static_cast<int>(jvmpiWrapper->phase));
    EXPECT_EQ(nullptr, jvmtiAgent.get());
    EXPECT_TRUE(vmDeadSeen);
    endChild();
}

} // namespace
