// One fact observed in the JVM. A native makes it on the stack of its thread (`EventDraft.h`), the queue
// keeps it as one block with its texts (`EventQueue.h`), an event agent writes it from there: one owner at a
// time, so no field needs a lock.
#pragma once

#include <cstdint>
#include <jni.h>

class ProtocolVisitor;
struct jclass_t;

// A text or an array of an event. Its bytes stand behind the event in the same block and are found by their
// distance from here, so that the block can be moved as it is; nobody frees them. A text is in modified UTF-8
// and has a NUL behind it.
class alignas(8) Text {
public:
    Text() = default;
    Text(const Text &) = delete; // it would point elsewhere
    Text &operator=(const Text &) = delete;

    bool isNull() const { return distance == 0; }
    uint32_t length() const { return bytes; } // the NUL not counted
    const char *data() const { return isNull() ? nullptr : reinterpret_cast<const char *>(this) + distance; }
    // For arrays, which stand aligned to 8 bytes.
    template <typename T>
    const T *array() const {
        return reinterpret_cast<const T *>(data());
    }

private:
    friend class EventDraft;
    uint32_t distance = 0;
    uint32_t bytes = 0;
};

class Event {
public:
    // Numbers 0 and 2 are no classes: 0 writes nothing and passes for sent, 2 is unknown.
    enum EventType : int32_t {
        TYPE_NOTHING = 0,
        TYPE_CLASS = 1,
        TYPE_METHOD = 3,
        TYPE_HTTP = 4,
        TYPE_EJB = 5,
        TYPE_TRACE = 6,
        TYPE_SQL = 7,
        TYPE_GC = 8,
        TYPE_JMS = 9,
        TYPE_JCA = 10,
        TYPE_JNDI = 11,
        TYPE_MAIL = 12,
        TYPE_SAMPLING = 13,
        TYPE_GPS = 14,
        TYPE_DROPPED = 15,
        TYPE_GWX = 16,
        TYPE_XQI = 17,
        TYPE_PORTAL_LOGIN = 18,
        TYPE_PORTAL_ACCESS_CONTROL = 19,
        TYPE_PORTAL_CREDENTIAL_VAULT = 20,
        TYPE_PORTAL_CONTENT_ACCESS = 21,
        TYPE_PORTAL_PAGE = 22,
        TYPE_PORTAL_PORTLET = 23,
        TYPE_PS_STATUS = 24,
        TYPE_EXCEPTION = 25,
        TYPE_XQ = 26,
        TYPE_GPS_XQ = 27,
        TYPE_DO_VERB_FOR = 28,
        TYPE_POLL_FOR = 29,
        TYPE_HEAP = 30,
        TYPE_LOCK_ACQUISITION = 31,
        TYPE_LOCK_CONTENTION = 32,
        TYPE_LOCK_RELEASE = 33,
        TYPE_PORTAL_GATEWAY_SERVLET_SUM = 34,
        TYPE_PORTAL_MODEL_BUILDING_SUM = 35,
        TYPE_PORTAL_PAGE_LOADING_SUM = 36,
        TYPE_PORTAL_AUTHENTICATION = 37,
        TYPE_PORTAL_AUTHORIZATION = 38,
        TYPE_PORTAL_MODEL_BUILDING = 39,
        TYPE_PORTAL_PAGE_LOADING = 40,
        TYPE_PORTAL_PAGE_RENDERING = 41,
        TYPE_PORTAL_ACTION = 42,
        TYPE_PORTAL_GATEWAY_SERVLET = 43,
        TYPE_PORTAL_METHOD_CONSTANT = 44,
        TYPE_IIOP_CLIENT = 45,
        TYPE_IIOP_SERVER = 46,
        TYPE_JDO = 47,
        TYPE_WS_CLIENT = 48,
        TYPE_WS_PROVIDER = 49,
        TYPE_WS_FAULT = 50,
        TYPE_GENERIC_START = 99,
        TYPE_GENERIC_STOP = 100,
        TYPE_GENERIC_EXCEPTION = 108
    };

    enum EventSubType : int32_t {
        SUB_START = 0,
        SUB_END = 1,
        SUB_FAILED = 2, // of an HTTP request
        SUB_CLASS_LOAD = 3,
        SUB_CLASS_UNLOAD = 4,
        SUB_CORRELATED_RECEIVED = 5,
        SUB_CORRELATED_COMPLETED = 6,
        SUB_CORRELATED_TM = 7, // a call of the transaction monitor
        SUB_ALONE = 8          // neither begin nor end
    };

