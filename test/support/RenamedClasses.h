// While it lives, this thread's environment finds other classes behind some names. One at a time.
#pragma once

#include <jni.h>
#include <map>
#include <string>
#include <utility>

class RenamedClasses {
public:
    RenamedClasses(JNIEnv *jniEnv, std::map<std::string, std::string> classNames)
        : env(jniEnv), real(jniEnv->functions), table(*real) {
        names = std::move(classNames);
        realFind = real->FindClass;
        table.FindClass = findRenamed;
        env->functions = &table;
    }
    ~RenamedClasses() { env->functions = real; }
    RenamedClasses(const RenamedClasses &) = delete;
    RenamedClasses &operator=(const RenamedClasses &) = delete;

private:
    static jclass JNICALL findRenamed(JNIEnv *env, const char *name) {
        const auto other = names.find(name);
        return realFind(env, other != names.end() ? other->second.c_str() : name);
    }

    static inline std::map<std::string, std::string> names;
    static inline jclass(JNICALL *realFind)(JNIEnv *, const char *) = nullptr;
    JNIEnv *env;
    const JNINativeInterface_ *real;
    JNINativeInterface_ table;
};
