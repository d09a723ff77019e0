// Recurring JNI steps. Every function needs the calling thread's own environment, leaves no exception
// pending and no local reference behind. Heap copies are freed by the caller with `free`.
#pragma once

#include "JavaText.h"

#include <cstddef>
#include <cstdint>
#include <jni.h>

// The calling thread's environment; null if it is not attached to the JVM.
JNIEnv *ownEnv();

// Describes and clears a pending exception; true if there was one.
bool clearException(JNIEnv *env);

// A heap copy of a Java string in modified UTF-8, as it goes on the wire. Null and unreadable strings give an
// empty copy.
char *jniStringCopy(JNIEnv *env, jstring text);

// Paths, options and environment variables cross the border here, in the platform's bytes: see
// `PlatformText.h`. What the JVM's own functions for texts expect is another form, and only the same for
// ASCII.
jstring newPlatformString(JNIEnv *env, const char *text); // null for null and when memory is out
char *platformCopy(JNIEnv *env, jstring text); // a heap copy; empty for null and unreadable strings

// As `jniStringCopy`, but at most `limit` bytes, the NUL included; `*kept` is the number of bytes kept, the
// NUL included, and is left alone for a null or unreadable string. `kept` may be null. `limit` below 1 counts
// as 1. Only the part that can be kept is taken from the JVM.
char *jniStringCopyLimited(JNIEnv *env, jstring text, int32_t limit, CutAt cut, int32_t *kept);

// Copies a Java string into a fixed buffer, at most `room - 1` bytes, terminated. A null string changes
// nothing.
void jniStringToBuffer(JNIEnv *env, jstring text, char *buffer, size_t room);

// Removes one local reference at the end of a scope; null is accepted.
template <typename T>
class LocalRef {
public:
    LocalRef(JNIEnv *jniEnv, T object) : env(jniEnv), ref(object) {}
    ~LocalRef() {
        if (ref != nullptr) {
            env->DeleteLocalRef(ref);
        }
    }
    LocalRef(const LocalRef &) = delete;
    LocalRef &operator=(const LocalRef &) = delete;
    T get() const { return ref; }
    explicit operator bool() const { return ref != nullptr; }

private:
    JNIEnv *env;
    T ref;
};

// FindClass and a global reference in one step; null, with the exception described and cleared, if it fails.
jclass findGlobalClass(JNIEnv *env, const char *name);

// A static method id; null, exception cleared, if the class is null or has no such method.
jmethodID findStaticMethod(JNIEnv *env, jclass cls, const char *name, const char *signature);

// Calls `static void name(int)` or `static void name()` of a class found by name. False, with the exception
// described and cleared, if any step fails; a null `env` gives false.
bool callStaticVoidInt(JNIEnv *env, const char *className, const char *name, jint value);
bool callStaticVoid(JNIEnv *env, const char *className, const char *name);

// A String[] made from `count` platform texts (none of them null); null on failure.
jobjectArray newStringArray(JNIEnv *env, char *const *texts, int count);

// Java system properties, as platform texts. `value` is always terminated; empty means unknown. `maxValue` is
// its size.
void getJavaSystemProperty(JNIEnv *env, const char *name, char *value, size_t maxValue);
void setJavaSystemProperty(JNIEnv *env, const char *name, const char *value);

// The application server's name from ProbeSystem.getAppServerName(): 0 on success, also for a Java null,
// which leaves the buffer unchanged; 1 after any exception. A longer name is cut to `bufLength - 1` bytes.
int getFullAppServerName(char *buffer, size_t bufLength, JNIEnv *env);

// The class that describes the server on the Java side.
constexpr char PROBE_SYSTEM_CLASS[] = "com/zykora/probe/ProbeSystem";
constexpr char ENTRY_EXIT_CONSUMER_CLASS[] = "com/qel/morvex/norak/dc/level3/EntryExitConsumerImpl";
