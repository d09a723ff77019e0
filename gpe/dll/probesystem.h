// What the Java class ProbeSystem says about the server, as the agent took it over at probe start.
// Written by `ProbeSystem.initializeProbe`, each field under a lock, as two callers may come at once; strings
// are owned.
#pragma once

#include <cstdint>
#include <jni.h>

struct SystemSettings {
    int32_t methodHashSize = 55511; // bucket count of the method table
    int32_t publishFrequency = 2000;
    int32_t eventPacketSize = 5000;
    int32_t eventQueueSizeLimit = 5000;
    int64_t psRetryFrequency = 5000;
    int32_t wakeupQueueLength = 500;
    char *probeStdout = nullptr;
    char commandAgentId[1024] = "";
    int32_t adminServerPort = 0;
    char *jvmVersion = nullptr;
    char *appServerProductVersion = nullptr;
    jclass object = nullptr; // global references
    jclass clazz = nullptr;
    jclass string = nullptr;
};
extern SystemSettings systemSettings;

// Reads the static fields of ProbeSystem in their order. 1, or 0 after an exception at the end; -1 at the
// first field that is missing, with what was read so far in place.
int setSystemProperties(JNIEnv *env, jclass cls);

// Takes the server's settings over from the static fields of ProbeSystem and answers in three of them. False
// if a field is missing; what was taken so far stays.
bool initializeProbe(JNIEnv *env, jclass cls);
