#include "ProbeMgr.h"

#include "ProbeContextPersister.h"
#include "RealJvm.h"
#include "TempDir.h"
#include "jnihelp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#define CONTEXT(name) Java_com_zykora_probe_ProbeContextPersisterProxy_##name

extern "C" {
JNIEXPORT jintArray JNICALL CONTEXT(initProbeContext)(JNIEnv *, jclass);
JNIEXPORT jintArray JNICALL CONTEXT(synchInProbeContext)(JNIEnv *, jclass);
JNIEXPORT jboolean JNICALL CONTEXT(synchOutProbeContext)(JNIEnv *, jclass, jintArray, jintArray, jint);
JNIEXPORT jboolean JNICALL CONTEXT(resetProbeContext)(JNIEnv *, jclass);
JNIEXPORT jstring JNICALL CONTEXT(getProbeContextLastReadFilePath)(JNIEnv *, jclass);
JNIEXPORT void JNICALL Java_com_zykora_probe_ProbeController_startNativeProbe(JNIEnv *, jclass);
JNIEXPORT void JNICALL Java_com_zykora_probe_ProbeController_stopNativeProbe(JNIEnv *, jclass);
}

using testing::ElementsAre;

namespace {

class ProbeNatives : public testing::Test {
protected:
    ProbeNatives() : env(RealJvm::env()) { env->PushLocalFrame(64); }
    ~ProbeNatives() override {
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
        env->PopLocalFrame(nullptr);
        delete contextPersister;
        contextPersister = nullptr;
        probeLevel = 0;
        probeLevelIsDefault = suppressL3Collection = suppressGCEventCollection = false;
    }
    void keepContext(const char *content) {
        root.write("etc/am.mod", content);
        contextPersister = new ProbeContextPersister(root.path.c_str(), root.path.c_str());
    }
    std::vector<int> numbers(jintArray array) {
        std::vector<int> result(array != nullptr ? static_cast<size_t>(env->GetArrayLength(array)) : 0);
        if (array != nullptr) {
            env->GetIntArrayRegion(array, 0, static_cast<jsize>(result.size()), result.data());
        }
        return result;
    }
    jintArray array(const std::vector<int> &values) {
        const jintArray result = env->NewIntArray(static_cast<jsize>(values.size()));
        env->SetIntArrayRegion(result, 0, static_cast<jsize>(values.size()), values.data());
        return result;
    }
    bool out(jintArray ids, jintArray values, jint count) {
        testing::internal::CaptureStderr();
        const jboolean result = CONTEXT(synchOutProbeContext)(env, nullptr, ids, values, count);
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(JNI_FALSE, env->ExceptionCheck());
        return result == JNI_TRUE;
    }

    JNIEnv *env;
    TempDir root;
};

TEST_F(ProbeNatives, ContextInAndOut) {
    keepContext("2DS");
    EXPECT_EQ(nullptr, CONTEXT(getProbeContextLastReadFilePath)(env, nullptr));
    EXPECT_THAT(numbers(CONTEXT(initProbeContext)(env, nullptr)), ElementsAre(2, 1, 1, 0));
    EXPECT_EQ(0U, probeLevel);
    char *path = jniStringCopy(env, CONTEXT(getProbeContextLastReadFilePath)(env, nullptr));
    EXPECT_STREQ(contextPersister->getLastReadFilePath(), path);
    free(path);
    EXPECT_THAT(numbers(CONTEXT(synchInProbeContext)(env, nullptr)), ElementsAre(2, 1, 1, 0));
    EXPECT_EQ(2U, probeLevel);
    EXPECT_TRUE(probeLevelIsDefault);
    EXPECT_TRUE(suppressL3Collection);
    EXPECT_FALSE(suppressGCEventCollection);
    EXPECT_TRUE(out(array({1, 3, 77, 4}), array({1003, 0, 1, -1}), 4));
    EXPECT_THAT(numbers(CONTEXT(initProbeContext)(env, nullptr)), ElementsAre(3, 1, 0, 1));
    EXPECT_EQ(JNI_TRUE, CONTEXT(resetProbeContext)(env, nullptr));
}

// Arrays that are missing, or shorter than the count, change nothing and throw nothing.
TEST_F(ProbeNatives, BadArraysOut) {
    keepContext("1");
    CONTEXT(initProbeContext)(env, nullptr);
    EXPECT_THAT(numbers(CONTEXT(synchInProbeContext)(env, nullptr)), ElementsAre(1, 0, 0, 0));
    const jintArray one = array({1});
    const jintArray level = array({3});
    const struct {
        jintArray ids, values;
        jint count;
    } bad[] = {{nullptr, level, 1}, {one, nullptr, 1},         {one, level, 0},        {one, level, -1},
               {one, level, 2},     {array({1, 2}), level, 2}, {one, level, 100000000}};
    for (const auto &given : bad) {
        EXPECT_TRUE(out(given.ids, given.values, given.count)) << given.count;
    }
    EXPECT_EQ(1U, probeLevel);
    EXPECT_TRUE(out(one, level, 1));
    EXPECT_EQ(3U, probeLevel);
}

TEST_F(ProbeNatives, NothingStartsWhileTheJvmShutsDown) {
    const RealVmSkin skin;
    EXPECT_FALSE(ProbeMgr::checkJvmShuttingDown(env));
    jvmShuttingDown = true;
    Java_com_zykora_probe_ProbeController_startNativeProbe(env, nullptr);
    const jthrowable thrown = env->ExceptionOccurred();
    env->ExceptionClear();
    jvmShuttingDown = false;
    ASSERT_NE(nullptr, thrown);
    const jmethodID toString =
        env->GetMethodID(env->GetObjectClass(thrown), "toString", "()Ljava/lang/String;");
    char *text = jniStringCopy(env, static_cast<jstring>(env->CallObjectMethod(thrown, toString)));
    EXPECT_STREQ("java.lang.RuntimeException: DC activity aborted: JVM is shutting down", text);
    free(text);
    EXPECT_TRUE(probeStopped);
    EXPECT_TRUE(probeDisabled);
    Java_com_zykora_probe_ProbeController_stopNativeProbe(env, nullptr); // at once: nothing runs
    ProbeMgr::destroy();
}

} // namespace
