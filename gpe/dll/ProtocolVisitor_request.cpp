// The records of requests and of the calls that they make.
#include "ProtocolVisitor.h"

namespace {

constexpr int HTTP_BEGIN = 4;
constexpr int HTTP_END = 5;
constexpr int HTTP_FAILED = 50;
constexpr int DO_VERB_FOR = 112;
constexpr int POLL_FOR = 114;
constexpr int TRACE_REQUEST = 8;
constexpr int EJB = 6;
constexpr int SQL = 9;
constexpr int JMS = 25; // of action 1; each further action two higher
constexpr int JCA = 37;
constexpr int JNDI = 33;
constexpr int MAIL = 35;
constexpr int JDO = 147;
constexpr int XQ = 110;
constexpr int WS_CLIENT = 199;
constexpr int WS_PROVIDER = 201;
constexpr int WS_FAULT = 203;
constexpr int GENERIC_START = 99;
constexpr int GENERIC_STOP = 100;
constexpr int GENERIC_EXCEPTION = 108;
constexpr int NO_VALID_RECORD = 0; // of subtypes and actions that no caller produces

bool isEqual(const Text &one, const Text &other) {
    return one.length() == other.length() &&
           (one.length() == 0 || memcmp(one.data(), other.data(), one.length()) == 0);
}

// Whether both names are the URL once more, so that only the URL need go out.
bool namesEqualUrl(const RequestEvent &req) {
    return isEqual(req.requestName, req.url) && isEqual(req.applicationName, req.url);
}

int httpRecordType(Event::EventSubType subType) {
    switch (subType) {
    case Event::SUB_START:
        return HTTP_BEGIN;
    case Event::SUB_END:
        return HTTP_END;
    default:
        return HTTP_FAILED;
    }
}

int ejbRecordType(Event::EventSubType subType) {
    switch (subType) {
    case Event::SUB_START:
        return EJB;
    case Event::SUB_END:
        return EJB + 1;
    default:
        return NO_VALID_RECORD;
    }
}

int jmsBeginType(Event::JMS_ACTION action) {
    const bool known = action >= Event::JMS_ACTION_1 && action <= Event::JMS_ACTION_4;
    return known ? JMS + 2 * (action - Event::JMS_ACTION_1) : NO_VALID_RECORD;
}

bool hasSelector(Event::JMS_ACTION action) {
    return action == Event::JMS_ACTION_1 || action == Event::JMS_ACTION_2;
}

} // namespace

void ProtocolVisitor::addNames(const RequestEvent &req) {
    const bool omitted = namesEqualUrl(req);
    addU8(omitted ? 0 : 1);
    if (omitted) {
        addU32(0); // two empty texts
    } else {
        addStrings(req.requestName, req.applicationName);
    }
    addString(req.url);
}

void ProtocolVisitor::addToBuffer(RequestEvent *req) {
    const Record record = open(httpRecordType(req->subType), *req);
    if (begins(*req)) {
        addNames(*req);
        addString(req->userId);
    }
    closeWithLevel(record);
}

void ProtocolVisitor::addToBuffer(DoVerbForEvent *req) {
    addNamedRequest(DO_VERB_FOR, *req);
}

void ProtocolVisitor::addToBuffer(PollForEvent *req) {
    addNamedRequest(POLL_FOR, *req);
}

void ProtocolVisitor::addNamedRequest(int beginType, const RequestEvent &req) {
    const Record record = open(recordType(beginType, req), req);
    if (begins(req)) {
        addNames(req);
    }
    closeWithLevel(record);
}

void ProtocolVisitor::addToBuffer(TraceEvent *req) {
    const Record record = openBare(TRACE_REQUEST);
    addU32(req->timeSec);
    addU32(req->timeUSec);
    addString(req->requestName);
    closeWithLevel(record);
}

void ProtocolVisitor::addToBuffer(EJBEvent *ejb_record) {
    const Record record = open(ejbRecordType(ejb_record->subType), *ejb_record);
    if (begins(*ejb_record) && !ejb_record->data.isNull()) {
        addBytes(ejb_record->data.data(), ejb_record->data.length());
    }
    closeWithLevel(record);
}

void ProtocolVisitor::addToBuffer(SQLEvent *sql_record) {
    addLevelFirstRecord(SQL, *sql_record, sql_record->dataSourceName, sql_record->sql);
}

void ProtocolVisitor::addToBuffer(JNDIEvent *jndi_record) {
    addLevelFirstRecord(JNDI, *jndi_record, jndi_record->url, jndi_record->lookup);
}

void ProtocolVisitor::addToBuffer(MailEvent *java_mail_record) {
    addLevelFirstRecord(MAIL, *java_mail_record, java_mail_record->url, java_mail_record->subject);
}

void ProtocolVisitor::addToBuffer(JMSEvent *jms_record) {
    const Record record = open(recordType(jmsBeginType(jms_record->action), *jms_record), *jms_record);
    if (begins(*jms_record)) {
        addStrings(jms_record->server, jms_record->queue);
        if (hasSelector(jms_record->action)) {
            addString(jms_record->selector);
        }
    }
    closeWithLevel(record);
}

void ProtocolVisitor::addToBuffer(JCAEvent *jca_record) {
    addPlainRecord(JCA, *jca_record, jca_record->eis);
}

void ProtocolVisitor::addToBuffer(JDOEvent *jdo_record) {
    addPlainRecord(JDO, *jdo_record, jdo_record->className, jdo_record->methodName,
                   jdo_record->argumentString);
}

void ProtocolVisitor::addToBuffer(XQEvent *xq_record) {
    if (!begins(*xq_record) && xq_record->subType != Event::SUB_END) {
        return;
    }
    const Record record = open(recordType(XQ, *xq_record), *xq_record);
    if (begins(*xq_record)) {
        addStrings(xq_record->queueName, xq_record->queueMgrName);
    }
    addU8(xq_record->action);
    closeWithLevel(record);
}

void ProtocolVisitor::addToBuffer(WSClientEvent *rec) {
    addPlainRecord(rec->type == Event::TYPE_WS_CLIENT ? WS_CLIENT : WS_PROVIDER, *rec, rec->applicationName,
                   rec->requestName, rec->url);
}

void ProtocolVisitor::addToBuffer(WSFaultEvent *rec) {
    addPlainRecord(WS_FAULT, *rec, rec->appName, rec->faultCode, rec->faultString);
}

void ProtocolVisitor::addToBuffer(GenericEvent *evt) {
    const bool starts = evt->type == Event::TYPE_GENERIC_START;
    const Record record{cursor, starts ? GENERIC_START : GENERIC_STOP, evt->threadId, evt->requestDepth};
    addU8(record.type);
    addU8(evt->id);
    addU32(evt->threadId);
    addU8(evt->requestDepth);
    addClocks(*evt);
    if (starts) {
        addU8(evt->nCtxProps);
        for (int32_t i = 0; i < evt->nCtxProps; ++i) {
            // A receiver tells a value that was null, one blank, from an empty one.
            const Text &value = evt->value(i);
            addBlob(value.isNull() ? " " : value.data(), value.isNull() ? 1 : value.length());
        }
    }
    closeWithLevel(record);
}

void ProtocolVisitor::addToBuffer(GenericExceptionEvent *evt) {
    const Record record = openBare(GENERIC_EXCEPTION, evt->threadId);
    addU8(evt->id);
    addU32(evt->threadId);
    addU8(evt->nCtxProps);
    for (int32_t i = 0; i < evt->nCtxProps; ++i) {
        addString(evt->value(i));
    }
    closeWithLevel(record);
}
