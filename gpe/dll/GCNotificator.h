// The monitor on which the Java thread that reports garbage collections sleeps.
#pragma once

#include <jvmti.h>

extern jrawMonitorID GCNotificatorMonitor; // null until created at agent load, then for the process's life

// JVMTI_ERROR_NULL_POINTER with no JVMTI environment.
jvmtiError createGCNotificatorMonitor();
