// The records of a portal server: its pages, their phases, and figures that its Java half has counted.
#include "ProtocolVisitor.h"

#include <iterator>

namespace {

constexpr int PAGE = 65;
constexpr int PORTLET = 67;
constexpr int AUTHENTICATION = 130;
constexpr int AUTHORIZATION = 132;
constexpr int MODEL_BUILDING = 134;
constexpr int PAGE_LOADING = 136;
constexpr int ACTION = 138;
constexpr int PAGE_RENDERING = 142;
constexpr int GATEWAY_SERVLET = 155;
constexpr int METHOD_CONSTANT = 146;
constexpr int CREDENTIAL_VAULT = 63;
constexpr int CONTENT_ACCESS = 64;
constexpr char UNKNOWN_PAGE[] = "PageNameUnknown";

// 0 is no valid record: no producer gives other types.
int figureRecordType(Event::EventType type) {
    switch (type) {
    case Event::TYPE_PORTAL_LOGIN:
        return 61;
    case Event::TYPE_PORTAL_ACCESS_CONTROL:
        return 62;
    case Event::TYPE_PORTAL_GATEWAY_SERVLET_SUM:
        return 46;
    case Event::TYPE_PORTAL_MODEL_BUILDING_SUM:
        return 47;
    case Event::TYPE_PORTAL_PAGE_LOADING_SUM:
        return 48;
    default:
        return 0;
    }
}

} // namespace

// ---------------------------------------------------------------- requests

void ProtocolVisitor::addToBuffer(PortalPageEvent *req) {
    addPlainRecord(PAGE, *req, req->requestName, req->applicationName, req->url, req->userId);
}

void ProtocolVisitor::addToBuffer(PortalPortletEvent *req) {
    addPlainRecord(PORTLET, *req, req->requestName, req->applicationName, req->url, req->userId);
}

void ProtocolVisitor::addToBuffer(PortalGatewayServletEvent *rec) {
    const Record record = open(recordType(GATEWAY_SERVLET, *rec), *rec);
    if (rec->pageName.isNull()) {
        addString(UNKNOWN_PAGE);
    } else {
        addString(rec->pageName);
    }
    closeWithLevel(record);
}

// ---------------------------------------------------------------- phases

void ProtocolVisitor::addPhase(int beginType, const PortalPhaseEvent &phase) {
    const Record record = open(recordType(beginType, phase), phase);
    if (begins(phase)) {
        addU8(static_cast<uint8_t>(phase.methodId));
    }
    closeWithLevel(record);
}

void ProtocolVisitor::addToBuffer(PortalAuthenticationEvent *rec) {
    addPhase(AUTHENTICATION, *rec);
}

void ProtocolVisitor::addToBuffer(PortalAuthorizationEvent *rec) {
    addPhase(AUTHORIZATION, *rec);
}

void ProtocolVisitor::addToBuffer(PortalModelBuildingEvent *rec) {
    addPhase(MODEL_BUILDING, *rec);
}

void ProtocolVisitor::addToBuffer(PortalPageLoadingEvent *rec) {
    addPhase(PAGE_LOADING, *rec);
}

void ProtocolVisitor::addToBuffer(PortalPageRenderingEvent *rec) {
    addPhase(PAGE_RENDERING, *rec);
}

void ProtocolVisitor::addToBuffer(PortalActionEvent *rec) {
    addPhase(ACTION, *rec);
}

void ProtocolVisitor::addToBuffer(PortalMethodConstantEvent *rec) {
    const Record record = openBare(METHOD_CONSTANT, rec->threadId);
    addU8(static_cast<uint8_t>(rec->methodId));
    addString(rec->methodName);
    close(record);
}

// ---------------------------------------------------------------- figures

void ProtocolVisitor::addFigures(int type, const Event &event, const CountAndTime *figures, size_t count) {
    const Record record = openBare(type, event.threadId);
    for (const CountAndTime *figure = figures; figure != figures + count; ++figure) {
        addU32(static_cast<uint32_t>(figure->count));
        addU64(static_cast<uint64_t>(figure->avgTime));
    }
    close(record);
}

void ProtocolVisitor::addToBuffer(PortalAuthAcEvent *req) {
    addFigures(figureRecordType(req->type), *req, req, 1);
}

void ProtocolVisitor::addToBuffer(PortalAggregateDataEvent *req) {
    addFigures(figureRecordType(req->type), *req, req, 1);
}

void ProtocolVisitor::addToBuffer(PortalCredentialVaultEvent *req) {
    addFigures(CREDENTIAL_VAULT, *req, req->figures, std::size(req->figures));
}

void ProtocolVisitor::addToBuffer(PortalContentAccessEvent *req) {
    addFigures(CONTENT_ACCESS, *req, req->figures, std::size(req->figures));
}
