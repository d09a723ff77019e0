#include "BRSPortal.h"

#include "EventAssembly.h"
#include "EventUtils.h"

#include <algorithm>
#include <cstring>

using namespace assembly;

// ---------------------------------------------------------------- pages and portlets

namespace {

template <typename E, typename... Args>
void appendPortalRequest(JNIEnv *env, jstring requestName, jstring className, jstring url, jstring userId,
                         Args... args) {
    ThreadData *td = callingThread(env);
    NestedDraft<E> draft(td, args...);
    counted(td, draft->subType, [&] {
        draft->requestDepth = td != nullptr ? td->requestDepth : 0;
        if (draft->subType == Event::SUB_START) {
            fillAndCharge(env, draft, [=](E &event, Texts &texts) { texts.copy(event.userId, userId); });
        }
        return sendRequest(env, td, draft, requestName, className, url);
    });
}

} // namespace

void appendPortalRequestEvent(JNIEnv *env, Event::EventType type, Event::EventSubType subType,
                              jstring request_name, jstring className, jstring url, jstring userid) {
    switch (type) {
    case Event::TYPE_PORTAL_PAGE:
        appendPortalRequest<PortalPageEvent>(env, request_name, className, url, userid, subType);
        break;
    case Event::TYPE_PORTAL_PORTLET:
        appendPortalRequest<PortalPortletEvent>(env, request_name, className, url, userid, subType);
        break;
    default:
        appendPortalRequest<RequestEvent>(env, request_name, className, url, userid, type, subType);
    }
}

// ---------------------------------------------------------------- the gateway

void appendPortalGatewayServletRequestEvent(JNIEnv *env, Event::EventSubType subType) {
    const ThreadData *td = callingThread(env);
    const char *pageName = td != nullptr ? td->pageName : nullptr;
    const auto name = [=](PortalGatewayServletEvent &event, Texts &texts) {
        if (event.subType == Event::SUB_END && pageName != nullptr) {
            texts.hold(event.pageName, pageName, strlen(pageName));
        }
    };
    countedRequest<PortalGatewayServletEvent>(env, subType, name);
}

void appendPortalGatewayServletRequestEvent(JNIEnv *env, Event::EventSubType subType, jstring pageName) {
    countedRequest<PortalGatewayServletEvent>(env, subType,
                                              [=](PortalGatewayServletEvent &event, Texts &texts) {
                                                  if (event.subType == Event::SUB_END) {
                                                      texts.copy(event.pageName, pageName);
                                                  }
                                              });
}

// ---------------------------------------------------------------- figures

namespace {

template <typename E>
void appendFigure(JNIEnv *env, Event::EventType type, jint count, jlong avgTimeTaken) {
    const auto fill = [=](E &event, Texts &) {
        event.count = count;
        event.avgTime = avgTimeTaken;
    };
    appendSingle<E>(env, fill, type);
}

template <typename E, size_t N>
void appendFigures(JNIEnv *env, const CountAndTime (&figures)[N]) {
    appendSingle<E>(env, [&](E &event, Texts &) { std::copy_n(figures, N, event.figures); });
}

} // namespace

void appendPortalAuthAcEvent(JNIEnv *env, Event::EventType type, jint count, jlong avgTimeTaken) {
    appendFigure<PortalAuthAcEvent>(env, type, count, avgTimeTaken);
}

void appendPortalAggregateDataEvent(JNIEnv *env, Event::EventType type, jint count, jlong avgTimeTaken) {
    appendFigure<PortalAggregateDataEvent>(env, type, count, avgTimeTaken);
}

void appendPortalCredentialVaultEvent(JNIEnv *env, const CountAndTime (&figures)[5]) {
    appendFigures<PortalCredentialVaultEvent>(env, figures);
}

void appendPortalContentAccessEvent(JNIEnv *env, const CountAndTime (&figures)[4]) {
    appendFigures<PortalContentAccessEvent>(env, figures);
}

void appendPortalMethodConstantEvent(JNIEnv *env, jbyte methodId, const char *methodName) {
    appendSingle<PortalMethodConstantEvent>(env, [=](PortalMethodConstantEvent &event, Texts &) {
        event.methodId = methodId;
        event.methodName = methodName;
    });
}
