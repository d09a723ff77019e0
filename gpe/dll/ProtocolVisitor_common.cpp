// Events that write their record themselves, and the cache of the names that go out once for each type.
#include "ProtocolVisitor.h"

namespace {

constexpr int IIOP_CLIENT = 150;
constexpr int IIOP_SERVER = 152;

// By type; a type without a place is never cached.
Relaxed<bool> sentNames[Event::TYPE_GENERIC_EXCEPTION + 1];

bool hasPlace(Event::EventType type) {
    return type >= 0 && type <= Event::TYPE_GENERIC_EXCEPTION;
}

} // namespace

bool ProtocolVisitor::isCommonNameSent(Event::EventType type) {
    return hasPlace(type) && sentNames[type];
}

void ProtocolVisitor::setCommonNameSent(Event::EventType type) {
    if (hasPlace(type)) {
        sentNames[type] = true;
    }
}

void ProtocolVisitor::clearCommonNameCache() {
    for (Relaxed<bool> &sent : sentNames) {
        sent = false;
    }
}

int ProtocolVisitor::getRecordType(Event::EventType type, Event::EventSubType subType) {
    switch (type) {
    case Event::TYPE_IIOP_CLIENT:
        return subType == Event::SUB_START ? IIOP_CLIENT : IIOP_CLIENT + 1;
    case Event::TYPE_IIOP_SERVER:
        return subType == Event::SUB_START ? IIOP_SERVER : IIOP_SERVER + 1;
    default:
        return -1;
    }
}

bool CommonEvent::addToBuffer(ProtocolVisitor *visitor) {
    if (visitor == nullptr) {
        return false;
    }
    const bool cached = subType == SUB_START && isNameCachedByType();
    visitor->addPrefix(ProtocolVisitor::getRecordType(type, subType), *this, requestDepth);
    if (subType == SUB_START) {
        const bool nameKnown = cached && ProtocolVisitor::isCommonNameSent(type);
        visitor->addString(className);
        visitor->addU32(cached ? type : 0);
        visitor->addBlob(methodName.data(), nameKnown ? 0 : methodName.length());
        addExtraFields(visitor);
    }
    visitor->addLevel();
    visitor->addEndOfRecord();
    // A record that did not fit is written once more, and then has to name itself.
    if (cached && !visitor->hasOverflowed()) {
        ProtocolVisitor::setCommonNameSent(type);
    }
    return true;
}
