// The records of classes and their methods, of what is allocated and of monitors.
#include "ProtocolVisitor.h"

#include "class.h"

#include <algorithm>

namespace {

constexpr int CLASS_LOAD = 1;
constexpr int CLASS_UNLOAD = 12;
constexpr int METHOD = 2;
constexpr int HEAP = 124;
constexpr int LOCK_ACQUISITION = 118;
constexpr int LOCK_CONTENTION = 120;
constexpr int LOCK_RELEASE = 122;

} // namespace

// ---------------------------------------------------------------- classes and methods

void ProtocolVisitor::addToBuffer(ClassEvent *evt) {
    const jclass_t *cls = evt->classRecord;
    const bool loads = evt->subType == Event::SUB_CLASS_LOAD;
    const Record record = openBare(loads ? CLASS_LOAD : CLASS_UNLOAD, evt->threadId);
    addU32(cls->sequence);
    if (loads) {
        addString(cls->name);
    } else {
        addU32(cls->id);
    }
    const int32_t count = std::max(cls->methodCount, 0);
    addU32(count);
    for (int32_t i = 0; i < count; ++i) {
        addU32(cls->methods[i].id);
        if (loads) {
            addString(cls->methods[i].name);
            addString(cls->methods[i].signature);
        }
    }
    close(record);
}

void ProtocolVisitor::addToBuffer(MethodEvent *mth) {
    const Record record = openBare(recordType(METHOD, *mth), mth->threadId);
    addU32(mth->threadId);
    addU32(static_cast<uint32_t>(mth->methodId));
    addClocks(*mth);
    close(record);
}

// ---------------------------------------------------------------- allocations and monitors

void ProtocolVisitor::addToBuffer(HeapEvent *evt) {
    const Record record = open(recordType(HEAP, *evt), *evt);
    if (begins(*evt)) {
        addU32(static_cast<uint32_t>(evt->allocatingMethodId));
        addString(evt->instantiatedClassName);
        addU32(static_cast<uint32_t>(evt->allocatingLineNumber));
    }
    closeWithLevel(record);
}

void ProtocolVisitor::addLock(int beginType, const LockEvent &lock) {
    const Record record = open(recordType(beginType, lock), lock);
    if (begins(lock)) {
        addU32(static_cast<uint32_t>(lock.lockingMethodId));
        addString(lock.lockedClassName);
    }
    closeWithLevel(record);
}

void ProtocolVisitor::addToBuffer(LockAcquisitionEvent *evt) {
    addLock(LOCK_ACQUISITION, *evt);
}

void ProtocolVisitor::addToBuffer(LockReleaseEvent *evt) {
    addLock(LOCK_RELEASE, *evt);
}

void ProtocolVisitor::addToBuffer(LockContentionEvent *evt) {
    const Record record = open(recordType(LOCK_CONTENTION, *evt), *evt);
    if (begins(*evt)) {
        addU32(static_cast<uint32_t>(evt->lockingMethodId));
        addString(evt->lockedClassName);
        addU8(static_cast<uint8_t>(evt->owningRequestType));
        addStrings(evt->owningRequestName, evt->owningApplicationName);
        addU32(static_cast<uint32_t>(evt->owningMethodId));
    }
    closeWithLevel(record);
}
