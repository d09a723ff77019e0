// The bootstrap of the Java half: registers the natives of `BcmBootstrap` and starts it.
#pragma once

#include "JVMPIWrapper.h"

#include <jni.h>

extern bool bootstrapAllowed; // set at VM init
extern bool bootstrapDone;    // registration has run to its end, with or without success

// At VM init, on its thread. Finds `BcmBootstrap`, registers its natives and calls its `staticInit`, where
// Java starts the whole Java side. An exception from there means that the collector must stay off.
void registerBcmBootstrapNative(const JVMPI_Event *event);

// Calls `BcmBootstrap.disable()`; false if the class was never found or the call failed.
bool disableToolkit(JNIEnv *env);

// Registers the natives of `BcmBootstrap`, as its loader cannot link them by name. Not 0 if that fails.
jint registerNatives(JNIEnv *env, jclass bootstrapClass);
// The same for `BcmRuntime`.
jint registerRuntimeNatives(JNIEnv *env, jclass runtimeClass);

template <typename Function>
JNINativeMethod nativeMethod(const char *name, const char *signature, Function function) {
    return {const_cast<char *>(name), const_cast<char *>(signature), reinterpret_cast<void *>(function)};
}
