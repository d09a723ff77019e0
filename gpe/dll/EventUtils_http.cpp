// Requests that a browser makes.
#include "EventAssembly.h"
#include "EventUtils.h"

#include <cstring>

using namespace assembly;

namespace {

// Both ends carry the depth of the level that they close, also where no level was open.
void endHttp(JNIEnv *env, ThreadData *td, Event::EventSubType subType, jstring requestName,
             jstring applicationName, jstring url) {
    NestedDraft<HttpEvent> draft(td, subType);
    ++draft->requestDepth;
    sendRequest(env, td, draft, requestName, applicationName, url);
}

bool isCancelledPage(JNIEnv *env, jstring requestName) {
    constexpr char CANCEL[] = "JSP_CANCEL_REQUEST";
    if (requestName == nullptr || env->GetStringLength(requestName) != sizeof(CANCEL) - 1) {
        return false;
    }
    char name[sizeof(CANCEL)] = "";
    jniStringToBuffer(env, requestName, name, sizeof(name));
    return strcmp(name, CANCEL) == 0;
}

void closeLevel(JNIEnv *env, ThreadData *td, jstring requestName) {
    td->requestDepth = isCancelledPage(env, requestName) ? 0 : td->requestDepth - 1;
}

} // namespace

void startHttpRequest(JNIEnv *env, jstring requestName, jstring applicationName, jstring url,
                      jstring userId) {
    ThreadData *td = callingThread(env);
    if (td != nullptr) {
        td->lastCpuTime = 0;
        if (suppressBegin(td)) {
            return;
        }
        ++td->requestDepth;
    }
    NestedDraft<HttpEvent> draft(td, Event::SUB_START);
    fillAndCharge(env, draft, [=](HttpEvent &event, Texts &texts) {
        texts.copy(event.userId, userId, knownTo(td, &KnownStrings::userId));
    });
    sendRequest(env, td, draft, requestName, applicationName, url);
}

void finishHttpRequest(JNIEnv *env, jstring requestName) {
    ThreadData *td = callingThread(env);
    if (td != nullptr && td->requestDepth >= 1) {
        if (suppressEnd(td)) {
            return;
        }
        closeLevel(env, td, requestName);
    }
    endHttp(env, td, Event::SUB_END, nullptr, nullptr, nullptr);
}

void failHttpRequest(JNIEnv *env, jstring requestName, jstring applicationName, jstring err) {
    ThreadData *td = callingThread(env);
    if (td != nullptr && td->requestDepth >= 1) {
        closeLevel(env, td, requestName);
    }
    endHttp(env, td, Event::SUB_FAILED, requestName, applicationName, err);
}
