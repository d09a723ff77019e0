// The native side of byte-code instrumentation: finds the Java class that instruments, once the JVM is up,
// and gives it each class that is loaded.
#pragma once

#include "JVMPIWrapper.h"

// At VM init, on its thread: finds `BcmBootstrap` and its instrument methods. Until it has run, and for ever
// if the class is missing, classes stay as they are.
void notifyJVMInitDone(const JVMPI_Event *event);

// On any thread that loads a class, in slash form. Whatever fails, the class stays as it is, and no exception
// is left pending. What comes back from Java is taken if it begins as a class file does.
void notifyClassLoadHookJVMTIEvent(JNIEnv *env, jobject loader, const char *name, jint class_data_len,
                                   const unsigned char *class_data, jint *new_class_data_len,
                                   unsigned char **new_class_data);

// Whether classes of that name, in dotted or slash form, never reach Java.
bool classIsExcluded(const char *class_name);

constexpr char BOOTSTRAP_CLASS[] = "com/qel/morvex/norak/toolkit/ai/bcm/bootstrap/BcmBootstrap";
