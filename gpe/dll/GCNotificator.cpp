#include "GCNotificator.h"

#include "JVMPIWrapper.h"
#include "JVMTIUtils.h"

jrawMonitorID GCNotificatorMonitor = nullptr;

namespace {

// Under the monitor.
bool notifyPending = false; // a notice came while nobody was waiting
bool waiting = false;
bool notified = false; // the wait was ended by a notice

} // namespace

jvmtiError createGCNotificatorMonitor() {
    if (jvmti == nullptr) {
        return JVMTI_ERROR_NULL_POINTER;
    }
    return jvmti->CreateRawMonitor("GCNotificatorMonitor", &GCNotificatorMonitor);
}

bool waitForNotification(int64_t timeout) {
    JVMPIWrapper *jvm = eventInterface;
    if (jvm == nullptr || jvmti == nullptr || GCNotificatorMonitor == nullptr) {
        return false;
    }
    jvm->RawMonitorEnter(GCNotificatorMonitor);
    notified = notifyPending;
    notifyPending = false;
    bool wasInterrupted = false;
    if (!notified) {
        waiting = true;
        wasInterrupted = jvm->RawMonitorWait(GCNotificatorMonitor, timeout) == WaitEnd::Interrupted;
        waiting = false;
    }
    const bool result = notified;
    notified = false;
    jvm->RawMonitorExit(GCNotificatorMonitor);
    if (wasInterrupted) {
        jvm->interruptCurrentThread();
    }
    return result;
}

void notifyWaiter() {
    JVMPIWrapper *jvm = eventInterface;
    if (jvm == nullptr || jvmti == nullptr || GCNotificatorMonitor == nullptr) {
        return;
    }
    jvm->RawMonitorEnter(GCNotificatorMonitor);
    if (waiting) {
        notified = true;
        jvm->RawMonitorNotifyAll(GCNotificatorMonitor);
    } else {
        notifyPending = true;
    }
    jvm->RawMonitorExit(GCNotificatorMonitor);
}
