#include "WebService.h"

#include "EventAssembly.h"

using namespace assembly;

namespace {

template <typename E>
void appendCall(JNIEnv *env, Event::EventSubType subType, jstring appName, jstring requestName, jstring url) {
    countedRequest<E>(env, subType, [=](E &event, Texts &texts) {
        if (event.subType == Event::SUB_START) {
            texts.copy(event.applicationName, appName);
            texts.copy(event.requestName, requestName);
            texts.copy(event.url, url);
        }
    });
}

} // namespace

void appendWSClientEvent(JNIEnv *env, Event::EventSubType subType, jstring appName, jstring requestName,
                         jstring url) {
    appendCall<WSClientEvent>(env, subType, appName, requestName, url);
}

void appendWSProviderEvent(JNIEnv *env, Event::EventSubType subType, jstring appName, jstring requestName,
                           jstring url) {
    appendCall<WSProviderEvent>(env, subType, appName, requestName, url);
}

void appendWSFaultEvent(JNIEnv *env, Event::EventSubType subType, jstring appName, jstring faultCode,
                        jstring faultString) {
    countedRequest<WSFaultEvent>(env, subType, [=](WSFaultEvent &event, Texts &texts) {
        if (event.subType == Event::SUB_START) {
            texts.copy(event.appName, appName);
            texts.copy(event.faultCode, faultCode);
            texts.copy(event.faultString, faultString);
        }
    });
}
