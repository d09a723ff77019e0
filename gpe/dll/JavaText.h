// The texts of Java strings in modified UTF-8, as they go on the wire, without the heap. The JVM offers two
// ways to their characters, and which of them is faster differs from one JVM to the next: so it is tried
// once.
#pragma once

#include "Relaxed.h"

#include <cstddef>
#include <cstdint>
#include <jni.h>

// How a text is cut that exceeds its limit.
enum class CutAt { AnyByte, Character };

constexpr int32_t MOST_BYTES_PER_CHAR = 3;

// Copies UTF-16 and narrows it; else the JVM's own modified UTF-8 is copied. The bytes are the same.
extern Relaxed<bool> stringsByUnits;
// Sets it to what is faster; costs less than a millisecond. Leaves no exception pending.
void chooseStringAccess(JNIEnv *env);

// How many characters of `text` (not null) can matter within `limit` bytes, the NUL included; what room they
// may take; and their copy into such a room, terminated and cut at the limit. The last gives the bytes kept,
// without the NUL. `limit` below 1 counts as 1.
jsize charsWithin(JNIEnv *env, jstring text, int32_t limit);
constexpr size_t utf8Room(jsize chars) {
    return static_cast<size_t>(chars) * MOST_BYTES_PER_CHAR + sizeof(jchar);
}
int32_t utf8Region(JNIEnv *env, jstring text, jsize chars, char *room, int32_t limit, CutAt cut);
