// The native side of byte-code instrumentation: finds the Java class that instruments, once the JVM is up.
#pragma once

#include "JVMPIWrapper.h"

// At VM init, on its thread: finds `BcmBootstrap` and its instrument methods. Until it has run, and for ever
// if the class is missing, classes stay as they are.
void notifyJVMInitDone(const JVMPI_Event *event);

constexpr char BOOTSTRAP_CLASS[] = "com/qel/morvex/norak/toolkit/ai/bcm/bootstrap/BcmBootstrap";
