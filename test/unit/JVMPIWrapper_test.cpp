#include "JVMPIWrapper.h"

#include "FakeVm.h"
#include "RecordedJvmti.h"
#include "RecordedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(JvmpiWrapper, WorksInItsPhasesOnly) {
    FakeVm vm;
    JVMPIWrapper &events = vm.wrapper;
    struct Case {
        uint32_t phase;
        bool monitors, clock;
    };
    const Case cases[] = {{JVMTI_PHASE_ONLOAD, true, false},
                          {JVMTI_PHASE_PRIMORDIAL, false, false},
                          {JVMTI_PHASE_LIVE, true, true},
                          {JVMTI_PHASE_START, false, true},
                          {JVMTI_PHASE_DEAD, false, false}};
    for (const Case &c : cases) {
        events.phase = c.phase;
        const RecordedLog log(LGK_DEBUG_MIN);
        const int before = vm.monitorsAlive();
        void *monitor = events.RawMonitorCreate("one");
        EXPECT_EQ(c.monitors, monitor != nullptr) << c.phase;
        events.RawMonitorDestroy(monitor);
        EXPECT_EQ(before, vm.monitorsAlive());
        const std::string refusal =
            "Invalid JVMTI Phase, cannot process call: Current Phase: " + std::to_string(c.phase) + " \n";
        EXPECT_EQ(c.monitors ? 0U : 2U, log.lines().size()) << c.phase;
        EXPECT_EQ(!c.monitors, log.has(refusal));
        EXPECT_EQ(c.clock, events.GetCurrentThreadCpuTime() > 0) << c.phase;
    }
}

TEST(JvmpiWrapper, FailuresOfTheJvmAreLoggedAndAnsweredWithNothing) {
    FakeVm vm;
    RecordedJvmti recorded;
    recorded.table.GetCurrentThreadCpuTime = [](jvmtiEnv *, jlong *nanos) {
        *nanos = 77;
        return JVMTI_ERROR_INTERNAL;
    };
    recorded.table.GetThreadInfo = [](jvmtiEnv *, jthread, jvmtiThreadInfo *) {
        return JVMTI_ERROR_INVALID_THREAD;
    };
    const RecordedLog log(LGK_ERROR);
    vm.failMonitorCreation(true);
    EXPECT_EQ(nullptr, vm.wrapper.RawMonitorCreate("one"));
    EXPECT_EQ(0, vm.wrapper.GetCurrentThreadCpuTime());
    JVMPI_Event *event = vm.wrapper.mapThreadData2JVMPI_Event(fakeEnv(1), nullptr, true, true);
    EXPECT_EQ(nullptr, event->thread_name);
    EXPECT_EQ(nullptr, event->group_name);
    freeJVMPIEvent(event);
    freeJVMPIEvent(nullptr);
    const std::vector<std::string> texts = log.texts();
    ASSERT_EQ(3U, texts.size());
    EXPECT_THAT(texts[2], testing::HasSubstr("Msg: Error when getting thread info from jvmti\n"));
    for (int n = 0; n < 100000; ++n) { // each event would fail alike
        vm.wrapper.GetCurrentThreadCpuTime();
    }
    EXPECT_GT(25U, log.texts().size());
}

TEST(JvmpiWrapper, SwitchesTheEventsItKnows) {
    FakeVm vm;
    const RecordedJvmti recorded;
    const std::vector<std::pair<int, int>> known = {{33, 52}, {34, 53}, {35, 54}, {60, 81}, {61, 82}};
    for (const auto &[number, event] : known) {
        RecordedJvmti::switches.clear();
        EXPECT_EQ(0, vm.wrapper.EnableEvent(number, nullptr));
        EXPECT_EQ(0, vm.wrapper.DisableEvent(number, nullptr));
        EXPECT_THAT(RecordedJvmti::switches,
                    ElementsAre(RecordedJvmti::Switch(JVMTI_ENABLE, static_cast<jvmtiEvent>(event)),
                                RecordedJvmti::Switch(JVMTI_DISABLE, static_cast<jvmtiEvent>(event))));
    }
    RecordedJvmti::switches.clear();
    for (const int unknown : {46, 0, -1, 52, 1000}) {
        EXPECT_EQ(0, vm.wrapper.EnableEvent(unknown, nullptr));
        EXPECT_EQ(0, vm.wrapper.DisableEvent(unknown, nullptr));
    }
    EXPECT_THAT(RecordedJvmti::switches, IsEmpty());
}

// ---------------------------------------------------------------- substitute JVM

constexpr jint DIAGNOSTICS = 0x7f000001;
jint diagnosticsResult = 0;

TEST(SubstituteJvm, AnswersForTheOldInterfacesAndPassesDiagnosticsOn) {
    FakeVm vm;
    initializeJVMWrapper();
    const RecordedLog log;
    void *found = nullptr;
    for (const jint version : {0x10000001, 0x10000002, 0x10000003}) {
        found = nullptr;
        EXPECT_EQ(0, fakeJvm->GetEnv(&found, version));
        EXPECT_EQ(&vm.wrapper, found);
        EXPECT_EQ(-1, fakeJvm->GetEnv(nullptr, version));
        jvmpiWrapper = nullptr;
        EXPECT_EQ(-1, fakeJvm->GetEnv(&found, version));
        jvmpiWrapper = &vm.wrapper;
    }
    EXPECT_THAT(log.texts(), IsEmpty());
    for (const jint version : {0x10000000, 0x10000004, 0x30010166, JNI_VERSION_1_8}) {
        EXPECT_EQ(-1, fakeJvm->GetEnv(&found, version));
    }
    EXPECT_EQ(4, log.count("No other interfaces but for JVMPI & JVMDG are supported in this JVMTI mode in AM "
                           "Library \n"));
    EXPECT_EQ(-1, fakeJvm->GetEnv(&found, DIAGNOSTICS)); // there is no JVM to ask
    JNIInvokeInterface_ table{};
    table.GetEnv = [](JavaVM *, void **, jint version) {
        EXPECT_EQ(DIAGNOSTICS, version);
        return diagnosticsResult;
    };
    JavaVM real{&table};
    vm.wrapper.realJvm = &real;
    for (const auto &[answer, wanted] : std::vector<std::pair<jint, jint>>{{0, 0}, {3, 0}, {-2, -1}}) {
        diagnosticsResult = answer;
        EXPECT_EQ(wanted, fakeJvm->GetEnv(&found, DIAGNOSTICS));
    }
}

} // namespace
