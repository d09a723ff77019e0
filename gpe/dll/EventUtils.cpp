#include "EventUtils.h"

#include "EventAssembly.h"
#include "LossAccount.h"
#include "ProbeLgKit.h"
#include "platform.h"

#include <algorithm>
#include <atomic>

using namespace assembly;

// ---------------------------------------------------------------- requests with names

namespace {

bool hasStorage(const ThreadData *storage, const Event &request, const char *signature) {
    if (storage == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MAX, signature, "thread local storage is NULL");
        lossAccount.enter(request);
    }
    return storage != nullptr;
}

int32_t copyName(Texts &texts, Text &target, jstring name, KnownString *known) {
    return texts.cut(target, name, std::min<int32_t>(urlLimit, WIRE_TEXT_LIMIT), CutAt::AnyByte, known);
}

// Names of an end stay null: nothing of them goes out.
void copyNames(JNIEnv *env, ThreadData *td, EventDraft &draft, jstring requestName, jstring applicationName,
               jstring url) {
    constexpr char signature[] = "sendRequest( JNIEnv *env, ThreadData *storage, RequestEvent *request )";
    auto &request = static_cast<RequestEvent &>(draft.event());
    Texts texts(env, draft, request.subType == Event::SUB_FAILED ? Goes::Nowhere : Goes::Out);
    if (requestName != nullptr || request.requestName.isNull()) {
        copyName(texts, request.requestName, requestName, knownTo(td, &KnownStrings::requestName));
    }
    copyName(texts, request.applicationName, applicationName, knownTo(td, &KnownStrings::applicationName));
    if (url != nullptr) {
        urlSamples.add(copyName(texts, request.url, url, knownTo(td, &KnownStrings::url)));
    } else {
        AM_TRACE(ccTracer, LGK_DEBUG_MAX, signature, "url is null");
    }
    if (requestName == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MAX, signature, "request name is null");
    }
    if (applicationName == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MAX, signature, "application name is null");
    }
    if (request.userId.isNull()) {
        texts.copy(request.userId, nullptr);
    }
}

} // namespace

bool sendRequest(JNIEnv *env, ThreadData *storage, EventDraft &request, jstring requestName,
                 jstring applicationName, jstring url) {
    if (!hasStorage(storage, request.event(), "sendRequest()")) {
        return true;
    }
    Event &event = request.event();
    event.threadId = storage->threadId;
    takeClocks(event, storage, clocksOf(event.subType));
    if (event.subType != Event::SUB_END) {
        copyNames(env, storage, request, requestName, applicationName, url);
    }
    event.size = sizeof(RequestEvent);
    addWeight(event, averageUrlLength);
    return appendRequestEvent(env, storage, request);
}

void sendEJBRequest(JNIEnv *env, ThreadData *storage, Draft<EJBEvent> &request) {
    if (!hasStorage(storage, *request, "sendEJBRequest()")) {
        return;
    }
    request->threadId = storage->threadId;
    getCurrentTime(&request->timeSec, &request->timeUSec);
    if (request->timeSec == storage->lastEjbTimeSec && request->timeUSec == storage->lastEjbTimeUSec) {
        request->cpuTime = storage->lastCpuTime;
    } else {
        request->cpuTime = threadCpuTime(storage);
        if (request->subType == Event::SUB_END) {
            getCurrentTime(&request->timeSec, &request->timeUSec);
        }
        storage->lastEjbTimeSec = request->timeSec;
        storage->lastEjbTimeUSec = request->timeUSec;
    }
    addWeight(*request, averageUrlLength);
    appendRequestEvent(env, storage, request);
}

// ---------------------------------------------------------------- SQL

namespace {

void copyStatement(ThreadData *td, SQLEvent &event, Texts &texts, jstring sql, jstring dataSrcName) {
    constexpr char signature[] = "beginInternalSQLRequest( JNIEnv *env, jstring sql, jstring dataSrcName )";
    texts.copy(event.dataSourceName, dataSrcName, knownTo(td, &KnownStrings::dataSource));
    if (dataSrcName == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MAX, signature, "data source name is null");
    }
    const int32_t kept = texts.cut(event.sql, sql, std::min<int32_t>(sqlLimit, WIRE_TEXT_LIMIT),
                                   CutAt::Character, knownTo(td, &KnownStrings::sql));
    if (sql != nullptr) {
        sqlSamples.add(kept);
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MAX, signature, "Data Source Name:%s, SQL:%s",
             texts.text(event.dataSourceName), texts.text(event.sql));
}

