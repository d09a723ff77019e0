// The names of monitored methods of a portal, by the number that its phases carry. Sent to each new
// connection, so that a receiver can tell the numbers. One for the process, never destroyed: events in the
// queues point to its names.
#pragma once

#include "NamedObject.h"
#include "Relaxed.h"
#include "ZykHashTable.h"

#include <jni.h>

class PortalMethodMgr : public virtual NamedObject {
public:
    // The one of the process; null if memory ran out when it was to be made.
    static PortalMethodMgr *getInstance();

    ~PortalMethodMgr() override;

    // A copy of the name under the key; 0 and null store nothing. A key that comes twice stands there twice.
    void putMethod(jbyte key, const char *val);
    // One record each, by the calling thread.
    void pushMethodsToPS(JNIEnv *env);
    // Nobody may use the names any more.
    void clear();

private:
    PortalMethodMgr();

    // Java code that goes on naming methods must not fill the memory.
    static constexpr int32_t MOST_METHODS = 10000;

    Relaxed<bool> hasMethods{false};
    ZykHashTable<jbyte *, char *> methods; // both owned
};
