// Calls of web services, as client and as provider, and their faults. Counted without any test of the depth;
// strings go with a begin only.
#pragma once

#include "Event.h"

#include <jni.h>

void appendWSClientEvent(JNIEnv *env, Event::EventSubType subType, jstring appName, jstring requestName,
                         jstring url);
void appendWSProviderEvent(JNIEnv *env, Event::EventSubType subType, jstring appName, jstring requestName,
                           jstring url);
void appendWSFaultEvent(JNIEnv *env, Event::EventSubType subType, jstring appName, jstring faultCode,
                        jstring faultString);
