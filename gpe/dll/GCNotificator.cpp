#include "GCNotificator.h"

#include "JVMTIUtils.h"

jrawMonitorID GCNotificatorMonitor = nullptr;

jvmtiError createGCNotificatorMonitor() {
    if (jvmti == nullptr) {
        return JVMTI_ERROR_NULL_POINTER;
    }
    return jvmti->CreateRawMonitor("GCNotificatorMonitor", &GCNotificatorMonitor);
}
