#include "ProbeMgr.h"

#include "FakeVm.h"
#include "ProbeContextPersister.h"
#include "RecordedJvmti.h"
#include "RecordedLog.h"
#include "TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

extern "C" {
JNIEXPORT jboolean JNICALL Java_com_zykora_probe_ProbeController_setModLevel(JNIEnv *, jclass, jint);
JNIEXPORT jint JNICALL Java_com_zykora_probe_ProbeController_getMonitoringLevel(JNIEnv *, jclass);
JNIEXPORT jboolean JNICALL Java_com_zykora_probe_ProbeController_isNativeProbeEnabled(JNIEnv *, jclass);
}

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool setModLevel(int level) {
    return Java_com_zykora_probe_ProbeController_setModLevel(nullptr, nullptr, level) == JNI_TRUE;
}
int monitoringLevel() {
    return Java_com_zykora_probe_ProbeController_getMonitoringLevel(nullptr, nullptr);
}

// Level 0, no flag set, gate closed, no context; with `keepContext` a context in a directory of its own.
class Levels : public testing::Test {
protected:
    Levels() { reset(); }
    ~Levels() override {
        reset();
        delete contextPersister;
        contextPersister = nullptr;
    }
    static void reset() {
        probeLevel = 0;
        probeLevelIsDefault = false;
        suppressL3Collection = false;
        suppressGCEventCollection = false;
        probeDisabled = true;
    }
    void keepContext(const std::string &content) {
        root.write("etc/am.mod", content + "\n");
        contextPersister = new ProbeContextPersister(root.path.c_str(), root.path.c_str());
        ASSERT_TRUE(contextPersister->ctx_direct(ProbeContextPersister::CTX_READ));
    }
    std::string saved() const { return TempDir::read(root.path / "am.mod"); }

    TempDir root;
};

TEST_F(Levels, Conversions) {
    const struct {
        uint32_t given, probe, monitoring;
    } cases[] = {{0, 0, 0},    {1, 1, 1001},       {3, 3, 1003},    {4, 0, 0},
                 {1000, 0, 0}, {0xFFFFFFFF, 0, 0}, {1001, 1, 1001}, {1004, 0, 0}};
    for (const auto &c : cases) {
        EXPECT_EQ(c.probe, ProbeMgr::convertMonitoringLevelToProbeLevel(c.given)) << c.given;
        EXPECT_EQ(c.monitoring, ProbeMgr::convertProbeLevelToMonitoringLevel(c.given)) << c.given;
    }
}

TEST_F(Levels, JavaChangesThemOnlyWhileTheProbeRuns) {
    EXPECT_EQ(0, monitoringLevel());
    for (const int level : {1, 3, 1002}) {
        EXPECT_FALSE(setModLevel(level));
    }
    EXPECT_EQ(0, monitoringLevel());
    EXPECT_EQ(JNI_FALSE, Java_com_zykora_probe_ProbeController_isNativeProbeEnabled(nullptr, nullptr));
    probeDisabled = false;
    EXPECT_EQ(JNI_TRUE, Java_com_zykora_probe_ProbeController_isNativeProbeEnabled(nullptr, nullptr));
    EXPECT_TRUE(setModLevel(1003));
    EXPECT_EQ(1003, monitoringLevel());
    EXPECT_FALSE(setModLevel(3)); // the same
    for (const int invalid : {4, 0, -1, 1004, 1000}) {
        EXPECT_FALSE(setModLevel(invalid));
        EXPECT_EQ(1003, monitoringLevel());
    }
    EXPECT_TRUE(setModLevel(1));
    EXPECT_EQ(1001, monitoringLevel());
}

TEST_F(Levels, AreSavedAndTold) {
    keepContext("1");
    probeLevel = 1;
    const RecordedLog log(LGK_DEBUG_MIN);
    EXPECT_TRUE(ProbeMgr::updateProbeLevelContext(1003));
    EXPECT_EQ("3", saved());
    EXPECT_TRUE(ProbeMgr::updateProbeLevelContext(2));
    EXPECT_FALSE(ProbeMgr::updateProbeLevelContext(1002));
    EXPECT_FALSE(ProbeMgr::updateProbeLevelContext(7));
    EXPECT_EQ("2", saved());
    EXPECT_THAT(log.texts(),
                testing::IsSupersetOf({"Native probe level changed from (3) to (2)",
                                       "Current Native probe level is same as new level (2)",
                                       "Invalid Native probe level (7). Keeping current MOD level (2)"}));
    EXPECT_THAT(log.texts(), testing::Not(testing::Contains(testing::HasSubstr("method events"))))
        << "the method trace is never switched by a change of level";
}