// An end is charged as its begin, though it has no strings: measuring text would cost more than it tells.
void beginInternalSQLRequest(JNIEnv *env, ThreadData *td, jstring sql, jstring dataSrcName) {
    if (td != nullptr) {
        ++td->requestDepth;
    }
    NestedDraft<SQLEvent> draft(td, Event::SUB_START);
    completeAndAppend(env, td, draft, Clocks::WallFirst, [=](SQLEvent &event, Texts &texts) {
        copyStatement(td, event, texts, sql, dataSrcName);
        addWeight(event, averageSqlLength);
    });
}

void endInternalSQLRequest(JNIEnv *env, ThreadData *td) {
    NestedDraft<SQLEvent> draft(td, Event::SUB_END);
    if (completeAndAppend(env, td, draft, Clocks::CpuFirst,
                          [](SQLEvent &event, Texts &) { addWeight(event, averageSqlLength); })) {
        leave(td);
    }
}

bool reportedByWrapper(const ThreadData *td) {
    return td != nullptr && td->sqlWrapperDepth >= 1;
}

} // namespace

void beginSQLRequest(JNIEnv *env, jobject, jstring sql, jstring dataSrcName) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MAX,
                   "beginSQLRequest( JNIEnv *env, jobject thisObject, jstring sql )");
    ThreadData *td = callingThread(env);
    if (td != nullptr) {
        if (suppressBegin(td)) {
            return;
        }
        ++td->sqlWrapperDepth;
    }
    beginInternalSQLRequest(env, td, sql, dataSrcName);
}

void endSQLRequest(JNIEnv *env, jobject, jstring, jstring) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MAX, "endSQLRequest( JNIEnv *env, jobject thisObject, jstring sql )");
    ThreadData *td = callingThread(env);
    if (td != nullptr) {
        if (suppressEnd(td)) {
            return;
        }
        --td->sqlWrapperDepth;
    }
    endInternalSQLRequest(env, td);
}

void beginJDBCSQLRequest(JNIEnv *env, jobject, jstring sql, jstring dataSrcName) {
    ThreadData *td = callingThread(env);
    if (!reportedByWrapper(td)) {
        beginInternalSQLRequest(env, td, sql, dataSrcName);
    }
}

void endJDBCSQLRequest(JNIEnv *env, jobject, jstring, jstring) {
    ThreadData *td = callingThread(env);
    if (!reportedByWrapper(td)) {
        endInternalSQLRequest(env, td);
    }
}

// ---------------------------------------------------------------- requests of the server

namespace {

// Payload without usable data, so that a receiver can still walk the record: the length of what follows, then
// three empty strings.
constexpr int8_t EMPTY_BEAN[] = {0, 6, 0, 0, 0, 0, 0, 0};

uint32_t lengthAt(const int8_t *bytes) {
    return static_cast<uint32_t>(static_cast<uint8_t>(bytes[0])) << 8 | static_cast<uint8_t>(bytes[1]);
}

// The length of all that follows, then three strings that fill it exactly.
bool isBean(const int8_t *data, uint32_t count) {
    if (count < sizeof(EMPTY_BEAN) || lengthAt(data) != count - 2) {
        return false;
    }
    uint32_t at = 2;
    for (int i = 0; i < 3; ++i) {
        if (at + 2 > count) {
            return false;
        }
        at += 2 + lengthAt(data + at);
    }
    return at == count;
}

void copyBean(JNIEnv *env, Draft<EJBEvent> &draft, jbyteArray data, jint count) {
    constexpr jint MOST = 65535 + 2;
    if (data != nullptr && count > 0 && count <= MOST && env->GetArrayLength(data) >= count) {
        fillAndCharge(env, draft, [=](EJBEvent &event, Texts &texts) {
            texts.hold<jbyte>(event.data, data, count, &JNIEnv::GetByteArrayRegion);
        });
    }
    const char *copied = draft.text(draft->data);
    if (copied == nullptr || !isBean(reinterpret_cast<const int8_t *>(copied), draft->data.length())) {
        draft.put(draft->data, EMPTY_BEAN, sizeof(EMPTY_BEAN));
    }
    draft->count = static_cast<int32_t>(draft->data.length());
}

} // namespace

