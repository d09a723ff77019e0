#include "zykora.h"

#include "InstrumentJNI.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "PropertyMgr.h"
#include "cmdline.h"
#include "jnihelp.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

bool bootstrapAllowed = false;
bool bootstrapDone = false;

namespace {

bool bootstrapInProgress = false;
jclass bootstrapClass = nullptr;

constexpr char REGISTER_TEXT[] = "registerBcmBootstrapNative( JVMPI_Event *event )";
constexpr char DEFINE_TEXT[] = "defineNativeMethodsForClassNative( JNIEnv *env, jclass clazz )";

// ---------------------------------------------------------------- natives of BcmBootstrap

// Registers natives of a class that its loader cannot link by name. No class has such natives yet.
void JNICALL defineNativeMethodsForClassNative(JNIEnv *env, jclass, jclass clazz, jstring classNameStr) {
    if (clazz == nullptr || classNameStr == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, DEFINE_TEXT, "classNameStr is NULL");
        return;
    }
    char *name = jniStringCopy(env, classNameStr);
    if (name == nullptr) {
        return;
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MID, DEFINE_TEXT, "No native method registration for class %s",
             static_cast<const char *>(name));
    AM_TRACE(ccTracer, LGK_DEBUG_MID, DEFINE_TEXT, "Native methods registration for class %s failed",
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

template <typename Function>
JNINativeMethod native(const char *name, const char *signature, Function function) {
    return {const_cast<char *>(name), const_cast<char *>(signature), reinterpret_cast<void *>(function)};
}

jint registerNatives(JNIEnv *env) {
    const JNINativeMethod methods[] = {
        native("defineNativeMethodsForClassNative", "(Ljava/lang/Class;Ljava/lang/String;)V",
               defineNativeMethodsForClassNative),
        native("getCurrentProcessIdNative", "()I", getCurrentProcessIdNative),
        native("isProcessAliveNative", "(I)Z", isProcessAliveNative),
        native("getEnvNative", "(Ljava/lang/String;)Ljava/lang/String;", getEnvNative),
        native("getJavaCommandLineArgs", "()[Ljava/lang/String;", getJavaCommandLineArgs),
        native("getCurrentThreadCPUTime", "()J", getCurrentThreadCPUTime),
        native("setFileReadWriteNative", "(Ljava/lang/String;)I", setFileReadWriteNative),
    };
    return env->RegisterNatives(bootstrapClass, methods, sizeof(methods) / sizeof(methods[0]));
}

// ---------------------------------------------------------------- steps of the bootstrap

bool clearBootstrapException(JNIEnv *env) {
    if (env->ExceptionCheck() == JNI_FALSE) {
        return false;
    }
    printf("zykora: ExceptionOccurred\n");
    fflush(stdout);
    return clearException(env);
}

bool findBootstrapClass(JNIEnv *env) {
    bootstrapClass = findGlobalClass(env, BOOTSTRAP_CLASS);
    if (bootstrapClass == nullptr) {
        messageError(1083, "Can not find com.zykora.bcm.bootstrap.BcmBootstrap.class");
    }
    return bootstrapClass != nullptr;
}

bool registerBootstrapNatives(JNIEnv *env) {
    const jint result = registerNatives(env);
    clearBootstrapException(env);
    if (result != 0) {
        printf("zykora: RegisterNatives rc=%d\n", result);
        fflush(stdout);
        return false;
    }
    messageInfo(1082, "Successfully registered defineNativeMethodsForClassNative for "
                      "com.zykora.bcm.bootstrap.BcmBootstrap.class");
    return true;
}

jmethodID findStaticInit(JNIEnv *env) {
    const jmethodID method = env->GetStaticMethodID(bootstrapClass, "staticInit", "()V");
    if (clearBootstrapException(env)) {
        if (LgkIsLoggable(msgLogger, LGK_ERROR)) {
            traceError("Unable to resolve com.zykora.bcm.bootstrap.BcmBootstrap.staticInit()");
        }
        return nullptr;
    }
    return method;
}

// An exception is how Java says that the collector must stay off: it is no error and is not described.
void callStaticInit(JNIEnv *env, jmethodID staticInit) {
    env->CallStaticVoidMethod(bootstrapClass, staticInit);
    if (env->ExceptionCheck() == JNI_FALSE) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, REGISTER_TEXT, "Initialized BcmBootstrap");
        return;
    }
    printf("## zykora: Datacollector is disabled. Check value of the NORAK_DC_ENABLED property\n");
    fflush(stdout);
    env->ExceptionClear();
    traceWarn("Call failed for com.zykora.bcm.bootstrap.BcmBootstrap.staticInit()");
    traceWarn("Datacollector will now be disabled. Check value of NORAK_DC_ENABLED property");
}

