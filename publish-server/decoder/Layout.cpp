#include "decoder/Layout.h"

#include <array>
#include <cstring>

namespace ps {
namespace {

constexpr Field kPrefix{Kind::Prefix};
constexpr Field kLevel{Kind::Level};
constexpr Field kThreadId{Kind::ThreadId};
constexpr Field kTime{Kind::Time};

constexpr Field u8(const char *name, std::uint64_t low = 0, std::uint64_t high = kAny) {
    return {Kind::Number, name, 1, low, high};
}
constexpr Field u32(const char *name, std::uint64_t low = 0, std::uint64_t high = kAny) {
    return {Kind::Number, name, 4, low, high};
}
constexpr Field u64(const char *name, std::uint64_t low = 0, std::uint64_t high = kAny) {
    return {Kind::Number, name, 8, low, high};
}
constexpr Field flag(const char *name) {
    return u8(name, 0, 1);
}
constexpr Field fixed(const char *name, std::uint8_t value) {
    return u8(name, value, value);
}
constexpr Field str(const char *name) {
    return {Kind::Str, name};
}
constexpr Field shortStr(const char *name) {
    return {Kind::Str, name, 0, 0, 255};
}
constexpr Field nameStr(const char *name) {
    return {Kind::Name, name};
}
constexpr Field blob(const char *name) {
    return {Kind::Blob, name};
}

// The collector computes the time in 32 bits, so the upper half of the field is always zero.
constexpr Field kInit[] = {fixed("fixed100", 100), u8("platformId"), fixed("fixed1", 1),
                           u64("timeMillis", 0, 0xFFFFFFFFu)};
constexpr Field kJ2eeInit[] = {fixed("fixed200", 200),
                               u8("major"),
                               u8("minor"),
                               u8("revision"),
                               shortStr("commandAgentID"),
                               {Kind::Literal, "clusterName"},
                               shortStr("nodeName"),
                               shortStr("serverName"),
                               u32("adminServerPort")};
constexpr Field kPacketHeader[] = {u32("count", 1)};

constexpr Field kPlain[] = {kPrefix, kLevel};
constexpr Field kHttp[] = {
    kPrefix, flag("namesFlag"), nameStr("requestName"), nameStr("applicationName"), str("url"), str("userId"),
    kLevel};
constexpr Field kVerb[] = {
    kPrefix, flag("namesFlag"), nameStr("requestName"), nameStr("applicationName"), str("url"), kLevel};
constexpr Field kTrace[] = {kTime, str("requestName"), kLevel};
constexpr Field kEjb[] = {kPrefix,         {Kind::Size}, str("bean"), str("method"), str("application"),
                          {Kind::SizeEnd}, kLevel};
constexpr Field kSql[] = {kPrefix, kLevel, str("dataSourceName"), str("sql")};
constexpr Field kJndi[] = {kPrefix, kLevel, str("url"), str("lookup")};
constexpr Field kMail[] = {kPrefix, kLevel, str("url"), str("subject")};
constexpr Field kJmsSelected[] = {kPrefix, str("server"), str("queue"), str("selector"), kLevel};
constexpr Field kJms[] = {kPrefix, str("server"), str("queue"), kLevel};
constexpr Field kJca[] = {kPrefix, str("eis"), kLevel};
constexpr Field kJdo[] = {kPrefix, str("className"), str("methodName"), str("argumentString"), kLevel};
constexpr Field kXq[] = {kPrefix, str("queueName"), str("queueMgrName"), u8("action"), kLevel};
constexpr Field kXqEnd[] = {kPrefix, u8("action"), kLevel};
// 0, or the event type by which the method name is remembered.
constexpr Field nameType(std::uint64_t eventType) {
    return {Kind::Number, "nameType", 4, eventType, eventType, true};
}
constexpr Field kIiopClient[] = {kPrefix, str("className"), nameType(45), str("methodName"), kLevel};
constexpr Field kIiopServer[] = {kPrefix, str("className"), nameType(46), str("methodName"), kLevel};
constexpr Field kWs[] = {kPrefix, str("applicationName"), str("requestName"), str("url"), kLevel};
constexpr Field kWsFault[] = {kPrefix, str("appName"), str("faultCode"), str("faultString"), kLevel};
constexpr Field kGeneric[] = {u8("id"), kPrefix, {Kind::Strs, "ctxValues"}, kLevel};
constexpr Field kGenericEnd[] = {u8("id"), kPrefix, kLevel};
constexpr Field kGenericException[] = {u8("id"), kThreadId, {Kind::Strs, "ctxValues"}, kLevel};

constexpr Field kGpsToken[] = {kPrefix, blob("token"), kLevel};
constexpr Field kGpsTxmon[] = {kPrefix, str("gateway"), blob("token"), kLevel};
constexpr Field kGpsXqSend[] = {kPrefix, str("queueName"), blob("gpsToken"), fixed("actionIs7", 0), kLevel};
constexpr Field kGpsXqReceive[] = {kPrefix, str("queueName"), blob("gpsToken"), flag("actionIs7"), kLevel};
constexpr Field kSampling[] = {{Kind::Numbers, "levels", 4, 4}, flag("useDefault")};
constexpr Field kDropped[] = {kThreadId,         u32("otherStarts"), u32("otherEnds"), u32("methodStarts"),
                              u32("methodEnds"), u32("sqlStarts"),   u32("sqlEnds")};
constexpr Field kStatus[] = {str("message")};
constexpr Field kException[] = {str("exception"), str("className"), str("methodName"), str("stackTrace")};
constexpr Field kGcStart[] = {kThreadId, kTime};
constexpr Field kGcEnd[] = {kThreadId, kTime, u64("usedObjects"), u64("usedObjectSpace"),
                            u64("totalObjectSpace")};
constexpr Field kGwx[] = {str("gatewayName"),  str("serverName"), str("progName"),
                          u64("snapShotTime"), u32("count"),      u64("avgTimeTaken")};
constexpr Field kPortalRequest[] = {kPrefix,    str("requestName"), str("applicationName"),
                                    str("url"), str("userId"),      kLevel};
constexpr Field kPhase[] = {kPrefix, u8("methodId"), kLevel};
constexpr Field kGateway[] = {kPrefix, str("pageName"), kLevel};
constexpr Field kMethodConstant[] = {u8("methodId"), str("methodName")};
constexpr Field kFigure[] = {u32("count"), u64("avgTime")};
constexpr Field kVault[] = {u32("count1"), u64("avgTime1"), u32("count2"), u64("avgTime2"),
                            u32("count3"), u64("avgTime3"), u32("count4"), u64("avgTime4"),
                            u32("count5"), u64("avgTime5")};
constexpr Field kContent[] = {u32("count1"), u64("avgTime1"), u32("count2"), u64("avgTime2"),
                              u32("count3"), u64("avgTime3"), u32("count4"), u64("avgTime4")};
constexpr Field kClassLoad[] = {u32("sequence"), str("class"), {Kind::Methods, "methods"}};
constexpr Field kClassUnload[] = {u32("sequence"), u32("id"), {Kind::Ids, "methodIds"}};
constexpr Field kMethod[] = {kThreadId, u32("methodId"), kTime, u64("cpuTime")};
constexpr Field kHeap[] = {kPrefix, u32("allocatingMethodId"), str("instantiatedClassName"),
                           u32("allocatingLineNumber"), kLevel};
constexpr Field kLock[] = {kPrefix, u32("lockingMethodId"), str("lockedClassName"), kLevel};
constexpr Field kContention[] = {kPrefix,
                                 u32("lockingMethodId"),
                                 str("lockedClassName"),
                                 u8("owningRequestType"),
                                 str("owningRequestName"),
                                 str("owningApplicationName"),
                                 u32("owningMethodId"),
                                 kLevel};
constexpr Field kXqi[] = {
    str("mgrName"), str("queueName"), u64("snapShotTime"), {Kind::Entries, "arrLength"}};

template <std::size_t N>
constexpr RecordSpec row(std::uint16_t type, const char *name, Role role, std::uint8_t pair,
                         const Field (&fields)[N]) {
    static_assert(N <= kMaxFields, "a record has room for kMaxFields values");
    return {type, name, role, pair, fields, static_cast<std::uint8_t>(N)};
}
template <std::size_t N>
constexpr RecordSpec single(std::uint16_t type, const char *name, const Field (&fields)[N]) {
    return row(type, name, Role::Single, 0, fields);
}
template <std::size_t N>
constexpr RecordSpec begin(std::uint8_t type, const char *name, const Field (&fields)[N]) {
    return row(type, name, Role::Begin, type, fields);
}
constexpr RecordSpec end(std::uint8_t type, const char *name, std::uint8_t beginType) {
    return row(type, name, Role::End, beginType, kPlain);
}

constexpr RecordSpec kSpecs[] = {
    single(0, "PacketHeader", kPacketHeader),
    single(2000, "InitRecord", kInit),
    single(101, "J2EEInitRecord", kJ2eeInit),
    single(1, "ClassEvent.load", kClassLoad),
    single(12, "ClassEvent.unload", kClassUnload),
    // Without a depth, so that they pair with nothing.
    single(2, "MethodEvent.entry", kMethod),
    single(3, "MethodEvent.exit", kMethod),
    begin(4, "HttpEvent.begin", kHttp),
    end(5, "HttpEvent.end", 4),
    row(50, "HttpEvent.failed", Role::Failed, 4, kPlain),
    begin(6, "EJBEvent.begin", kEjb),
    end(7, "EJBEvent.end", 6),
    single(8, "TraceEvent", kTrace),
    begin(9, "SQLEvent.begin", kSql),
    end(10, "SQLEvent.end", 9),
    single(11, "DroppedEvent", kDropped),
    // Collections are reported whole, by their own clock: no thread nests them, so they pair with nothing.
    single(13, "GCEvent.begin", kGcStart),
    single(14, "GCEvent.end", kGcEnd),
    begin(25, "JMSEvent.1.begin", kJmsSelected),
    end(26, "JMSEvent.1.end", 25),
    begin(27, "JMSEvent.2.begin", kJmsSelected),
    end(28, "JMSEvent.2.end", 27),
    begin(29, "JMSEvent.3.begin", kJms),
    end(30, "JMSEvent.3.end", 29),
    begin(31, "JMSEvent.4.begin", kJms),
    end(32, "JMSEvent.4.end", 31),
    begin(33, "JNDIEvent.begin", kJndi),
    end(34, "JNDIEvent.end", 33),
    begin(35, "MailEvent.begin", kMail),
    end(36, "MailEvent.end", 35),
    begin(37, "JCAEvent.begin", kJca),
    end(38, "JCAEvent.end", 37),
    single(39, "SamplingEvent", kSampling),
    single(40, "GWXEvent", kGwx),
    single(41, "XQIEvent", kXqi),
    single(44, "PSStatusEvent", kStatus),
    single(45, "ExceptionEvent", kException),
    single(46, "PortalAggregateDataEvent.gateway", kFigure),
    single(47, "PortalAggregateDataEvent.model", kFigure),
    single(48, "PortalAggregateDataEvent.loading", kFigure),
    begin(51, "GPSEvent.invoke.begin", kGpsToken),
    end(52, "GPSEvent.invoke.end", 51),
    // The invocation of the transaction monitor is closed by the ordinary end of an invocation.
    row(154, "GPSEvent.txmon.begin", Role::Begin, 51, kGpsTxmon),
    begin(53, "GPSEvent.receive.begin", kGpsToken),
    end(54, "GPSEvent.receive.end", 53),
    begin(55, "GPSXQEvent.10.begin", kGpsXqSend),
    end(56, "GPSXQEvent.10.end", 55),
    begin(57, "GPSXQEvent.7.begin", kGpsXqReceive),
    end(58, "GPSXQEvent.7.end", 57),
    single(61, "PortalAuthAcEvent.login", kFigure),
    single(62, "PortalAuthAcEvent.access", kFigure),
    single(63, "PortalCredentialVaultEvent", kVault),
    single(64, "PortalContentAccessEvent", kContent),
    begin(65, "PortalPageEvent.begin", kPortalRequest),
    end(66, "PortalPageEvent.end", 65),
    begin(67, "PortalPortletEvent.begin", kPortalRequest),
    end(68, "PortalPortletEvent.end", 67),
    begin(99, "GenericEvent.begin", kGeneric),
    row(100, "GenericEvent.end", Role::End, 99, kGenericEnd),
    single(108, "GenericExceptionEvent", kGenericException),
    begin(110, "XQEvent.begin", kXq),
    row(111, "XQEvent.end", Role::End, 110, kXqEnd),
    begin(112, "DoVerbForEvent.begin", kVerb),
    end(113, "DoVerbForEvent.end", 112),
    begin(114, "PollForEvent.begin", kVerb),
    end(115, "PollForEvent.end", 114),
    begin(118, "LockAcquisitionEvent.begin", kLock),
    end(119, "LockAcquisitionEvent.end", 118),
    begin(120, "LockContentionEvent.begin", kContention),
    end(121, "LockContentionEvent.end", 120),
    begin(122, "LockReleaseEvent.begin", kLock),
    end(123, "LockReleaseEvent.end", 122),
    begin(124, "HeapEvent.begin", kHeap),
    end(125, "HeapEvent.end", 124),
    begin(130, "PortalAuthenticationEvent.begin", kPhase),
    end(131, "PortalAuthenticationEvent.end", 130),
    begin(132, "PortalAuthorizationEvent.begin", kPhase),
    end(133, "PortalAuthorizationEvent.end", 132),
    begin(134, "PortalModelBuildingEvent.begin", kPhase),
    end(135, "PortalModelBuildingEvent.end", 134),
    begin(136, "PortalPageLoadingEvent.begin", kPhase),
    end(137, "PortalPageLoadingEvent.end", 136),
    begin(138, "PortalActionEvent.begin", kPhase),
    end(139, "PortalActionEvent.end", 138),
    begin(142, "PortalPageRenderingEvent.begin", kPhase),
    end(143, "PortalPageRenderingEvent.end", 142),
    single(146, "PortalMethodConstantEvent", kMethodConstant),
    begin(147, "JDOEvent.begin", kJdo),
    end(148, "JDOEvent.end", 147),
    begin(150, "CommonEvent.begin", kIiopClient),
    end(151, "CommonEvent.end", 150),
    begin(152, "IIOPServerEvent.begin", kIiopServer),
    end(153, "IIOPServerEvent.end", 152),
    begin(155, "PortalGatewayServletEvent.begin", kGateway),
    row(156, "PortalGatewayServletEvent.end", Role::End, 155, kGateway),
    begin(199, "WSClientEvent.begin", kWs),
    end(200, "WSClientEvent.end", 199),
    begin(201, "WSProviderEvent.begin", kWs),
    end(202, "WSProviderEvent.end", 201),
    begin(203, "WSFaultEvent.begin", kWsFault),
    end(204, "WSFaultEvent.end", 203),
};

constexpr std::size_t kOpeningSpecs = 3; // those that never stand inside a packet

std::array<const RecordSpec *, 256> makeIndex() {
    std::array<const RecordSpec *, 256> index{};
    for (std::size_t i = kOpeningSpecs; i < std::size(kSpecs); ++i) {
        index[kSpecs[i].type] = &kSpecs[i];
    }
    return index;
}

} // namespace

SpecRange recordSpecs() {
    return {std::begin(kSpecs), std::end(kSpecs)};
}

std::size_t specIndex(const RecordSpec &spec) {
    return static_cast<std::size_t>(&spec - kSpecs);
}

const RecordSpec *findSpec(std::uint8_t type) {
    static const std::array<const RecordSpec *, 256> index = makeIndex();
    return index[type];
}

const RecordSpec &packetHeaderSpec() {
    return kSpecs[0];
}
const RecordSpec &initSpec() {
    return kSpecs[1];
}
const RecordSpec &j2eeInitSpec() {
    return kSpecs[2];
}

std::size_t fieldIndex(const RecordSpec &spec, const char *name) {
    for (std::size_t i = 0; i < spec.fieldCount; ++i) {
        if (std::strcmp(spec.fields[i].name, name) == 0) {
            return i;
        }
    }
    return kMaxFields;
}

} // namespace ps
