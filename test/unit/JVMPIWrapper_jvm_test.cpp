#include "JVMPIWrapper.h"

#include "RealJvm.h"
#include "RecordedLog.h"
#include "ZykLock.h"
#include "jnihelp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

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

jobject currentThread(JNIEnv *env) {
    const jclass cls = env->FindClass("java/lang/Thread");
    const jobject thread = env->CallStaticObjectMethod(
        cls, env->GetStaticMethodID(cls, "currentThread", "()Ljava/lang/Thread;"));
    EXPECT_FALSE(clearException(env));
    return thread;
}

void interrupt(JNIEnv *env, jobject thread) {
    env->CallVoidMethod(thread, env->GetMethodID(env->FindClass("java/lang/Thread"), "interrupt", "()V"));
    EXPECT_FALSE(clearException(env));
}

bool takeInterrupt(JNIEnv *env) {
    const jclass cls = env->FindClass("java/lang/Thread");
    const jboolean was = env->CallStaticBooleanMethod(cls, env->GetStaticMethodID(cls, "interrupted", "()Z"));
    EXPECT_FALSE(clearException(env));
    return was == JNI_TRUE;
}

int64_t millisSince(std::chrono::steady_clock::time_point start) {
    const auto taken = std::chrono::steady_clock::now() - start;
    return std::chrono::duration_cast<std::chrono::milliseconds>(taken).count();
}

TEST_F(RealInterface, AnInterruptEndsNoWaitAndIsPendingAfterwards) {
    const RecordedLog log(LGK_ERROR);
    for (const bool throwing : {false, true}) {
        interrupt(env, currentThread(env));
        if (throwing) {
            env->ThrowNew(env->FindClass("java/lang/IllegalStateException"), "of the caller");
        }
        const auto start = std::chrono::steady_clock::now();
        waitOnLocalLock(300);
        EXPECT_LE(300, millisSince(start));
        EXPECT_EQ(throwing, env->ExceptionCheck() == JNI_TRUE);
        env->ExceptionClear();
        EXPECT_TRUE(takeInterrupt(env));
    }
    waitOnLocalLock(1);
    EXPECT_FALSE(takeInterrupt(env)) << "none comes of itself";
    EXPECT_THAT(log.texts(), IsEmpty());
}

// The JVM reports such a wait as interrupted and forgets the notice.
TEST_F(RealInterface, ANoticeThatComesWithAnInterruptEndsTheWait) {
    ZykLock lock;
    std::atomic<jobject> waiter{nullptr};
    std::atomic<bool> holds{false};
    int64_t waited = 0;
    bool kept = false;
    std::thread waiting([&] {
        RealJvm::onJavaThread([&](JNIEnv *own) {
            const auto start = std::chrono::steady_clock::now();
            const ZykLockGuard guard(lock);
            waiter = own->NewGlobalRef(currentThread(own));
            holds = true; // nobody else gets in before the wait has begun
            lock.wait(60000);
            waited = millisSince(start);
            kept = takeInterrupt(own);
        });
    });
    while (!holds) {
        std::this_thread::yield();
    }
    {
        const ZykLockGuard guard(lock);
        lock.notifyAll();
        interrupt(env, waiter);
    }
    waiting.join();
    env->DeleteGlobalRef(waiter);
    EXPECT_GT(30000, waited);
    EXPECT_TRUE(kept);
}

} // namespace