TEST_F(Levels, FlagsAreSavedOnAChange) {
    keepContext("1");
    const RecordedLog log(LGK_DEBUG_MIN);
    struct Case {
        bool (*update)(bool);
        const Relaxed<bool> &flag;
        char letter;
    };
    const Case cases[] = {{ProbeMgr::updateProbeLevelIsDefaultContext, probeLevelIsDefault, 'D'},
                          {ProbeMgr::updateSuppressL3CollectionContext, suppressL3Collection, 'S'},
                          {ProbeMgr::updateSuppressGCEventCollectionContext, suppressGCEventCollection, 'R'}};
    for (const Case &c : cases) {
        for (const bool value : {true, false}) {
            EXPECT_TRUE(c.update(value));
            EXPECT_EQ(value, c.flag);
            EXPECT_EQ(value, saved().find(c.letter) != std::string::npos) << saved();
            EXPECT_FALSE(c.update(value));
        }
    }
    EXPECT_TRUE(log.has("Native MOD DefaultLevelCondition changed from (0) to (1)"));
    EXPECT_TRUE(log.has("Current Native Suppress GC Event Collection is same as new level"));
}

// ---------------------------------------------------------------- event interface

jint answers[2] = {};
std::vector<jint> asked;
void *interfaceGiven = nullptr;

jint JNICALL giveInterface(JavaVM *, void **out, jint version) {
    asked.push_back(version);
    const jint answer = answers[version == 0x10000002 ? 0 : 1];
    if (answer >= 0) {
        *out = interfaceGiven;
    }
    return answer;
}

class EventInterface : public testing::Test {
protected:
    EventInterface() {
        asked.clear();
        interfaceGiven = &vm.wrapper;
        table.GetEnv = giveInterface;
        jvmpi = nullptr;
        eventInterface = nullptr;
    }
    ~EventInterface() override {
        ProbeMgr::onLoadInitialize(nullptr, nullptr);
        jvmpi = nullptr;
        unsetenv("am.use.jvmpi.v1");
    }

    FakeVm vm;
    JNIInvokeInterface_ table{};
    JavaVM machine{&table};
};

TEST_F(EventInterface, IsAskedForInTwoVersions) {
    struct Case {
        jint newer, older;
        bool oldOnly;
        std::vector<jint> asked;
        bool good;
        std::vector<int> messages;
    };
    const Case cases[] = {{0, -1, false, {0x10000002}, true, {1016}},
                          {-1, 0, false, {0x10000002, 0x10000001}, true, {1015, 1016}},
                          {-3, -3, false, {0x10000002, 0x10000001}, false, {1015, 1015}},
                          {0, 0, true, {0x10000001}, true, {1016}},
                          {0, -1, true, {0x10000001}, false, {1015}}};
    for (const Case &c : cases) {
        asked.clear();
        jvmpi = nullptr;
        eventInterface = nullptr;
        answers[0] = c.newer;
        answers[1] = c.older;
        if (c.oldOnly) {
            setenv("am.use.jvmpi.v1", "", 1);
        }
        ProbeMgr::onLoadInitialize(&machine, "");
        const RecordedLog log(LGK_INFO);
        testing::internal::CaptureStdout();
        EXPECT_EQ(c.good, ProbeMgr::initializeJVMPI());
        EXPECT_EQ(c.good ? "" : "ProbeMgr::initializeJVMPI() Failed during interface initialization\n",
                  testing::internal::GetCapturedStdout());
        EXPECT_EQ(c.asked, asked);
        EXPECT_EQ(c.messages, log.numbers());
        EXPECT_EQ(c.good ? &vm.wrapper : nullptr, jvmpi.get());
        EXPECT_EQ(jvmpi.get(), eventInterface.get());
        if (c.good) {
            EXPECT_TRUE(ProbeMgr::initializeJVMPI());
            EXPECT_EQ(c.asked, asked); // not asked again
        }
    }
}

} // namespace