void beginBeanRequest(JNIEnv *env, jclass, jbyteArray data, jint count) {
    ThreadData *td = callingThread(env);
    if (enter(td, Rule::Any)) {
        NestedDraft<EJBEvent> draft(td, Event::SUB_START);
        copyBean(env, draft, data, count);
        sendEJBRequest(env, td, draft);
    }
}

// The event carries the depth of the level that it closes.
void endBeanRequest(JNIEnv *env, jclass) {
    ThreadData *td = callingThread(env);
    if (mayEnd(td, Rule::Any)) {
        NestedDraft<EJBEvent> draft(td, Event::SUB_END);
        leave(td);
        sendEJBRequest(env, td, draft);
    }
}

// ---------------------------------------------------------------- generic events

namespace {

// The count has one byte on the wire; what the array does not hold is left out too.
int32_t usableValues(JNIEnv *env, jint nCtxProps, jobjectArray ctxValues) {
    constexpr jint MOST = 255;
    if (ctxValues == nullptr) {
        return 0;
    }
    return std::max(0, std::min({nCtxProps, env->GetArrayLength(ctxValues), MOST}));
}

// Of two threads that look it up at once the first is believed.
jclass stringClass(JNIEnv *env) {
    static std::atomic<jclass> known{nullptr};
    jclass first = known.load(std::memory_order_acquire);
    if (first == nullptr) {
        const jclass found = findGlobalClass(env, "java/lang/String");
        if (known.compare_exchange_strong(first, found, std::memory_order_acq_rel)) {
            return found;
        }
        env->DeleteGlobalRef(found);
    }
    return first;
}

void copyContextValues(JNIEnv *env, jint nCtxProps, jobjectArray source, ContextValues &target,
                       Texts &texts) {
    const jclass strings = stringClass(env);
    texts.list(target.ctxValues, usableValues(env, nCtxProps, source));
    target.nCtxProps = static_cast<int32_t>(target.ctxValues.length() / sizeof(Text));
    for (int32_t i = 0; i < target.nCtxProps && strings != nullptr; ++i) {
        const LocalRef<jobject> value(env, env->GetObjectArrayElement(source, i));
        if (clearException(env)) {
            return;
        }
        if (value && env->IsInstanceOf(value.get(), strings) == JNI_TRUE) {
            texts.weighInList(target.ctxValues, i, static_cast<jstring>(value.get()));
        }
    }
}

} // namespace

void beginGenericEvent(JNIEnv *env, jint id, jint nCtxProps, jobjectArray ctxValues) {
    if (nCtxProps == 0 || ctxValues == nullptr) {
        return;
    }
    ThreadData *td = callingThread(env);
    if (!enter(td, Rule::Any)) {
        return;
    }
    NestedDraft<GenericEvent> draft(td, Event::TYPE_GENERIC_START, id);
    completeAndAppend(env, td, draft, Clocks::WallFirst, [=](GenericEvent &event, Texts &texts) {
        copyContextValues(env, nCtxProps, ctxValues, event, texts);
    });
}

// The event carries the depth of the level that it closes.
void endGenericEvent(JNIEnv *env, jint id) {
    ThreadData *td = callingThread(env);
    if (!mayEnd(td, Rule::Any)) {
        return;
    }
    NestedDraft<GenericEvent> draft(td, Event::TYPE_GENERIC_STOP, id);
    takeClocks(*draft, td, Clocks::WallFirst);
    leave(td);
    appendRequestEvent(env, td, draft);
}

void exceptionGenericEvent(JNIEnv *env, jint id, jint nCtxProps, jobjectArray ctxValues) {
    ThreadData *td = callingThread(env);
    ThreadDraft<GenericExceptionEvent> draft(td, id);
    fillAndCharge(env, draft, [=](GenericExceptionEvent &event, Texts &texts) {
        copyContextValues(env, nCtxProps, ctxValues, event, texts);
    });
    appendRequestEvent(env, td, draft);
}
