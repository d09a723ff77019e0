#include "JVMPIWrapper.h"

#include "RealJvm.h"
#include "RecordedLog.h"
#include "ZykLock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class RealInterface : public testing::Test {
protected:
    RealInterface() : env(RealJvm::env()) { env->PushLocalFrame(32); }
    ~RealInterface() override { env->PopLocalFrame(nullptr); }

    jobject newObject(const char *className, const char *signature, jobject first, jobject second = nullptr) {
        const jclass cls = env->FindClass(className);
        return env->NewObject(cls, env->GetMethodID(cls, "<init>", signature), first, second);
    }

    JNIEnv *env;
    RealVmSkin skin;
};

TEST_F(RealInterface, ThreadAndGroupNames) {
    constexpr char NAME[] = "worker \xC3\xA4\xE2\x82\xAC\xED\xA0\xBD\xED\xB8\x80"; // with a surrogate pair
    const jobject group =
        newObject("java/lang/ThreadGroup", "(Ljava/lang/String;)V", env->NewStringUTF("crew"));
    const jobject thread = newObject("java/lang/Thread", "(Ljava/lang/ThreadGroup;Ljava/lang/String;)V",
                                     group, env->NewStringUTF(NAME));
    const RecordedLog log(LGK_ERROR);
    for (int i = 0; i < 100; ++i) {
        JVMPI_Event *event = skin.wrapper.mapThreadData2JVMPI_Event(env, thread, true, true);
        EXPECT_STREQ(NAME, event->thread_name);
        EXPECT_STREQ("crew", event->group_name);
        freeJVMPIEvent(event);
    }
    EXPECT_THAT(log.texts(), IsEmpty());
    // What is no thread is told and costs the names only.
    JVMPI_Event *event = skin.wrapper.mapThreadData2JVMPI_Event(env, static_cast<jthread>(group), true, true);
    EXPECT_EQ(nullptr, event->thread_name);
    freeJVMPIEvent(event);
    EXPECT_THAT(log.texts(), testing::ElementsAre(HasSubstr("JVMTI_ERROR_INVALID_THREAD")));
}

} // namespace
