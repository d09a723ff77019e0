// A private copy of the installed JVMTI function table, to replace single functions in and to see which
// events are switched. Restores the old environment at its end. One at a time.
#pragma once

#include "JVMTIUtils.h"

#include <utility>
#include <vector>

class RecordedJvmti {
public:
    using Switch = std::pair<jvmtiEventMode, jvmtiEvent>;

    RecordedJvmti() : table(*jvmti->functions), old(jvmti) {
        switches.clear();
        table.SetEventNotificationMode = recordSwitch;
        environment.functions = &table;
        jvmti = &environment;
    }
    ~RecordedJvmti() { jvmti = old; }
    RecordedJvmti(const RecordedJvmti &) = delete;
    RecordedJvmti &operator=(const RecordedJvmti &) = delete;

    jvmtiInterface_1_ table;
    jvmtiEnv environment{};
    static inline std::vector<Switch> switches;

private:
    static jvmtiError JNICALL recordSwitch(jvmtiEnv *, jvmtiEventMode mode, jvmtiEvent event, jthread, ...) {
        switches.emplace_back(mode, event);
        return JVMTI_ERROR_NONE;
    }

    jvmtiEnv *old;
};
