#include "Event.h"

#include "ProbeLgKit.h"
#include "ProtocolVisitor.h"
#include "class.h"

#include <array>

namespace {

using Writer = void (*)(ProtocolVisitor *visitor, Event *event);

// The event's type tells its class, so the cast is exact.
template <typename E>
void write(ProtocolVisitor *visitor, Event *event) {
    visitor->addToBuffer(static_cast<E *>(event));
}

void writeNothing(ProtocolVisitor *, Event *) {}

struct Route {
    Event::EventType type;
    Writer writer;
};

// Types 45 and 46 are missing: their class writes itself.
constexpr Route ROUTES[] = {
    {Event::TYPE_NOTHING, writeNothing},
    {Event::TYPE_HTTP, write<HttpEvent>},
    {Event::TYPE_EJB, write<EJBEvent>},
    {Event::TYPE_TRACE, write<TraceEvent>},
    {Event::TYPE_SQL, write<SQLEvent>},
    {Event::TYPE_GC, write<GCEvent>},
    {Event::TYPE_JMS, write<JMSEvent>},
    {Event::TYPE_JCA, write<JCAEvent>},
    {Event::TYPE_JNDI, write<JNDIEvent>},
    {Event::TYPE_MAIL, write<MailEvent>},
    {Event::TYPE_SAMPLING, write<SamplingEvent>},
    {Event::TYPE_GPS, write<GPSEvent>},
    {Event::TYPE_DROPPED, write<DroppedEvent>},
    {Event::TYPE_GWX, write<GWXEvent>},
    {Event::TYPE_XQI, write<XQIEvent>},
    {Event::TYPE_PS_STATUS, write<PSStatusEvent>},
    {Event::TYPE_EXCEPTION, write<ExceptionEvent>},
    {Event::TYPE_XQ, write<XQEvent>},
    {Event::TYPE_GPS_XQ, write<GPSXQEvent>},
    {Event::TYPE_DO_VERB_FOR, write<DoVerbForEvent>},
    {Event::TYPE_POLL_FOR, write<PollForEvent>},
    {Event::TYPE_JDO, write<JDOEvent>},
    {Event::TYPE_WS_CLIENT, write<WSClientEvent>},
    {Event::TYPE_WS_PROVIDER, write<WSProviderEvent>},
    {Event::TYPE_WS_FAULT, write<WSFaultEvent>},
    {Event::TYPE_GENERIC_START, write<GenericEvent>},
    {Event::TYPE_GENERIC_STOP, write<GenericEvent>},
    {Event::TYPE_GENERIC_EXCEPTION, write<GenericExceptionEvent>},
};

constexpr uint32_t TYPE_LIMIT = Event::TYPE_GENERIC_EXCEPTION + 1;

// The routes by type; null where no record is defined.
constexpr auto WRITERS = [] {
    std::array<Writer, TYPE_LIMIT> writers{};
    for (const Route &route : ROUTES) {
        writers[static_cast<uint32_t>(route.type)] = route.writer;
    }
    return writers;
}();

Writer writerOf(Event::EventType type) {
    const uint32_t index = static_cast<uint32_t>(type);
    return index < TYPE_LIMIT ? WRITERS[index] : nullptr;
}

} // namespace

Event::~Event() = default;

bool Event::addToBuffer(ProtocolVisitor *visitor) {
    if (visitor == nullptr) {
        return false;
    }
    const Writer writer = writerOf(type);
    if (writer == nullptr) {
        messageWarn(1039, "Unknown Event Type, TypeID: %d", static_cast<int>(type));
        return false;
    }
    writer(visitor, this);
    return true;
}

ClassEvent::~ClassEvent() {
    if (classRecord != nullptr && classRecord->deleteWithEvent != 0) {
        delete classRecord;
    }
}
