// Classes, and the calls of their methods, as instrumented code and the tracing runtime report them. A method
// event tells an id, two clocks and no text; the texts went with the class, once. Called on application
// threads; nothing here throws into Java.
#pragma once

#include "Event.h"

#include <jni.h>

// The texts of a class as Java gives them: methods by their ids, with names and signatures as long as the
// ids. Names and signatures may be null together, null elements are empty.
struct ClassTexts {
    jstring name;
    jintArray ids;
    jobjectArray names;
    jobjectArray signatures;
};

// An entry (SUB_START) or an exit (SUB_END) of a method. True if the calling thread has a queue for it; the
// other makes the queue if it can.
bool appendMethodEvent(JNIEnv *env, Event::EventSubType subType, jint methodId);
// The same for an entry whose clocks were taken when it happened.
bool appendPendingEntry(JNIEnv *env, jint methodId, jlong cpuTime, jint timeSec, jint timeUSec);

// Registers a class with a number of its own and tells of it. Nothing unless all arrays are there and of one
// length.
void registerClass(JNIEnv *env, const ClassTexts &texts);
// Tells that a registered class is gone; nothing for any other, and for one that was unloaded before.
void unloadRegisteredClass(JNIEnv *env, jstring name);

// Tells of a class that the caller numbers itself: a load, or an unload (no texts but the name). False if it
// was not told, for want of arguments, of a queue or of memory.
bool sendClassEvent(JNIEnv *env, Event::EventSubType subType, jint sequence, const ClassTexts &texts);
