#include "ProbeMgr.h"

#include "FakeVm.h"
#include "ProbeContextPersister.h"
#include "RecordedLog.h"
#include "TempDir.h"
#include "Threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

extern "C" {
JNIEXPORT jboolean JNICALL Java_com_zykora_probe_ProbeController_setModLevel(JNIEnv *, jclass, jint);
JNIEXPORT jint JNICALL Java_com_zykora_probe_ProbeController_getMonitoringLevel(JNIEnv *, jclass);
}

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

TEST_F(Levels, JavaChangesThemOnlyWhileTheProbeRuns) {
    EXPECT_FALSE(setModLevel(3));
    EXPECT_EQ(0, monitoringLevel());
    probeDisabled = false;
    for (const int level : {1003, 1, 3, 1001}) {
        EXPECT_TRUE(setModLevel(level));
        EXPECT_FALSE(setModLevel(level));
        for (const int invalid : {4, 0, -1, 1004, 1000, INT32_MIN, INT32_MAX}) {
            EXPECT_FALSE(setModLevel(invalid));
        }
        EXPECT_EQ(1000 + level % 1000, monitoringLevel());
    }
}

// Each is saved and told when it changes, and only then.
TEST_F(Levels, ChangesAreSavedAndTold) {
    keepContext("1");
    probeLevel = 1;
    const RecordedLog log(LGK_DEBUG_MIN);
    const auto level = [](int to) { return ProbeMgr::updateProbeLevelContext(static_cast<uint32_t>(to)); };
    const auto isDefault = [](int to) { return ProbeMgr::updateProbeLevelIsDefaultContext(to != 0); };
    const auto noL3 = [](int to) { return ProbeMgr::updateSuppressL3CollectionContext(to != 0); };
    const auto noGC = [](int to) { return ProbeMgr::updateSuppressGCEventCollectionContext(to != 0); };
    const struct {
        std::function<bool(int)> update;
        int value;
        bool changed;
        const char *saved, *told;
    } steps[] = {{level, 1003, true, "3", "Native probe level changed from (1) to (3)"},
                 {level, 2, true, "2", "Native probe level changed from (3) to (2)"},
                 {level, 1002, false, "2", "Current Native probe level is same as new level (2)"},
                 {level, 7, false, "2", "Invalid Native probe level (7). Keeping current MOD level (2)"},
                 {isDefault, 1, true, "2D", "Native MOD DefaultLevelCondition changed from (0) to (1)"},
                 {isDefault, 1, false, "2D", nullptr},
                 {noL3, 1, true, "2DS", nullptr},
                 {isDefault, 0, true, "2S", nullptr},
                 {noGC, 1, true, "2SR", nullptr},
                 {noGC, 1, false, "2SR", "Current Native Suppress GC Event Collection is same as new level"},
                 {noL3, 0, true, "2R", nullptr},
                 {noGC, 0, true, "2", nullptr}};
    for (const auto &step : steps) {
        EXPECT_EQ(step.changed, step.update(step.value)) << step.saved;
        EXPECT_EQ(step.saved, saved());
        EXPECT_TRUE(step.told == nullptr || log.has(step.told)) << step.told;
    }
    EXPECT_FALSE(probeLevelIsDefault || suppressL3Collection || suppressGCEventCollection);
    EXPECT_THAT(log.texts(), testing::Not(testing::Contains(testing::HasSubstr("method events"))))
        << "the method trace is never switched by a change of level";
}

// What Java may call at any time, as it does.
void useContext(int32_t level) {
    const int32_t ids[] = {1, 2, 3, 4, 99};
    const int32_t values[] = {level, level & 1, 1, 0, 7};
    ProbeMgr::synchOutProbeContext(ids, values, 5);
    ProbeMgr::updateSuppressL3CollectionContext(false);
    delete[] ProbeMgr::initProbeContext();
    delete[] ProbeMgr::synchInProbeContext();
    ProbeMgr::resetProbeContext();
    free(ProbeMgr::copyContextFilePath());
}

TEST_F(Levels, ContextMayBeDestroyedWhileItIsUsed) {
    const FakeVm vm;
    const auto create = [this] {
        const ContextHold hold;
        contextPersister = new ProbeContextPersister(root.path.c_str(), root.path.c_str());
        contextPersister->ctx_direct(ProbeContextPersister::CTX_READ);
    };
    create(); // alone, as at start: this makes the monitor
    std::atomic<bool> going{true};
    std::thread users([&going] {
        onThreads(2, [&going](int number) {
            while (going) {
                useContext(1 + number);
            }
        });
    });
    for (int i = 0; i < 300; ++i) {
        std::this_thread::yield();
        ProbeMgr::destroy();
        create();
    }
    ProbeMgr::destroy();
    going = false;
    users.join();

    EXPECT_EQ(contextPersister, nullptr);
    EXPECT_EQ(ProbeMgr::synchInProbeContext(), nullptr);
    EXPECT_FALSE(ProbeMgr::resetProbeContext());
    EXPECT_EQ(ProbeMgr::copyContextFilePath(), nullptr);
}

} // namespace
