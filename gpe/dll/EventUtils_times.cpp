// The times of a thread, taken for Java code.
#include "EventAssembly.h"
#include "EventUtils.h"
#include "platform.h"

#include <atomic>
#include <memory>
#include <new>

namespace {

// The fields of the Java object that takes the times; looked up once.
struct TimesFields {
    jclass cls = nullptr; // global, so that the ids stay valid
    jfieldID cpuTime = nullptr;
    jfieldID timeSec = nullptr;
    jfieldID timeUSec = nullptr;
};

bool lookUpTimesFields(JNIEnv *env, jobject times, TimesFields &fields) {
    const LocalRef<jclass> cls(env, env->GetObjectClass(times));
    const auto find = [&](const char *name, const char *signature) {
        const jfieldID field = env->GetFieldID(cls.get(), name, signature);
        return clearException(env) ? nullptr : field;
    };
    fields.cpuTime = find("cpuTime", "J");
    fields.timeSec = fields.cpuTime != nullptr ? find("timeSec_", "I") : nullptr;
    fields.timeUSec = fields.timeSec != nullptr ? find("timeUSec_", "I") : nullptr;
    if (fields.timeUSec == nullptr) {
        return false;
    }
    fields.cls = static_cast<jclass>(env->NewGlobalRef(cls.get()));
    return fields.cls != nullptr;
}

// Null if the object has no such fields. Of two threads that look them up at once the first is believed.
const TimesFields *timesFields(JNIEnv *env, jobject times) {
    static std::atomic<const TimesFields *> known{nullptr};
    const TimesFields *fields = known.load(std::memory_order_acquire);
    if (fields != nullptr) {
        return fields;
    }
    std::unique_ptr<TimesFields> found(new (std::nothrow) TimesFields);
    if (found == nullptr || !lookUpTimesFields(env, times, *found)) {
        return nullptr;
    }
    if (known.compare_exchange_strong(fields, found.get(), std::memory_order_acq_rel)) {
        return found.release();
    }
    env->DeleteGlobalRef(found->cls);
    return fields;
}

} // namespace

void fillThreadTimes(JNIEnv *env, ThreadData *td, jobject times) {
    const TimesFields *fields = timesFields(env, times);
    if (fields == nullptr || env->IsInstanceOf(times, fields->cls) == JNI_FALSE) {
        return;
    }
    uint32_t sec = 0;
    uint32_t usec = 0;
    env->SetLongField(times, fields->cpuTime, assembly::threadCpuTime(td));
    getCurrentTime(&sec, &usec);
    env->SetIntField(times, fields->timeSec, static_cast<jint>(sec));
    env->SetIntField(times, fields->timeUSec, static_cast<jint>(usec));
    clearException(env);
}