    // What a messaging call does; the first two can carry a selector.
    enum JMS_ACTION : int32_t { JMS_ACTION_1 = 1, JMS_ACTION_2 = 2, JMS_ACTION_3 = 3, JMS_ACTION_4 = 4 };

    // Frees what stands outside of the event's block.
    virtual ~Event();

    // Writes one record. False, with nothing written, if `visitor` is null or no record is defined for `type`
    // (then a warning is logged too). Whether the record did fit only the visitor can tell.
    virtual bool addToBuffer(ProtocolVisitor *visitor);

    Event(const Event &) = delete;
    Event &operator=(const Event &) = delete;

    // Bytes that the event is taken to hold while it is queued.
    int32_t charge() const { return size + static_cast<int32_t>(extraBytes); }

    uint32_t threadId = 0;   // number of the `ThreadData`, 0 where unknown
    uint32_t extraBytes = 0; // of texts and arrays so long that `size` cannot stand for them
    int64_t cpuTime = 0;     // thread CPU time in nanoseconds
    uint32_t timeSec = 0;    // wall clock, seconds since the epoch
    uint32_t timeUSec = 0;   // microseconds within the second, in steps of 1000
    int16_t size;            // estimate of the memory held, in bytes; starts as the object's own size
    EventType type;
    EventSubType subType;

protected:
    Event(EventType eventType, EventSubType eventSubType, size_t ownSize)
        : size(static_cast<int16_t>(ownSize)), type(eventType), subType(eventSubType) {}
};

// ---------------------------------------------------------------- requests

class RequestEvent : public Event {
public:
    RequestEvent(EventType eventType, EventSubType eventSubType, size_t ownSize = sizeof(RequestEvent))
        : Event(eventType, eventSubType, ownSize) {}

    Text requestName;
    Text applicationName;
    Text url;
    Text userId;
    int32_t requestDepth = 0;
};

class HttpEvent : public RequestEvent {
public:
    explicit HttpEvent(EventSubType sub) : RequestEvent(TYPE_HTTP, sub, sizeof(HttpEvent)) {}
};

class TraceEvent : public RequestEvent {
public:
    explicit TraceEvent(EventSubType sub = SUB_ALONE) : RequestEvent(TYPE_TRACE, sub, sizeof(TraceEvent)) {}
};

// The next two have a record, but no producer.
class DoVerbForEvent : public RequestEvent {
public:
    explicit DoVerbForEvent(EventSubType sub) : RequestEvent(TYPE_DO_VERB_FOR, sub, sizeof(DoVerbForEvent)) {}
};

class PollForEvent : public RequestEvent {
public:
    explicit PollForEvent(EventSubType sub) : RequestEvent(TYPE_POLL_FOR, sub, sizeof(PollForEvent)) {}
};

class EJBEvent : public Event {
public:
    explicit EJBEvent(EventSubType sub) : Event(TYPE_EJB, sub, sizeof(EJBEvent)) {}

    int32_t requestDepth = 0;
    Text data; // `count` bytes as the Java side composed them
    int32_t count = 0;
};

class SQLEvent : public Event {
public:
    explicit SQLEvent(EventSubType sub) : Event(TYPE_SQL, sub, sizeof(SQLEvent)) {}

    Text dataSourceName;
    Text sql;
    int32_t requestDepth = 0;
};

class JMSEvent : public Event {
public:
    explicit JMSEvent(EventSubType sub) : Event(TYPE_JMS, sub, sizeof(JMSEvent)) {}

    int32_t requestDepth = 0;
    JMS_ACTION action = JMS_ACTION_3;
    Text server;
    Text queue;
    Text selector;
};

class JCAEvent : public Event {
public:
    explicit JCAEvent(EventSubType sub) : Event(TYPE_JCA, sub, sizeof(JCAEvent)) {}

    int32_t requestDepth = 0;
    Text eis;
};

class JNDIEvent : public Event {
public:
    explicit JNDIEvent(EventSubType sub) : Event(TYPE_JNDI, sub, sizeof(JNDIEvent)) {}

    int32_t requestDepth = 0;
    Text url;
    Text lookup;
};

class JDOEvent : public Event {
public:
    explicit JDOEvent(EventSubType sub) : Event(TYPE_JDO, sub, sizeof(JDOEvent)) {}

    int32_t requestDepth = 0;
    Text className;
    Text methodName;
    Text argumentString;
};

class MailEvent : public Event {
public:
    explicit MailEvent(EventSubType sub) : Event(TYPE_MAIL, sub, sizeof(MailEvent)) {}

