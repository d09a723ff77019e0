#include "JVMTIUtils.h"

#include "FakeVm.h"
#include "RecordedJvmti.h"
#include "RecordedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

jvmtiPhase phaseNow = JVMTI_PHASE_LIVE;

jvmtiError JNICALL phase(jvmtiEnv *, jvmtiPhase *out) {
    *out = phaseNow;
    return JVMTI_ERROR_NONE;
}

TEST(JvmtiErrors, AreLoggedButForRacesAtShutdown) {
    const FakeVm vm;
    RecordedJvmti recorded;
    recorded.table.GetPhase = phase;
    struct Case {
        jvmtiError error;
        jvmtiPhase when;
        bool logged;
    };
    const Case cases[] = {
        {JVMTI_ERROR_NONE, JVMTI_PHASE_LIVE, false},
        {JVMTI_ERROR_WRONG_PHASE, JVMTI_PHASE_LIVE, true},
        {JVMTI_ERROR_WRONG_PHASE, JVMTI_PHASE_DEAD, false},
        {JVMTI_ERROR_INTERNAL, JVMTI_PHASE_DEAD, true},
    };
    for (const Case &c : cases) {
        phaseNow = c.when;
        const RecordedLog log;
        checkJvmtiError(c.error, "File.cpp", 12, "SomeCall");
        EXPECT_EQ(c.logged, log.has("ERROR: JVMTI error: NO: " + std::to_string(c.error) +
                                    " Name: JVMTI_ERROR_OF_A_TEST Location File.cpp:12 Msg: SomeCall\n"))
            << c.error;
        EXPECT_EQ(c.logged ? 1U : 0U, log.lines().size());
    }
}

TEST(JvmtiUtils, DoNothingWithoutAnEnvironment) {
    jvmtiEnv *old = jvmti;
    jvmti = nullptr;
    testing::internal::CaptureStderr();
    checkJvmtiError(JVMTI_ERROR_INTERNAL, "F", 1, "M");
    EXPECT_EQ("ERROR: JVMTI Error Occurred, Error No: 113 File: F Line: 1 Msg: M \n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ(nullptr, getErrorName(JVMTI_ERROR_INTERNAL));
    unsigned char *memory = nullptr;
    AllocateJVMTIMemory(8, &memory);
    EXPECT_EQ(nullptr, memory);
    freeJVMTIMemory(memory);
    enableThreadAndClassEvents();
    disableAllEvents();
    relinquishCapabilities();
    jvmti = old;
}

struct NoProcessor : GCProcessor {
    void gcStart() override {}
    void gcFinish() override {}
};

TEST(JvmtiUtils, EventsAreSwitchedInTheirOrder) {
    const FakeVm vm;
    const RecordedJvmti recorded;
    const auto numbers = [] {
        std::vector<std::pair<int, int>> result;
        for (const RecordedJvmti::Switch &one : RecordedJvmti::switches) {
            result.emplace_back(one.first, one.second);
        }
        RecordedJvmti::switches.clear();
        return result;
    };
    enableThreadAndClassEvents();
    EXPECT_THAT(numbers(), ElementsAre(Pair(1, 52), Pair(1, 53), Pair(1, 54)));
    NoProcessor processor;
    gcProcessor = &processor;
    enableThreadAndClassEvents();
    gcProcessor = nullptr;
    EXPECT_THAT(numbers(), ElementsAre(Pair(1, 52), Pair(1, 53), Pair(1, 54), Pair(1, 81), Pair(1, 82)));
    disableAllEvents();
    EXPECT_THAT(numbers(),
                ElementsAre(Pair(0, 52), Pair(0, 53), Pair(0, 54), Pair(0, 81), Pair(0, 82), Pair(0, 71)));
}

TEST(Signatures, BecomeJavaText) {
    struct Case {
        const char *signature;
        size_t index;
        const char *text;
        size_t behind;
    };
    const Case cases[] = {
        {"[[I", 0, "int[][]", 3},
        {"B", 0, "byte", 1},
        {"C", 0, "char", 1},
        {"D", 0, "double", 1},
        {"F", 0, "float", 1},
        {"J", 0, "long", 1},
        {"S", 0, "short", 1},
        {"V", 0, "void", 1},
        {"Z", 0, "boolean", 1},
        {"(I[Ljava/lang/String;Z)V", 2, "java.lang.String[]", 21},
        {"(I[Ljava/lang/String;Z)V", 21, "boolean", 22},
        {"LFoo$Bar;", 0, "Foo$Bar", 9},
        {"Ljava/lang", 0, "java.lang", 10}, // unfinished: the end, and not beyond it
        {"L", 0, "", 1},
    };
    const RecordedLog log;
    for (const Case &c : cases) {
        std::string out = "x";
        EXPECT_EQ(c.behind, translateSignature(c.signature, c.index, out)) << c.signature;
        EXPECT_EQ(std::string("x") + c.text, out);
    }
    EXPECT_THAT(log.texts(), IsEmpty());
    for (const char *bad : {"Q;", "", "[[", ")V"}) {
        std::string out = "x";
        EXPECT_EQ(strlen(bad), translateSignature(bad, 0, out));
        EXPECT_EQ("x", out);
        EXPECT_TRUE(log.has(std::string("Error: couldn't translate <") + bad + "> to readable text\n"));
    }
}

} // namespace
