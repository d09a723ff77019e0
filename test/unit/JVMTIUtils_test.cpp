#include "JVMTIUtils.h"

#include "FakeVm.h"
#include "RecordedJvmti.h"
#include "RecordedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

using testing::IsEmpty;

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

struct NoProcessor : GCProcessor {
    void gcStart() override {}
    void gcFinish() override {}
};

TEST(Signatures, BecomeJavaText) {
    struct Case {
        const char *signature;
        size_t index;
        const char *text;
        size_t behind;
    };
    const Case cases[] = {
        {"[[I", 0, "int[][]", 3},
        {"(I[Ljava/lang/String;Z)V", 2, "java.lang.String[]", 21},
        {"(I[Ljava/lang/String;Z)V", 21, "boolean", 22},
        {"LFoo$Bar;", 0, "Foo$Bar", 9},
        {"Ljava/lang", 0, "java.lang", 10}, // unfinished: the end, and not beyond it
        {"L", 0, "", 1},
    };
    const RecordedLog log;
    for (const Case &c : cases) {
        char out[32] = "x";
        EXPECT_EQ(c.behind, translateSignature(c.signature, c.index, out, sizeof(out))) << c.signature;
        EXPECT_EQ(std::string("x") + c.text, out);
        char cut[8] = "x";
        EXPECT_EQ(c.behind, translateSignature(c.signature, c.index, cut, sizeof(cut)));
        EXPECT_EQ((std::string("x") + c.text).substr(0, sizeof(cut) - 1), cut);
    }
    char primitives[64] = "";
    for (size_t at = 0; at < 9;) {
        at = translateSignature("BCDFIJSVZ", at, primitives, sizeof(primitives));
    }
    EXPECT_STREQ("bytechardoublefloatintlongshortvoidboolean", primitives);
    EXPECT_THAT(log.texts(), IsEmpty());
    for (const char *bad : {"Q;", "", "[[", ")V"}) {
        char out[8] = "x";
        EXPECT_EQ(strlen(bad), translateSignature(bad, 0, out, sizeof(out)));
        EXPECT_STREQ("x", out);
        EXPECT_TRUE(log.has(std::string("Error: couldn't translate <") + bad + "> to readable text\n"));
    }
}

} // namespace
