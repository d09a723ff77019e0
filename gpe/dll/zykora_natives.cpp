// Natives of BcmBootstrap, which are registered by name, and of RuntimeBuilder.
#include "JVMPIWrapper.h"
#include "ProbeLgKit.h"
#include "cmdline.h"
#include "jnihelp.h"
#include "zykora.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

constexpr char RUNTIME_CLASS[] = "com.zykora.probe.l3trace.BcmRuntime";
constexpr char DEFINE_TEXT[] = "defineNativeMethodsForClassNative( JNIEnv *env, jclass clazz )";

// Registers natives of a class that its loader cannot link by name.
void JNICALL defineNativeMethodsForClassNative(JNIEnv *env, jclass, jclass clazz, jstring classNameStr) {
    if (clazz == nullptr || classNameStr == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, DEFINE_TEXT, "classNameStr is NULL");
        return;
    }
    char *name = jniStringCopy(env, classNameStr);
    if (name == nullptr) {
        return;
    }
    jint result = -1;
    if (strcmp(name, RUNTIME_CLASS) == 0) {
        result = registerRuntimeNatives(env, clazz);
    } else {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, DEFINE_TEXT, "No native method registration for class %s",
                 static_cast<const char *>(name));
    }
    clearException(env);
    AM_TRACE(ccTracer, LGK_DEBUG_MID, DEFINE_TEXT,
             result != 0 ? "Native methods registration for class %s failed"
                         : "Successfully registered native methods for %s",
             static_cast<const char *>(name));
    free(name);
}

jint JNICALL getCurrentProcessIdNative(JNIEnv *, jclass) {
    return static_cast<jint>(getpid());
}

// Not looked into on this platform: always true.
jboolean JNICALL isProcessAliveNative(JNIEnv *, jclass, jint) {
    return JNI_TRUE;
}

// An environment variable; null for a null name or an unset variable.
jstring JNICALL getEnvNative(JNIEnv *env, jclass, jstring name) {
    if (name == nullptr) {
        return nullptr;
    }
    char *text = platformCopy(env, name);
    const char *value = text != nullptr ? getenv(text) : nullptr;
    free(text);
    return newPlatformString(env, value);
}

// The JVM's command line; null if memory is out.
jobjectArray JNICALL getJavaCommandLineArgs(JNIEnv *env, jclass) {
    if (env->PushLocalFrame(commandLineArgCount + 1) != JNI_OK) {
        clearException(env);
        return nullptr;
    }
    jobjectArray array = newStringArray(env, commandLineArgs, commandLineArgCount);
    return static_cast<jobjectArray>(env->PopLocalFrame(array));
}

// Nanoseconds of the calling thread; 0 without an event interface.
jlong JNICALL getCurrentThreadCPUTime(JNIEnv *, jclass) {
    JVMPIWrapper *events = eventInterface != nullptr ? eventInterface.get() : jvmpiWrapper.get();
    return events != nullptr ? events->GetCurrentThreadCpuTime() : 0;
}

// Files are made with the process's own mask on this platform: always 0.
jint JNICALL setFileReadWriteNative(JNIEnv *, jclass, jstring) {
    return 0;
}

} // namespace

jint registerNatives(JNIEnv *env, jclass bootstrapClass) {
    const JNINativeMethod methods[] = {
        nativeMethod("defineNativeMethodsForClassNative", "(Ljava/lang/Class;Ljava/lang/String;)V",
                     defineNativeMethodsForClassNative),
        nativeMethod("getCurrentProcessIdNative", "()I", getCurrentProcessIdNative),
        nativeMethod("isProcessAliveNative", "(I)Z", isProcessAliveNative),
        nativeMethod("getEnvNative", "(Ljava/lang/String;)Ljava/lang/String;", getEnvNative),
        nativeMethod("getJavaCommandLineArgs", "()[Ljava/lang/String;", getJavaCommandLineArgs),
        nativeMethod("getCurrentThreadCPUTime", "()J", getCurrentThreadCPUTime),
        nativeMethod("setFileReadWriteNative", "(Ljava/lang/String;)I", setFileReadWriteNative),
    };
    return env->RegisterNatives(bootstrapClass, methods, sizeof(methods) / sizeof(methods[0]));
}

// As the native of the same name on BcmBootstrap.
extern "C" JNIEXPORT jobjectArray JNICALL
Java_com_qel_morvex_norak_toolkit_ai_runtimebuilder_RuntimeBuilder_getJavaCommandLineArgs(JNIEnv *env,
                                                                                          jclass cls) {
    return getJavaCommandLineArgs(env, cls);
}
