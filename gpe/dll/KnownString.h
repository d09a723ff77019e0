// The string that a thread gave last in one place, with its bytes. Servers mostly give the very same object
// again and again: strings do not change, so its identity proves that the bytes are right, and they need not
// be asked of the JVM. It is learnt when a text comes twice in a row, and the place rests for a while where
// that brings nothing. For one thread; whoever destroys it may be another, which is attached to the JVM.
#pragma once

#include <cstdint>
#include <jni.h>

class KnownString {
public:
    KnownString() = default;
    ~KnownString() { forget(); }
    KnownString(const KnownString &) = delete;
    KnownString &operator=(const KnownString &) = delete;

    // Whether it is `text` (not null), copied with this limit.
    bool is(JNIEnv *env, jstring text, int32_t limit) {
        const bool same = reference != nullptr && limit == limitThen && env->IsSameObject(reference, text);
        misses = same ? 0 : misses;
        return same;
    }
    const char *bytes() const { return copy; }
    int32_t length() const { return copyLength; }

    // That it was another: these are its bytes.
    void learn(JNIEnv *env, jstring text, int32_t limit, const char *bytes, int32_t length);

private:
    static constexpr int32_t MOST_BYTES = 2048;
    static constexpr int MOST_MISSES = 16; // in a row
    static constexpr int REST = 4096;      // strings

    void hold(JNIEnv *env, jstring text, const char *bytes, int32_t length);
    void forget();

    jweak reference = nullptr; // owned
    char *copy = nullptr;      // owned; there as long as the reference is
    int32_t copyLength = 0;
    int32_t limitThen = 0;
    uint64_t seen = 0; // of the last one that was not known, a hash of limit, length and bytes
    int16_t misses = 0;
    int16_t resting = 0; // strings that it still passes over
};