    int32_t requestDepth = 0;
    Text url;
    Text subject;
};

// A call of the message queueing interface; its depth is the one of `RequestEvent`.
class XQEvent : public RequestEvent {
public:
    explicit XQEvent(EventSubType sub) : RequestEvent(TYPE_XQ, sub, sizeof(XQEvent)) {}

    int32_t action = 0;
    Text queueName;
    Text queueMgrName;
};

// An IIOP client's call, and the root of events that write their record themselves.
class CommonEvent : public Event {
public:
    explicit CommonEvent(EventSubType sub) : CommonEvent(TYPE_IIOP_CLIENT, sub, OWN_SIZE) {}

    bool addToBuffer(ProtocolVisitor *visitor) override;

    // For subclasses. `addExtraFields` writes behind the names of a begin record; `prepare` is called once by
    // the producer, on its thread; `isNameCachedByType` makes the method name go out once for each type only.
    virtual bool addExtraFields(ProtocolVisitor *) { return true; }
    virtual bool prepare(JNIEnv *, int64_t /*value*/) { return true; }
    virtual bool isNameCachedByType() { return false; }

    Text className;
    Text methodName;
    int32_t requestDepth = 0;

protected:
    CommonEvent(EventType eventType, EventSubType sub, size_t ownSize) : Event(eventType, sub, ownSize) {}

private:
    static constexpr size_t OWN_SIZE = 328; // fixed charge, whatever the object measures
};

class IIOPServerEvent : public CommonEvent {
public:
    explicit IIOPServerEvent(EventSubType sub)
        : CommonEvent(TYPE_IIOP_SERVER, sub, sizeof(IIOPServerEvent)) {}
};

class WSClientEvent : public RequestEvent {
public:
    explicit WSClientEvent(EventSubType sub) : WSClientEvent(TYPE_WS_CLIENT, sub) {}

protected:
    WSClientEvent(EventType eventType, EventSubType sub)
        : RequestEvent(eventType, sub, sizeof(WSClientEvent)) {}
};

// The other side of the same call: the same fields and layout.
class WSProviderEvent : public WSClientEvent {
public:
    explicit WSProviderEvent(EventSubType sub) : WSClientEvent(TYPE_WS_PROVIDER, sub) {}
};

class WSFaultEvent : public Event {
public:
    explicit WSFaultEvent(EventSubType sub) : Event(TYPE_WS_FAULT, sub, sizeof(WSFaultEvent)) {}

    Text faultCode;
    Text faultString;
    Text appName;
    int32_t requestDepth = 0;
};

// A list of texts whose entries may be null: `nCtxProps` of them, an array of `Text`.
struct ContextValues {
    int32_t nCtxProps = 0;
    Text ctxValues;

    const Text &value(int32_t index) const { return ctxValues.array<Text>()[index]; }
};

class GenericEvent : public Event, public ContextValues {
public:
    // `eventType` is TYPE_GENERIC_START or TYPE_GENERIC_STOP.
    GenericEvent(EventType eventType, int32_t eventId)
        : Event(eventType, SUB_ALONE, sizeof(GenericEvent)), id(eventId) {}

    int32_t requestDepth = 0;
    int32_t id;
};

class GenericExceptionEvent : public Event, public ContextValues {
public:
    explicit GenericExceptionEvent(int32_t eventId)
        : Event(TYPE_GENERIC_EXCEPTION, SUB_ALONE, sizeof(GenericExceptionEvent)), id(eventId) {}

    int32_t id;
};

// ---------------------------------------------------------------- correlation, status, system

// `requestName` holds the token: `tokenLength` bytes, or a text of that length.
class GPSEvent : public RequestEvent {
public:
    explicit GPSEvent(EventSubType sub) : RequestEvent(TYPE_GPS, sub, sizeof(GPSEvent)) {}

    Text gateway;
    int32_t tokenLength = 0;
};

// Correlation through a message queue; its depth is the one of `RequestEvent`.
class GPSXQEvent : public RequestEvent {
public:
    explicit GPSXQEvent(EventSubType sub) : RequestEvent(TYPE_GPS_XQ, sub, sizeof(GPSXQEvent)) {}

    Text queueName;
    Text gpsToken; // `tokenLength` bytes
    int32_t action = 0;
    int32_t tokenLength = 0;
};

class SamplingEvent : public Event {
public:
    explicit SamplingEvent(EventSubType sub = SUB_ALONE) : Event(TYPE_SAMPLING, sub, sizeof(SamplingEvent)) {}

