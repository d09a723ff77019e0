// Writes records, big-endian, into memory that the caller owns and outlives the visitor with. It belongs to
// the thread that made it and takes no lock. A write that does not fit sets the overflow flag and stores
// nothing; from then on nothing is stored, but the cursor goes on counting, so that cursor minus limit is
// what was missing. Nothing is reported: the caller looks at the flag after each record and rolls back.
#pragma once

#include "Event.h"
#include "ProbeState.h"
#include "Relaxed.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <jni.h>

class ProtocolVisitor {
public:
    // `limitArg` is one past the last byte. `jniEnv`, the calling thread's own, serves the record trace and
    // may be null: no trace then.
    ProtocolVisitor(char *startArg, char *cursorArg, char *limitArg, JNIEnv *jniEnv)
        : start(startArg), limit(limitArg), cursor(cursorArg), env(jniEnv) {}

    char *getStart() const { return start; }
    char *getLimit() const { return limit; }
    char *getCursor() const { return cursor; }
    void setCursor(char *place) { cursor = place; }
    bool hasOverflowed() const { return overflow; }
    void clearOverflow() { overflow = false; }

    // The two records that open a connection, and the one that opens a packet. A null `jniEnv` leaves the
    // server's name to the configuration.
    void addInitRecord();
    void addJ2EEInitRecord(JNIEnv *jniEnv);
    void addPacketHeaderRecord(int packet_record_count);

    // One record each; the event is not changed. Names and numbers of records: docs/wire-protocol.md.
    void addToBuffer(RequestEvent *req);
    void addToBuffer(TraceEvent *req);
    void addToBuffer(DoVerbForEvent *req);
    void addToBuffer(PollForEvent *req);
    void addToBuffer(EJBEvent *ejb_record);
    void addToBuffer(SQLEvent *sql_record);
    void addToBuffer(JMSEvent *jms_record);
    void addToBuffer(JCAEvent *jca_record);
    void addToBuffer(JNDIEvent *jndi_record);
    void addToBuffer(MailEvent *java_mail_record);
    void addToBuffer(JDOEvent *jdo_record);
    void addToBuffer(XQEvent *xq_record);
    void addToBuffer(WSClientEvent *rec); // and of the provider
    void addToBuffer(WSFaultEvent *rec);
    void addToBuffer(GenericEvent *evt);
    void addToBuffer(GenericExceptionEvent *evt);

    void addToBuffer(GPSEvent *req);
    void addToBuffer(GPSXQEvent *gpsxq_record);
    void addToBuffer(SamplingEvent *rate);
    void addToBuffer(DroppedEvent *rec);
    void addToBuffer(PSStatusEvent *evt);
    void addToBuffer(ExceptionEvent *ex);
    void addToBuffer(GCEvent *gc_record);
    void addToBuffer(GWXEvent *req);
    void addToBuffer(XQIEvent *req);

    void addToBuffer(ClassEvent *evt); // which has its class
    void addToBuffer(MethodEvent *mth);
    void addToBuffer(HeapEvent *evt);
    void addToBuffer(LockAcquisitionEvent *evt);
    void addToBuffer(LockContentionEvent *evt);
    void addToBuffer(LockReleaseEvent *evt);

    void addToBuffer(PortalPageEvent *req);
    void addToBuffer(PortalPortletEvent *req);
    void addToBuffer(PortalAuthAcEvent *req);
    void addToBuffer(PortalAggregateDataEvent *req);
    void addToBuffer(PortalCredentialVaultEvent *req);
    void addToBuffer(PortalContentAccessEvent *req);
    void addToBuffer(PortalAuthenticationEvent *rec);
    void addToBuffer(PortalAuthorizationEvent *rec);
    void addToBuffer(PortalModelBuildingEvent *rec);
    void addToBuffer(PortalPageLoadingEvent *rec);
    void addToBuffer(PortalPageRenderingEvent *rec);
    void addToBuffer(PortalActionEvent *rec);
    void addToBuffer(PortalGatewayServletEvent *rec);
    void addToBuffer(PortalMethodConstantEvent *rec);

    // Record number of the events that write themselves (IIOP); -1 for every other type.
    static int getRecordType(Event::EventType type, Event::EventSubType subType);

    // For events whose name is cached by type: whether a whole record has carried it since the last clear.
    // Any thread; two that write at once may both send a name.
    static bool isCommonNameSent(Event::EventType type);
    static void setCommonNameSent(Event::EventType type);
    static void clearCommonNameCache();

    // Whether visitors with a JNI environment show their finished records to Java.
    static void setRecordTrace(bool on) { recordTrace = on; }
    // The same, and the first call that finds it makes `writeTraceEntry` of `cls` the method that they call.
    static void switchRecordTrace(JNIEnv *env, jclass cls, bool on);

