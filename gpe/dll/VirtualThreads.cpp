#include "VirtualThreads.h"

#include "JVMTIUtils.h"
#include "ProbeState.h"
#include "Relaxed.h"
#include "jnihelp.h"

#include <cstring>

namespace {

// Set once, at VM init.
Relaxed<jclass> virtualClass(nullptr); // global; null where the JVM has no virtual threads
jfieldID numberField = nullptr;
jmethodID isAliveMethod = nullptr;

JNIEnv *virtualKey(jlong number) {
    return reinterpret_cast<JNIEnv *>(static_cast<uintptr_t>(number) << 1 | 1);
}

// A thread that the JVM keeps for carrying others. It may call before it has carried any.
bool isCarrier(JNIEnv *env, jthread thread) {
    const LocalRef<jclass> cls(env, env->GetObjectClass(thread));
    char *signature = nullptr;
    if (jvmti->GetClassSignature(cls.get(), &signature, nullptr) != JVMTI_ERROR_NONE) {
        return true;
    }
    const bool carrier = strcmp(signature, "Ljdk/internal/misc/CarrierThread;") == 0;
    freeJVMTIMemory(signature);
    return carrier;
}

jthread currentThread() {
    jthread thread = nullptr;
    return jvmti->GetCurrentThread(&thread) == JVMTI_ERROR_NONE ? thread : nullptr;
}

// A virtual thread mostly has none. Its group is always the same and not kept.
char *nameOf(JNIEnv *env, jthread thread) {
    jvmtiThreadInfo info{};
    if (jvmti->GetThreadInfo(thread, &info) != JVMTI_ERROR_NONE) {
        return nullptr;
    }
    const LocalRef<jobject> group(env, info.thread_group);
    const LocalRef<jobject> loader(env, info.context_class_loader);
    char *name = info.name != nullptr && *info.name != '\0' ? dupString(info.name) : nullptr;
    freeJVMTIMemory(info.name);
    return name;
}

} // namespace

uint32_t numberOfVirtual(const JNIEnv *key) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key) >> 1) | FIRST_VIRTUAL_NUMBER;
}

void learnVirtualThreads(JNIEnv *env) {
    const LocalRef<jclass> found(env, env->FindClass("java/lang/BaseVirtualThread"));
    if (!found) {
        env->ExceptionClear();
        return;
    }
    const LocalRef<jclass> thread(env, env->FindClass("java/lang/Thread"));
    if (clearException(env)) {
        return;
    }
    numberField = env->GetFieldID(thread.get(), "tid", "J");
    if (clearException(env)) {
        return;
    }
    isAliveMethod = env->GetMethodID(thread.get(), "isAlive", "()Z");
    if (!clearException(env)) {
        virtualClass = static_cast<jclass>(env->NewGlobalRef(found.get()));
    }
}

Caller callerOn(JNIEnv *env, const JNIEnv *known) {
    const jclass virtuals = virtualClass;
    if (virtuals == nullptr) {
        return {env, true};
    }
    const LocalRef<jthread> thread(env, currentThread());
    if (!thread) {
        return {env, false};
    }
    JNIEnv *key = virtualKey(env->GetLongField(thread.get(), numberField));
    if (key == known || env->IsInstanceOf(thread.get(), virtuals) != JNI_FALSE) {
        return {key, true};
    }
    return {env, !isCarrier(env, thread.get())};
}

VirtualThread describeVirtual(JNIEnv *env) {
    const LocalRef<jthread> thread(env, currentThread());
    const jweak reference = thread ? env->NewWeakGlobalRef(thread.get()) : nullptr;
    if (reference == nullptr) {
        env->ExceptionClear();
        return {nullptr, nullptr};
    }
    return {reference, nameOf(env, thread.get())};
}

void releaseVirtual(jweak reference) {
    JNIEnv *env = reference != nullptr ? ownEnv() : nullptr;
    if (env != nullptr) {
        env->DeleteWeakGlobalRef(reference);
    }
}

// A question that cannot be asked is no sign of an end.
bool isVirtualAlive(JNIEnv *env, jweak reference) {
    const LocalRef<jobject> thread(env, env->NewLocalRef(reference));
    if (!thread) {
        return env->IsSameObject(reference, nullptr) == JNI_FALSE;
    }
    const bool alive = env->CallBooleanMethod(thread.get(), isAliveMethod) != JNI_FALSE;
    return clearException(env) || alive;
}
