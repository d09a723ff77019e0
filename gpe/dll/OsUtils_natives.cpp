// Natives of OsUtils that tell how the JVM was started.
#include "cmdline.h"
#include "jnihelp.h"

#define OS_UTILS(name) Java_com_qel_morvex_norak_toolkit_ai_osutils_OsUtils_##name

extern "C" {

// The JVM's command line as saved at load; null if none was saved or memory is out.
JNIEXPORT jobjectArray JNICALL OS_UTILS(getArgumentVectorNative)(JNIEnv *env, jclass) {
    return commandLineArgs != nullptr ? newStringArray(env, commandLineArgs, commandLineArgCount) : nullptr;
}

// The same array, made within a local frame of its own; null if the command line is empty.
JNIEXPORT jobjectArray JNICALL OS_UTILS(getJVMParamsNative)(JNIEnv *env, jclass) {
    if (commandLineArgCount < 1 || env->PushLocalFrame(commandLineArgCount + 1) != JNI_OK) {
        clearException(env);
        return nullptr;
    }
    jobjectArray array = newStringArray(env, commandLineArgs, commandLineArgCount);
    return static_cast<jobjectArray>(env->PopLocalFrame(array));
}

} // extern "C"
