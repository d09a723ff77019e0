#include "KnownString.h"

#include "jnihelp.h"

#include <cstdlib>
#include <cstring>

namespace {

// Two that are equal by chance only make it known too early: what is known is compared by identity.
uint64_t hashOf(const char *bytes, int32_t length, int32_t limit) {
    constexpr uint64_t FACTOR = 0x9E3779B97F4A7C15;
    uint64_t hash = (static_cast<uint64_t>(length) << 32 | static_cast<uint32_t>(limit)) * FACTOR;
    for (int32_t at = 0; at < length; at += static_cast<int32_t>(sizeof(uint64_t))) {
        uint64_t eight = 0;
        memcpy(&eight, bytes + at, static_cast<size_t>(length - at < 8 ? length - at : 8));
        hash = (hash ^ eight) * FACTOR;
        hash ^= hash >> 32;
    }
    return hash;
}

} // namespace

void KnownString::learn(JNIEnv *env, jstring text, int32_t limit, const char *bytes, int32_t length) {
    if (resting > 0) {
        --resting;
        return;
    }
    forget();
    if (++misses > MOST_MISSES) {
        misses = 0;
        resting = REST;
        return;
    }
    const uint64_t hash = length <= MOST_BYTES ? hashOf(bytes, length, limit) : 0;
    if (hash != 0 && hash == seen) {
        limitThen = limit;
        hold(env, text, bytes, length);
    }
    seen = hash;
}

// Where memory is out it stays unknown.
void KnownString::hold(JNIEnv *env, jstring text, const char *bytes, int32_t length) {
    copy = static_cast<char *>(malloc(static_cast<size_t>(length) + 1));
    if (copy == nullptr) {
        return;
    }
    reference = env->NewWeakGlobalRef(text);
    if (reference == nullptr) {
        env->ExceptionClear();
        forget();
        return;
    }
    memcpy(copy, bytes, static_cast<size_t>(length));
    copyLength = length;
}

// A thread that is not attached leaves the reference behind.
void KnownString::forget() {
    JNIEnv *env = reference != nullptr ? ownEnv() : nullptr;
    if (env != nullptr) {
        env->DeleteWeakGlobalRef(reference);
    }
    reference = nullptr;
    free(copy);
    copy = nullptr;
}