    // Primitives. Wider values are cut to their low bytes; a null text counts as empty. The prefix of a text
    // or blob holds the low 16 bits of its length, but all bytes follow: texts are cut where they are copied.
    void addU8(uint64_t value) { addBigEndian<1>(value); }
    void addU16(uint64_t value) { addBigEndian<2>(value); }
    void addU32(uint64_t value) { addBigEndian<4>(value); }
    void addU64(uint64_t value) { addBigEndian<8>(value); }
    void addBytes(const void *bytes, size_t count) {
        if (char *place = reserve(count)) {
            memcpy(place, bytes, count);
        }
    }
    // Length and bytes; nothing but a zero length if `bytes` is null or `count` is not positive.
    void addBlob(const void *bytes, int64_t count) {
        const size_t length = bytes != nullptr && count > 0 ? static_cast<size_t>(count) : 0;
        addU16(length);
        if (length > 0) {
            addBytes(bytes, length);
        }
    }
    void addString(const char *text) {
        addBlob(text, text != nullptr ? static_cast<int64_t>(strlen(text)) : 0);
    }
    void addString(const Text &text) { addBlob(text.data(), text.length()); }
    void addLevel() { addU8(probeLevel); }
    void addEndOfRecord() { addU16(0x7F7F); }

    // The 22 bytes that most records open with.
    void addPrefix(int recordType, const Event &event, int32_t depth) {
        addU8(recordType);
        addU32(event.threadId);
        addU8(depth);
        addClocks(event);
    }

private:
    // A record in the making, as the record trace tells it; thread and depth are 0 where it has none.
    struct Record {
        const char *first;
        int type;
        uint32_t threadId;
        int32_t depth;
    };

    // Place for `count` bytes, or null. The cursor moves in any case.
    char *reserve(size_t count) {
        overflow = overflow || limit - cursor < static_cast<ptrdiff_t>(count);
        char *place = overflow ? nullptr : cursor;
        cursor += count;
        return place;
    }

    template <int N>
    void addBigEndian(uint64_t value) {
        if (char *place = reserve(N)) {
            for (int i = 0; i < N; ++i) {
                place[i] = static_cast<char>(value >> (8 * (N - 1 - i)));
            }
        }
    }

    void addClocks(const Event &event) {
        addU32(event.timeSec);
        addU32(event.timeUSec);
        addU64(static_cast<uint64_t>(event.cpuTime));
    }

    template <typename... T>
    void addStrings(const T &...texts) {
        (addString(texts), ...);
    }

    static bool begins(const Event &event) { return event.subType == Event::SUB_START; }
    // Where begin and end have a record each, the end's number follows the begin's. 0 is no valid record: it
    // stands for actions that no caller produces.
    static int recordType(int beginType, const Event &event) {
        return beginType == 0 || begins(event) ? beginType : beginType + 1;
    }

    // Opens with the type alone, or with the common prefix.
    Record openBare(int type, uint32_t threadId = 0) {
        const Record record{cursor, type, threadId, 0};
        addU8(type);
        return record;
    }
    template <typename E>
    Record open(int type, const E &event) {
        const Record record{cursor, type, event.threadId, event.requestDepth};
        addPrefix(type, event, event.requestDepth);
        return record;
    }

    void close(const Record &record) {
        addEndOfRecord();
        if (recordTrace) {
            traceRecord(record);
        }
    }
    void closeWithLevel(const Record &record) {
        addLevel();
        close(record);
    }

    // Prefix, then the texts in a begin record only, then level and end: the usual record.
    template <typename E, typename... T>
    void addPlainRecord(int beginType, const E &event, const T &...texts) {
        const Record record = open(recordType(beginType, event), event);
        if (begins(event)) {
            addStrings(texts...);
        }
        closeWithLevel(record);
    }

    // The same with the level in front of the texts.
    template <typename E, typename... T>
    void addLevelFirstRecord(int beginType, const E &event, const T &...texts) {
        const Record record = open(recordType(beginType, event), event);
        addLevel();
        if (begins(event)) {
            addStrings(texts...);
        }
        close(record);
    }

    void addLock(int beginType, const LockEvent &lock);
    void addPhase(int beginType, const PortalPhaseEvent &phase);
    void addFigures(int type, const Event &event, const CountAndTime *figures, size_t count);
    void addNames(const RequestEvent &req);
    void addNamedRequest(int beginType, const RequestEvent &req);
    void traceRecord(const Record &record);

    char *const start;
    char *const limit;
    char *cursor;
    bool overflow = false;
    JNIEnv *const env;

    static Relaxed<bool> recordTrace;
};
