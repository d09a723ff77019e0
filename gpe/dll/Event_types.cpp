#include "Event_types.h"

#include "ProtocolVisitor.h"

namespace {

// The event's type tells its class, so the cast is exact. The visitor has a record for this very class, not
// only for a base of it.
template <typename E>
void record(ProtocolVisitor *visitor, Event *event) {
    constexpr void (ProtocolVisitor::*WRITE)(E *) = &ProtocolVisitor::addToBuffer;
    (visitor->*WRITE)(static_cast<E *>(event));
}

void writeNothing(ProtocolVisitor *, Event *) {}

constexpr auto NO_RECORD = nullptr;
constexpr auto WRITES_ITSELF = nullptr; // its class overrides `addToBuffer`

// Without a default, so that a type without a row does not compile.
// NOLINTNEXTLINE(readability-function-size): as long as there are types
constexpr EventTypeFacts rowOf(Event::EventType type) {
    switch (type) {
    case Event::TYPE_NOTHING:
        return {writeNothing, Loss::Other, Keeping::Droppable};
    case Event::TYPE_CLASS:
        return {record<ClassEvent>, Loss::Other, Keeping::Protected};
    case Event::TYPE_METHOD:
        return {record<MethodEvent>, Loss::Method, Keeping::Droppable};
    case Event::TYPE_HTTP:
        return {record<RequestEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_EJB:
        return {record<EJBEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_TRACE:
        return {record<TraceEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_SQL:
        return {record<SQLEvent>, Loss::Sql, Keeping::Droppable};
    case Event::TYPE_GC:
        return {record<GCEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_JMS:
        return {record<JMSEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_JCA:
        return {record<JCAEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_JNDI:
        return {record<JNDIEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_MAIL:
        return {record<MailEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_SAMPLING:
        return {record<SamplingEvent>, Loss::Other, Keeping::Protected};
    case Event::TYPE_GPS:
        return {record<GPSEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_DROPPED:
        return {record<DroppedEvent>, Loss::Other, Keeping::Protected};
    case Event::TYPE_GWX:
        return {record<GWXEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_XQI:
        return {record<XQIEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PS_STATUS:
        return {record<PSStatusEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_EXCEPTION:
        return {record<ExceptionEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_XQ:
        return {record<XQEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_GPS_XQ:
        return {record<GPSXQEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_DO_VERB_FOR:
        return {record<DoVerbForEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_POLL_FOR:
        return {record<PollForEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_METHOD_CONSTANT:
        return {record<PortalMethodConstantEvent>, Loss::None, Keeping::Protected};
    case Event::TYPE_IIOP_CLIENT:
        return {WRITES_ITSELF, Loss::Other, Keeping::Droppable};
    case Event::TYPE_IIOP_SERVER:
        return {WRITES_ITSELF, Loss::Other, Keeping::Droppable};
    case Event::TYPE_JDO:
        return {record<JDOEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_WS_CLIENT:
        return {record<WSClientEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_WS_PROVIDER:
        return {record<WSClientEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_WS_FAULT:
        return {record<WSFaultEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_GENERIC_START:
        return {record<GenericEvent>, Loss::OtherBegin, Keeping::Droppable};
    case Event::TYPE_GENERIC_STOP:
        return {record<GenericEvent>, Loss::OtherEnd, Keeping::Droppable};
    case Event::TYPE_GENERIC_EXCEPTION:
        return {record<GenericExceptionEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_LOGIN:
        return {record<PortalAuthAcEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_ACCESS_CONTROL:
        return {record<PortalAuthAcEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_CREDENTIAL_VAULT:
        return {record<PortalCredentialVaultEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_CONTENT_ACCESS:
        return {record<PortalContentAccessEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_PAGE:
        return {record<PortalPageEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_PORTLET:
        return {record<PortalPortletEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_HEAP:
        return {record<HeapEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_LOCK_ACQUISITION:
        return {record<LockAcquisitionEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_LOCK_CONTENTION:
        return {record<LockContentionEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_LOCK_RELEASE:
        return {record<LockReleaseEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_GATEWAY_SERVLET_SUM:
        return {record<PortalAggregateDataEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_MODEL_BUILDING_SUM:
        return {record<PortalAggregateDataEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_PAGE_LOADING_SUM:
        return {record<PortalAggregateDataEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_AUTHENTICATION:
        return {record<PortalAuthenticationEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_AUTHORIZATION:
        return {record<PortalAuthorizationEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_MODEL_BUILDING:
        return {record<PortalModelBuildingEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_PAGE_LOADING:
        return {record<PortalPageLoadingEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_PAGE_RENDERING:
        return {record<PortalPageRenderingEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_ACTION:
        return {record<PortalActionEvent>, Loss::Other, Keeping::Droppable};
    case Event::TYPE_PORTAL_GATEWAY_SERVLET:
        return {record<PortalGatewayServletEvent>, Loss::Other, Keeping::Droppable};
    }
    return {NO_RECORD, Loss::Other, Keeping::Droppable};
}

} // namespace

constexpr decltype(EVENT_TYPES) EVENT_TYPES = [] {
    std::array<EventTypeFacts, EVENT_TYPE_LIMIT + 1> facts{};
    for (size_t type = 0; type < facts.size(); ++type) {
        facts[type] = rowOf(static_cast<Event::EventType>(type));
    }
    return facts;
}();
