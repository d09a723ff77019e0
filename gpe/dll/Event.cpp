#include "Event.h"

#include "Event_types.h"
#include "ProbeLgKit.h"
#include "class.h"

Event::~Event() = default;

bool Event::addToBuffer(ProtocolVisitor *visitor) {
    if (visitor == nullptr) {
        return false;
    }
    const auto record = factsOf(type).record;
    if (record == nullptr) {
        messageWarn(1039, "Unknown Event Type, TypeID: %d", static_cast<int>(type));
        return false;
    }
    record(visitor, this);
    return true;
}

ClassEvent::~ClassEvent() {
    jclass_t::release(classRecord);
}
