// Turns the JVM's callbacks into events in the shape of the old profiler interface and hands them to their
// handlers. One object, built in `Agent_OnLoad`, deleted at the end of VM death.
#pragma once

#include "JVMPIWrapper.h"
#include "Relaxed.h"
#include "ZykLock.h"

#include <cstdint>
#include <jvmti.h>

class JVMTIAgent {
public:
    // The object, built on first use; null when memory is out.
    static JVMTIAgent *getInstance();
    virtual ~JVMTIAgent();

    // Stage 1, on the launching thread. 0, or -1 if the JVM must not start.
    int handleOnLoad(JavaVM *vm, const char *options, void *reserved);
    // Stage 2, on the thread that delivers VM init.
    void handleVMInit(jvmtiEnv *jvmti_env, JNIEnv *env, jthread thread);

    void handleThreadStart(jvmtiEnv *jvmti_env, JNIEnv *jni_env, jthread thread);
    void handleThreadEnd(jvmtiEnv *jvmti_env, JNIEnv *jni_env, jthread thread);
    // Nothing once the JVM is dead.
    void handleClassLoadHook(JNIEnv *env, jobject loader, const char *name, jint class_data_len,
                             const unsigned char *class_data, jint *new_class_data_len,
                             unsigned char **new_class_data);

    // A jvmtiPhase; written to the agent and its wrapper alike.
    void setPhase(uint32_t value);

private:
    JVMTIAgent();

    JVMPIWrapper *wrapper; // outlives the agent
    Relaxed<uint32_t> phase;
    ZykLock *lock = nullptr; // nothing locks it
};

extern Relaxed<JVMTIAgent *> jvmtiAgent; // null before the agent is built and after VM death
