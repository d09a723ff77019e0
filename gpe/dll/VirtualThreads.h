// Virtual threads, on JVMs that have them. A virtual thread runs on the environments of whatever threads
// carry it, so it is known by a key of its own: the JVM's number of it, which is never given twice, made odd,
// so that it is no environment. Its record follows it through every unmount. The JVM is asked for no
// capability and no event, whose price every virtual thread of the server would pay: the calling thread is
// asked for on carriers only, and a sweep finds out which threads have ended. Nothing here keeps the Java
// object of a thread alive.
#pragma once

#include <cstdint>
#include <jni.h>

inline bool isVirtualKey(const JNIEnv *key) {
    return (reinterpret_cast<uintptr_t>(key) & 1) != 0;
}

// Numbers of platform threads stay below this one, those of virtual threads do not: they never meet.
constexpr uint32_t FIRST_VIRTUAL_NUMBER = 0x80000000U;

// Of a virtual key: the end of the JVM's number. No two threads that live at a time share it.
uint32_t numberOfVirtual(const JNIEnv *key);

// Who calls.
struct Caller {
    JNIEnv *key;
    bool stays; // every later call on this environment comes from the same thread
};

// Learns how to tell virtual threads; at VM init, before any of them can call. Without it there are none.
void learnVirtualThreads(JNIEnv *env);

// `known` is the key of the virtual thread that was last seen on this environment, if any.
Caller callerOn(JNIEnv *env, const JNIEnv *known);

// A virtual thread as its record keeps it; both are the caller's.
struct VirtualThread {
    jweak reference; // null if memory was out
    char *name;      // from malloc; null if it has none
};

// The calling thread, a virtual one.
VirtualThread describeVirtual(JNIEnv *env);
// Gives the JVM's part back, unless it is null; any Java thread.
void releaseVirtual(jweak reference);
// False once the thread has ended or its object is gone.
bool isVirtualAlive(JNIEnv *env, jweak reference);
