// Calls that go on in another server, tied together by a token: an invocation on this side, a receipt on the
// other, and messages through a queue.
#include "EventUtils.h"

#include "EventAssembly.h"

#include <algorithm>

using namespace assembly;

namespace {

// A token that is null, or longer than the 16 bits of its length on the wire, counts as empty.
int32_t holdToken(JNIEnv *env, Texts &texts, Text &target, jbyteArray token) {
    const jsize given = token != nullptr ? env->GetArrayLength(token) : 0;
    if (given > 0 && given <= UINT16_MAX) {
        texts.hold<jbyte>(target, token, given, &JNIEnv::GetByteArrayRegion);
    }
    return static_cast<int32_t>(target.length());
}

// A begin carries the raised depth, and its end the same. There is no test: unbalanced ends take it below 0.
class CorrelatedDraft : public ThreadDraft<GPSEvent> {
public:
    CorrelatedDraft(ThreadData *td, Event::EventSubType subType) : ThreadDraft<GPSEvent>(td, subType) {
        const bool ends = subType == Event::SUB_END || subType == Event::SUB_CORRELATED_COMPLETED;
        if (td != nullptr) {
            (*this)->requestDepth = ends ? td->requestDepth-- : ++td->requestDepth;
        }
    }
};

template <typename Fill>
void sendCorrelated(JNIEnv *env, Event::EventSubType subType, Fill fill) {
    ThreadData *td = callingThread(env);
    CorrelatedDraft draft(td, subType);
    fillAndCharge(env, draft, fill);
    sendRequest(env, td, draft, nullptr, nullptr, nullptr);
}

void appendGPSReceiveEvent(JNIEnv *env, Event::EventSubType subType, jbyteArray gpsToken) {
    ThreadData *td = callingThread(env);
    CorrelatedDraft draft(td, subType);
    completeAndAppend(env, td, draft, Clocks::WallFirst, [=](GPSEvent &event, Texts &texts) {
        if (subType == Event::SUB_CORRELATED_RECEIVED) {
            event.tokenLength = holdToken(env, texts, event.requestName, gpsToken);
        }
    });
}

void sendNothingMore(GPSEvent &, Texts &) {}

} // namespace

// ---------------------------------------------------------------- invocations

void startGpsInvocation(JNIEnv *env, jbyteArray token) {
    sendCorrelated(env, Event::SUB_START, [=](GPSEvent &event, Texts &texts) {
        event.tokenLength = holdToken(env, texts, event.requestName, token);
    });
}

void startGpsTxmonInvocation(JNIEnv *env, jstring gateway) {
    sendCorrelated(env, Event::SUB_CORRELATED_TM,
                   [=](GPSEvent &event, Texts &texts) { texts.copy(event.gateway, gateway); });
}

void endGpsInvocation(JNIEnv *env) {
    sendCorrelated(env, Event::SUB_END, sendNothingMore);
}

// ---------------------------------------------------------------- receipts

void startGpsReceipt(JNIEnv *env, jbyteArray token) {
    appendGPSReceiveEvent(env, Event::SUB_CORRELATED_RECEIVED, token);
}

void completeGpsReceipt(JNIEnv *env) {
    appendGPSReceiveEvent(env, Event::SUB_CORRELATED_COMPLETED, nullptr);
}

void startGpsTextReceipt(JNIEnv *env, jstring gpsToken) {
    sendCorrelated(env, Event::SUB_CORRELATED_RECEIVED, [=](GPSEvent &event, Texts &texts) {
        texts.cut(event.requestName, gpsToken, std::min<int32_t>(urlLimit, WIRE_TEXT_LIMIT), CutAt::AnyByte);
        event.tokenLength = static_cast<int32_t>(event.requestName.length());
    });
}

void completeGpsTextReceipt(JNIEnv *env) {
    sendCorrelated(env, Event::SUB_CORRELATED_COMPLETED, sendNothingMore);
}

// ---------------------------------------------------------------- messages

namespace {

// Other actions have no record of this kind.
bool hasCorrelationRecord(jint act) {
    return act == 7 || act == 10 || act == 11 || act == 13;
}

} // namespace

// Both records carry the raised depth. The pair is made after the call, so both take the CPU clock first.
void processGpsXQRequest(JNIEnv *env, jstring, jstring queueName, jint act, jbyteArray gpsToken) {
    ThreadData *td = callingThread(env);
    if ((td != nullptr && td->requestDepth == 0) || !hasCorrelationRecord(act)) {
        return;
    }
    if (td != nullptr) {
        ++td->requestDepth;
    }
    const auto begin = [=](GPSXQEvent &event, Texts &texts) {
        event.action = act;
        texts.copy(event.queueName, queueName);
        event.tokenLength = holdToken(env, texts, event.gpsToken, gpsToken);
    };
    const auto end = [=](GPSXQEvent &event, Texts &) { event.action = act; };
    NestedDraft<GPSXQEvent> beginning(td, Event::SUB_START);
    NestedDraft<GPSXQEvent> ending(td, Event::SUB_END);
    if (completeAndAppend(env, td, beginning, Clocks::CpuFirst, begin) &&
        completeAndAppend(env, td, ending, Clocks::CpuFirst, end)) {
        leave(td);
    }
}
