// Requests of a portal server and the figures that its Java half has counted. Called on
// application threads, behind the admission gate, as the rest of the event assembly; null strings are empty.
// The phases of a page are rows of `EventFamilies.h`. Requests are counted without any test of the depth,
// which unbalanced ends take below 0.
#pragma once

#include "Event.h"

#include <jni.h>

// Type 22 (page) or 23 (portlet, whose class takes the place of the application), subtype 0 or 1; names go
// with a begin only.
void appendPortalRequestEvent(JNIEnv *env, Event::EventType type, Event::EventSubType subType,
                              jstring request_name, jstring className, jstring url, jstring userid);

// A request's way through the gateway. The end carries the page's name: the thread's last one, or the one
// that is given.
void appendPortalGatewayServletRequestEvent(JNIEnv *env, Event::EventSubType subType);
void appendPortalGatewayServletRequestEvent(JNIEnv *env, Event::EventSubType subType, jstring pageName);

// Figures: a number of calls and their mean time.
void appendPortalAuthAcEvent(JNIEnv *env, Event::EventType type, jint count, jlong avgTimeTaken); // 18, 19
void appendPortalAggregateDataEvent(JNIEnv *env, Event::EventType type, jint count,
                                    jlong avgTimeTaken); // 34 to 36
void appendPortalCredentialVaultEvent(JNIEnv *env, const CountAndTime (&figures)[5]);
void appendPortalContentAccessEvent(JNIEnv *env, const CountAndTime (&figures)[4]);

// One pair of the method constants. `methodName` is not copied: it must live as long as the process.
void appendPortalMethodConstantEvent(JNIEnv *env, jbyte methodId, const char *methodName);
