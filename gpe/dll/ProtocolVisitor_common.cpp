// Events that write their record themselves, and the cache of the names that go out once for each type.
#include "ProtocolVisitor.h"

#include "ZykHashTable.h"

namespace {

constexpr int IIOP_CLIENT = 150;
constexpr int IIOP_SERVER = 152;

constexpr int NAME_CACHE_SIZE = 10;
using NameCache = ZykHashTable<int32_t, bool>;

// Never destroyed: event agents may still write while the process ends.
NameCache &sentNames() {
    static NameCache *cache = new NameCache(NAME_CACHE_SIZE, false, true);
    return *cache;
}

} // namespace

bool ProtocolVisitor::isCommonNameSent(Event::EventType type) {
    return sentNames().contains(type);
}

void ProtocolVisitor::setCommonNameSent(Event::EventType type) {
    sentNames().put(type, true);
}

void ProtocolVisitor::clearCommonNameCache() {
    sentNames().clear();
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
        visitor->addString(nameKnown ? nullptr : methodName);
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
