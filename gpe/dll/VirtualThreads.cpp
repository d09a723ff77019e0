#include "VirtualThreads.h"

#include "JVMTIUtils.h"
#include "ProbeState.h"
#include "Relaxed.h"
#include "ThreadData.h"
#include "jnihelp.h"

#include <cstring>
#include <mutex>

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
void copyName(JNIEnv *env, jthread thread, ThreadData &data) {
    jvmtiThreadInfo info{};
    if (jvmti->GetThreadInfo(thread, &info) != JVMTI_ERROR_NONE) {
        return;
    }
    const LocalRef<jobject> group(env, info.thread_group);
    const LocalRef<jobject> loader(env, info.context_class_loader);
    if (info.name != nullptr && *info.name != '\0') {
        data.threadName.store(dupString(info.name), std::memory_order_release);
    }
    freeJVMTIMemory(info.name);
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

bool describeVirtual(JNIEnv *env, ThreadData &data) {
    const LocalRef<jthread> thread(env, currentThread());
    data.virtualThread = thread ? env->NewWeakGlobalRef(thread.get()) : nullptr;
    if (data.virtualThread == nullptr) {
        env->ExceptionClear();
        return false;
    }
    copyName(env, thread.get(), data);
    return true;
}

void releaseVirtual(ThreadData &data) {
    JNIEnv *env = data.virtualThread != nullptr ? ownEnv() : nullptr;
    if (env != nullptr) {
        env->DeleteWeakGlobalRef(data.virtualThread);
    }
    data.virtualThread = nullptr;
}

// A question that cannot be asked is no sign of an end.
bool isVirtualAlive(JNIEnv *env, const ThreadData &data) {
    const LocalRef<jobject> thread(env, env->NewLocalRef(data.virtualThread));
    if (!thread) {
        return env->IsSameObject(data.virtualThread, nullptr) == JNI_FALSE;
    }
    const bool alive = env->CallBooleanMethod(thread.get(), isAliveMethod) != JNI_FALSE;
    return clearException(env) || alive;
}

// ---------------------------------------------------------------- table

// The link that points to the record, or the null link at the end of its chain.
template <typename Wanted>
ThreadData **VirtualThreadTable::find(uint32_t number, Wanted wanted) {
    ThreadData **link = &buckets[number % BUCKETS];
    while (*link != nullptr && !wanted(**link)) {
        link = &(*link)->nextInBucket;
    }
    return link;
}

void VirtualThreadTable::put(ThreadData *data) {
    const uint32_t number = numberOfVirtual(data->envId);
    const std::lock_guard<PlainLock> guard(lockOf(number));
    ThreadData *&head = buckets[number % BUCKETS];
    data->nextInBucket = head;
    head = data;
    count.fetch_add(1, std::memory_order_relaxed);
}

ThreadData *VirtualThreadTable::get(const JNIEnv *key) {
    const uint32_t number = numberOfVirtual(key);
    const std::lock_guard<PlainLock> guard(lockOf(number));
    return *find(number, [key](const ThreadData &data) { return data.envId == key; });
}

JNIEnv *VirtualThreadTable::keyOf(uint32_t number) {
    const std::lock_guard<PlainLock> guard(lockOf(number));
    const ThreadData *data =
        *find(number, [number](const ThreadData &each) { return numberOfVirtual(each.envId) == number; });
    return data != nullptr ? data->envId : nullptr;
}

bool VirtualThreadTable::remove(const JNIEnv *key) {
    const uint32_t number = numberOfVirtual(key);
    const std::lock_guard<PlainLock> guard(lockOf(number));
    ThreadData **link = find(number, [key](const ThreadData &data) { return data.envId == key; });
    ThreadData *data = *link;
    if (data == nullptr) {
        return false;
    }
    *link = data->nextInBucket;
    count.fetch_sub(1, std::memory_order_relaxed);
    return true;
}

void VirtualThreadTable::clear() {
    for (uint32_t i = 0; i < BUCKETS; ++i) {
        const std::lock_guard<PlainLock> guard(lockOf(i));
        for (; buckets[i] != nullptr; buckets[i] = buckets[i]->nextInBucket) {
            count.fetch_sub(1, std::memory_order_relaxed);
        }
    }
}
