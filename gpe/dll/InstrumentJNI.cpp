#include "InstrumentJNI.h"

#include "ProbeLgKit.h"
#include "jnihelp.h"

namespace {
jclass instrumentClass = nullptr;
jmethodID instrumentFromJVMPI = nullptr; // found but not called
jmethodID instrumentFromJVMTI = nullptr;
} // namespace

void notifyJVMInitDone(const JVMPI_Event *event) {
    constexpr char signature[] = "notifyJVMInitDone( JVMPI_Event *event )";
    JNIEnv *env = event->env_id;
    instrumentClass = env != nullptr ? findGlobalClass(env, BOOTSTRAP_CLASS) : nullptr;
    if (instrumentClass == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MIN, signature,
                 "InstrumentJNI: notifyJVMInitDone has been processed, BcmBootstrap class has **NOT** been "
                 "loaded");
        return;
    }
    instrumentFromJVMPI =
        findStaticMethod(env, instrumentClass, "instrumentClassFromJVMPI", "([BLjava/lang/String;)[B");
    instrumentFromJVMTI = findStaticMethod(env, instrumentClass, "instrumentClassFromJVMTI",
                                           "([BLjava/lang/String;Ljava/lang/ClassLoader;)[B");
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, signature,
             "InstrumentJNI: notifyJVMInitDone has been processed, BcmBootstrap class has been loaded");
}
