// What the Java half's trace listener has seen: see amtest.RecordedTrace.
#pragma once

#include "jnihelp.h"

#include <cstdlib>
#include <jni.h>
#include <string>

constexpr char RECORDED_TRACE[] = "amtest/RecordedTrace";

// Installs the listener; a failing one notes what it gets and then throws.
inline void installTrace(JNIEnv *env, bool failing) {
    const LocalRef<jclass> recorder(env, env->FindClass(RECORDED_TRACE));
    env->CallStaticVoidMethod(recorder.get(), env->GetStaticMethodID(recorder.get(), "install", "(Z)V"),
                              static_cast<jboolean>(failing));
    clearException(env);
}

inline std::string takeTrace(JNIEnv *env) {
    const LocalRef<jclass> recorder(env, env->FindClass(RECORDED_TRACE));
    const jmethodID take = env->GetStaticMethodID(recorder.get(), "take", "()Ljava/lang/String;");
    const LocalRef<jobject> lines(env, env->CallStaticObjectMethod(recorder.get(), take));
    clearException(env);
    char *copy = jniStringCopy(env, static_cast<jstring>(lines.get()));
    const std::string result(copy);
    free(copy);
    return result;
}
