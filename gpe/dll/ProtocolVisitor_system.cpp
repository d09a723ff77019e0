// The records of correlation, of the agent's own state, and of figures that Java code has counted.
#include "ProtocolVisitor.h"

#include "ProbeLgKit.h"

#include <algorithm>

namespace {

constexpr int GPS_INVOCATION_START = 51;
constexpr int GPS_INVOCATION_END = 52;
constexpr int GPS_RECEIVE_START = 53;
constexpr int GPS_RECEIVE_COMPLETE = 54;
constexpr int GPS_TM_INVOCATION = 154;
constexpr int GPS_XQ_SEND = 55;
constexpr int GPS_XQ_RECEIVE = 57;
constexpr int SAMPLING = 39;
constexpr int DROPPED = 11;
constexpr int PS_STATUS = 44;
constexpr int EXCEPTION = 45;
constexpr int GC = 13;
constexpr int GWX = 40;
constexpr int XQI = 41;
constexpr int NO_VALID_RECORD = 0; // of subtypes and actions that no caller produces

constexpr int32_t XQ_ACTION_FLAGGED = 7;

int gpsRecordType(Event::EventSubType subType) {
    switch (subType) {
    case Event::SUB_START:
        return GPS_INVOCATION_START;
    case Event::SUB_END:
        return GPS_INVOCATION_END;
    case Event::SUB_CORRELATED_RECEIVED:
        return GPS_RECEIVE_START;
    case Event::SUB_CORRELATED_COMPLETED:
        return GPS_RECEIVE_COMPLETE;
    case Event::SUB_CORRELATED_TM:
        return GPS_TM_INVOCATION;
    default:
        return NO_VALID_RECORD;
    }
}

bool carriesToken(int gpsRecord) {
    return gpsRecord == GPS_INVOCATION_START || gpsRecord == GPS_RECEIVE_START ||
           gpsRecord == GPS_TM_INVOCATION;
}

int gpsXqBeginType(int32_t action) {
    switch (action) {
    case 10:
    case 11:
        return GPS_XQ_SEND;
    case XQ_ACTION_FLAGGED:
    case 13:
        return GPS_XQ_RECEIVE;
    default:
        return NO_VALID_RECORD;
    }
}

} // namespace

// Not shown to the record trace.
void ProtocolVisitor::addToBuffer(GPSEvent *req) {
    const int type = gpsRecordType(req->subType);
    if (type == GPS_TM_INVOCATION) {
        AM_TRACE(eaTracer, LGK_DEBUG_MAX, "ProtocolVisitor::addToBuffer( GPSEvent *req )", "gateway=%s",
                 req->gateway.data());
    }
    addPrefix(type, *req, req->requestDepth);
    if (type == GPS_TM_INVOCATION) {
        addString(req->gateway);
    }
    if (carriesToken(type)) {
        addBlob(req->requestName.data(), req->tokenLength);
    }
    addLevel();
    addEndOfRecord();
}

void ProtocolVisitor::addToBuffer(GPSXQEvent *gpsxq_record) {
    const int beginType = gpsXqBeginType(gpsxq_record->action);
    const Record record = open(recordType(beginType, *gpsxq_record), *gpsxq_record);
    if (begins(*gpsxq_record)) {
        addString(gpsxq_record->queueName);
        addString(gpsxq_record->gpsToken);
        addU8(gpsxq_record->action == XQ_ACTION_FLAGGED ? 1 : 0);
    }
    closeWithLevel(record);
}

void ProtocolVisitor::addToBuffer(SamplingEvent *rate) {
    const Record record = openBare(SAMPLING);
    for (const int32_t level : rate->levels) {
        addU32(level);
    }
    addU8(rate->useDefault == 1 ? 1 : 0);
    close(record);
}

void ProtocolVisitor::addToBuffer(DroppedEvent *rec) {
    const Record record = openBare(DROPPED, rec->threadId);
    addU32(rec->threadId);
    addU32(rec->otherStarts);
    addU32(rec->otherEnds);
    addU32(rec->methodStarts);
    addU32(rec->methodEnds);
    addU32(rec->sqlStarts);
    addU32(rec->sqlEnds);
    close(record);
}

void ProtocolVisitor::addToBuffer(PSStatusEvent *evt) {
    const Record record = openBare(PS_STATUS);
    addString(evt->message);
    close(record);
}

void ProtocolVisitor::addToBuffer(ExceptionEvent *ex) {
    const Record record = openBare(EXCEPTION);
    addStrings(ex->exception, ex->className, ex->methodName, ex->stackTrace);
    close(record);
}

void ProtocolVisitor::addToBuffer(GCEvent *gc_record) {
    const Record record = openBare(recordType(GC, *gc_record), gc_record->threadId);
    addU32(gc_record->threadId);
    addU32(gc_record->timeSec);
    addU32(gc_record->timeUSec);
    if (!begins(*gc_record)) {
        addU64(gc_record->usedObjects);
        addU64(gc_record->usedObjectSpace);
        addU64(gc_record->totalObjectSpace);
    }
    close(record);
}

void ProtocolVisitor::addToBuffer(GWXEvent *req) {
    const Record record = openBare(GWX);
    addStrings(req->gatewayName, req->serverName, req->progName);
    addU64(req->snapShotTime);
    addU32(req->count);
    addU64(req->avgTimeTaken);
    close(record);
}

void ProtocolVisitor::addToBuffer(XQIEvent *req) {
    // A receiver must find as many entries as the count says.
    const bool complete = !req->types.isNull() && !req->counts.isNull() && !req->avgTimes.isNull();
    const int32_t entries = complete ? std::max(req->arrLength, 0) : 0;
    const Record record = openBare(XQI);
    addStrings(req->mgrName, req->queueName);
    addU64(req->snapShotTime);
    addU32(entries);
    for (int32_t i = 0; i < entries; ++i) {
        addU8(req->types.array<int8_t>()[i]);
        addU32(req->counts.array<int32_t>()[i]);
        addU64(req->avgTimes.array<int64_t>()[i]);
    }
    close(record);
}