    int32_t levels[4] = {};
    int32_t useDefault = 0;
};

class DroppedEvent : public Event {
public:
    explicit DroppedEvent(EventSubType sub = SUB_ALONE) : Event(TYPE_DROPPED, sub, sizeof(DroppedEvent)) {}

    int32_t otherStarts = 0;
    int32_t otherEnds = 0;
    int32_t methodStarts = 0;
    int32_t methodEnds = 0;
    int32_t sqlStarts = 0;
    int32_t sqlEnds = 0;
};

class PSStatusEvent : public Event {
public:
    explicit PSStatusEvent(EventSubType sub = SUB_ALONE)
        : Event(TYPE_PS_STATUS, sub, sizeof(PSStatusEvent)) {}

    Text message;
};

class ExceptionEvent : public Event {
public:
    explicit ExceptionEvent(EventSubType sub = SUB_ALONE)
        : Event(TYPE_EXCEPTION, sub, sizeof(ExceptionEvent)) {}

    Text exception;
    Text className;
    Text methodName;
    Text stackTrace;
};

class GCEvent : public Event {
public:
    explicit GCEvent(EventSubType sub) : Event(TYPE_GC, sub, sizeof(GCEvent)) {}

    uint64_t usedObjects = 0;
    uint64_t usedObjectSpace = 0;
    uint64_t totalObjectSpace = 0;
};

class GWXEvent : public Event {
public:
    explicit GWXEvent(EventSubType sub = SUB_ALONE) : Event(TYPE_GWX, sub, sizeof(GWXEvent)) {}

    Text gatewayName;
    Text serverName;
    Text progName;
    int64_t snapShotTime = 0;
    int32_t count = 0;
    int64_t avgTimeTaken = 0;
};

class XQIEvent : public Event {
public:
    explicit XQIEvent(EventSubType sub = SUB_ALONE) : Event(TYPE_XQI, sub, sizeof(XQIEvent)) {}

    Text mgrName;
    Text queueName;
    int64_t snapShotTime = 0;
    Text types;    // this and the next two: arrays of `arrLength` elements each; of 8 bits,
    Text counts;   // of 32
    Text avgTimes; // and of 64
    int32_t arrLength = 0;
};

// ---------------------------------------------------------------- classes, methods, heap, locks

class ClassEvent : public Event {
public:
    explicit ClassEvent(EventSubType sub) : Event(TYPE_CLASS, sub, OWN_SIZE) {}
    ~ClassEvent() override;

    jclass_t *classRecord = nullptr; // held by the event; not null once it is queued

private:
    static constexpr size_t OWN_SIZE = 96; // fixed charge, whatever the object measures
};

class MethodEvent : public Event {
public:
    explicit MethodEvent(EventSubType sub) : Event(TYPE_METHOD, sub, sizeof(MethodEvent)) {}

    int32_t methodId = 0;
    int32_t detailKind = 0; // has no producer
    Text detail;            // has no producer
};

class HeapEvent : public Event {
public:
    explicit HeapEvent(EventSubType sub) : Event(TYPE_HEAP, sub, sizeof(HeapEvent)) {}

    int32_t allocatingMethodId = 0;
    Text instantiatedClassName;
    int32_t allocatingLineNumber = 0; // stays 0: the producers do not keep it
    int32_t requestDepth = 0;
};

class LockEvent : public Event {
public:
    int32_t lockingMethodId = 0;
    Text lockedClassName;
    int32_t requestDepth = 0;

protected:
    LockEvent(EventType eventType, EventSubType sub, size_t ownSize) : Event(eventType, sub, ownSize) {}
};

class LockAcquisitionEvent : public LockEvent {
public:
    explicit LockAcquisitionEvent(EventSubType sub)
        : LockEvent(TYPE_LOCK_ACQUISITION, sub, sizeof(LockAcquisitionEvent)) {}
};

class LockContentionEvent : public LockEvent {
public:
    explicit LockContentionEvent(EventSubType sub)
        : LockEvent(TYPE_LOCK_CONTENTION, sub, sizeof(LockContentionEvent)) {}

    int8_t owningRequestType = 0;
    Text owningRequestName;
    Text owningApplicationName;
    int32_t owningMethodId = 0;
};

class LockReleaseEvent : public LockEvent {
public:
    explicit LockReleaseEvent(EventSubType sub)
        : LockEvent(TYPE_LOCK_RELEASE, sub, sizeof(LockReleaseEvent)) {}
};

