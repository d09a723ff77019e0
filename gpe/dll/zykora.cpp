#include "zykora.h"

#include "InstrumentJNI.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "jnihelp.h"

#include <cstdio>

bool bootstrapAllowed = false;
bool bootstrapDone = false;

namespace {

bool bootstrapInProgress = false;
jclass bootstrapClass = nullptr;

constexpr char REGISTER_TEXT[] = "registerBcmBootstrapNative( JVMPI_Event *event )";

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
    const jint result = registerNatives(env, bootstrapClass);
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