void bootstrap(JNIEnv *env) {
    if (!findBootstrapClass(env) || !registerBootstrapNatives(env)) {
        return;
    }
    const jmethodID staticInit = findStaticInit(env);
    if (staticInit != nullptr) {
        callStaticInit(env, staticInit);
    }
}

} // namespace

void registerBcmBootstrapNative(const JVMPI_Event *event) {
    if (bootstrapInProgress || !bootstrapAllowed) {
        return;
    }
    bootstrapInProgress = true;
    if (event->env_id == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, REGISTER_TEXT, "Can not obtain JNIEnv pointer");
        AM_TRACE(ccTracer, LGK_DEBUG_MID, REGISTER_TEXT,
                 "Can not register defineNativeMethodsForClassNative for "
                 "com.zykora.bcm.bootstrap.BcmBootstrap.class");
        return;
    }
    disableToolkitHook = disableToolkit;
    bootstrap(event->env_id);
    bootstrapInProgress = false;
    bootstrapDone = true;
}

bool disableToolkit(JNIEnv *env) {
    if (bootstrapClass == nullptr) {
        return false;
    }
    const jmethodID disable = env->GetStaticMethodID(bootstrapClass, "disable", "()V");
    if (clearBootstrapException(env)) {
        return false;
    }
    env->CallStaticVoidMethod(bootstrapClass, disable);
    if (clearBootstrapException(env)) {
        return false;
    }
    LgkObject *sink = traceLogger;
    if (sink != nullptr) {
        lgkApi.text(sink, "NORAK Toolkit has been disabled", 0);
    }
    return true;
}

// ---------------------------------------------------------------- exported natives

#define PROBE_LOGGER(name) Java_com_zykora_probe_log_ProbeLogger_##name

extern "C" {

// As the native of the same name on BcmBootstrap.
JNIEXPORT jobjectArray JNICALL
Java_com_qel_morvex_norak_toolkit_ai_runtimebuilder_RuntimeBuilder_getJavaCommandLineArgs(JNIEnv *env,
                                                                                          jclass cls) {
    return getJavaCommandLineArgs(env, cls);
}

// Below 20000: the level of the message logger. From 20000 on: `level - 20000` is the level of the module
// tracers but the one of garbage collection; their two finest levels switch the statistics on.
JNIEXPORT void JNICALL PROBE_LOGGER(setNativeProbeLoggingLevel)(JNIEnv *, jclass, jint level) {
    constexpr jint TRACE_BASE = 20000;
    if (level < TRACE_BASE) {
        setLogLevel(msgLogger, level);
        return;
    }
    const jint traceLevel = level - TRACE_BASE;
    for (LgkObject *tracer : {naTracer.get(), eaTracer.get(), caTracer.get(), ccTracer.get()}) {
        setLogLevel(tracer, traceLevel);
    }
    const jint step = traceLevel / 1000;
    setStatisticsEnabled(step == 1 || step == 2 || boolProperty("log.statistics", false));
}

// No file name is kept on this side: always null.
JNIEXPORT jstring JNICALL PROBE_LOGGER(getLogFileName)(JNIEnv *, jclass) {
    return nullptr;
}

// An old print path whose table of formats is empty: nothing is printed.
JNIEXPORT void JNICALL PROBE_LOGGER(write)(JNIEnv *, jclass, jint, jstring) {}

} // extern "C"