// ---------------------------------------------------------------- portal

class PortalPageEvent : public RequestEvent {
public:
    explicit PortalPageEvent(EventSubType sub)
        : RequestEvent(TYPE_PORTAL_PAGE, sub, sizeof(PortalPageEvent)) {}
};

class PortalPortletEvent : public RequestEvent {
public:
    explicit PortalPortletEvent(EventSubType sub)
        : RequestEvent(TYPE_PORTAL_PORTLET, sub, sizeof(PortalPortletEvent)) {}
};

// Figures that Java code has counted: a number of calls and their mean time.
struct CountAndTime {
    int32_t count = 0;
    int64_t avgTime = 0;
};

class PortalAuthAcEvent : public Event, public CountAndTime {
public:
    // `eventType` is TYPE_PORTAL_LOGIN or TYPE_PORTAL_ACCESS_CONTROL.
    explicit PortalAuthAcEvent(EventType eventType, EventSubType sub = SUB_ALONE)
        : Event(eventType, sub, sizeof(PortalAuthAcEvent)) {}
};

class PortalAggregateDataEvent : public Event, public CountAndTime {
public:
    // `eventType` is one of the TYPE_PORTAL_..._SUM.
    explicit PortalAggregateDataEvent(EventType eventType, EventSubType sub = SUB_ALONE)
        : Event(eventType, sub, sizeof(PortalAggregateDataEvent)) {}
};

class PortalCredentialVaultEvent : public Event {
public:
    explicit PortalCredentialVaultEvent(EventSubType sub = SUB_ALONE)
        : Event(TYPE_PORTAL_CREDENTIAL_VAULT, sub, sizeof(PortalCredentialVaultEvent)) {}

    CountAndTime figures[5];
};

class PortalContentAccessEvent : public Event {
public:
    explicit PortalContentAccessEvent(EventSubType sub = SUB_ALONE)
        : Event(TYPE_PORTAL_CONTENT_ACCESS, sub, sizeof(PortalContentAccessEvent)) {}

    CountAndTime figures[4];
};

// One phase of a page request; `methodId` is a key of the method constants.
class PortalPhaseEvent : public Event {
public:
    int32_t requestDepth = 0;
    int8_t methodId = 0;

protected:
    PortalPhaseEvent(EventType eventType, EventSubType sub)
        : Event(eventType, sub, sizeof(PortalPhaseEvent)) {}
};

class PortalAuthenticationEvent : public PortalPhaseEvent {
public:
    explicit PortalAuthenticationEvent(EventSubType sub)
        : PortalPhaseEvent(TYPE_PORTAL_AUTHENTICATION, sub) {}
};

class PortalAuthorizationEvent : public PortalPhaseEvent {
public:
    explicit PortalAuthorizationEvent(EventSubType sub) : PortalPhaseEvent(TYPE_PORTAL_AUTHORIZATION, sub) {}
};

class PortalModelBuildingEvent : public PortalPhaseEvent {
public:
    explicit PortalModelBuildingEvent(EventSubType sub) : PortalPhaseEvent(TYPE_PORTAL_MODEL_BUILDING, sub) {}
};

class PortalPageLoadingEvent : public PortalPhaseEvent {
public:
    explicit PortalPageLoadingEvent(EventSubType sub) : PortalPhaseEvent(TYPE_PORTAL_PAGE_LOADING, sub) {}
};

class PortalPageRenderingEvent : public PortalPhaseEvent {
public:
    explicit PortalPageRenderingEvent(EventSubType sub) : PortalPhaseEvent(TYPE_PORTAL_PAGE_RENDERING, sub) {}
};

class PortalActionEvent : public PortalPhaseEvent {
public:
    explicit PortalActionEvent(EventSubType sub) : PortalPhaseEvent(TYPE_PORTAL_ACTION, sub) {}
};

class PortalGatewayServletEvent : public Event {
public:
    explicit PortalGatewayServletEvent(EventSubType sub)
        : Event(TYPE_PORTAL_GATEWAY_SERVLET, sub, sizeof(PortalGatewayServletEvent)) {}

    int32_t requestDepth = 0;
    Text pageName;
};

class PortalMethodConstantEvent : public Event {
public:
    explicit PortalMethodConstantEvent(EventSubType sub = SUB_START)
        : Event(TYPE_PORTAL_METHOD_CONSTANT, sub, sizeof(PortalMethodConstantEvent)) {}

    int8_t methodId = 0;
    const char *methodName = nullptr; // not owned: stands in the table of method constants
};
