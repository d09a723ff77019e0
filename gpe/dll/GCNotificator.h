// The monitor on which the Java thread that reports garbage collections sleeps. One thread waits at a time;
// any may notify it.
#pragma once

#include <cstdint>
#include <jvmti.h>

extern jrawMonitorID GCNotificatorMonitor; // null until created at agent load, then for the process's life

// JVMTI_ERROR_NULL_POINTER with no JVMTI environment.
jvmtiError createGCNotificatorMonitor();

// True if it was notified, or had been since the last wait; several notices count as one. `timeout` in
// milliseconds, 0 for no end. An interrupt ends it as a time-out, and is pending afterwards.
bool waitForNotification(int64_t timeout);
void notifyWaiter();
