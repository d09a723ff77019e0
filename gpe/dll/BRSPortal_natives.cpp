// Natives of PortalNativeEventAgentImpl: what a portal server tells of its pages, of the phases of their
// requests, and the figures that its Java half has counted. They pass the gate as those of other requests;
// none throws.
#include "BRSPortal.h"
#include "EventFamilies.h"
#include "JavaText.h"
#include "NativeGate.h"
#include "PortalMethodMgr.h"
#include "jnihelp.h"

#include <cstdlib>

#define PORTAL(name) Java_com_qel_morvex_norak_dc_eventagent_PortalNativeEventAgentImpl_##name

using namespace families;
using namespace native;

namespace {

// As much as the wire can carry.
char *wireCopy(JNIEnv *env, jstring text) {
    return jniStringCopyLimited(env, text, assembly::WIRE_TEXT_LIMIT, CutAt::Character, nullptr);
}

} // namespace

extern "C" {

// ---------------------------------------------------------------- figures

#define AM_FIGURE_NATIVE(javaName, operation, type)                                                          \
    JNIEXPORT void JNICALL PORTAL(javaName)(JNIEnv * env, jclass, jint count, jlong avgTime) {               \
        gated(env, [=] { operation(env, type, count, avgTime); });                                           \
    }

AM_FIGURE_NATIVE(sendLoginDataNative, appendPortalAuthAcEvent, Event::TYPE_PORTAL_LOGIN)
AM_FIGURE_NATIVE(sendAccessControlDataNative, appendPortalAuthAcEvent, Event::TYPE_PORTAL_ACCESS_CONTROL)
AM_FIGURE_NATIVE(sendGatewayServletDataNative, appendPortalAggregateDataEvent,
                 Event::TYPE_PORTAL_GATEWAY_SERVLET_SUM)
AM_FIGURE_NATIVE(sendModelBuildingDataNative, appendPortalAggregateDataEvent,
                 Event::TYPE_PORTAL_MODEL_BUILDING_SUM)
AM_FIGURE_NATIVE(sendPageLoadingDataNative, appendPortalAggregateDataEvent,
                 Event::TYPE_PORTAL_PAGE_LOADING_SUM)

JNIEXPORT void JNICALL PORTAL(sendCredentialVaultDataNative)(JNIEnv *env, jclass, jint count1, jlong time1,
                                                             jint count2, jlong time2, jint count3,
                                                             jlong time3, jint count4, jlong time4,
                                                             jint count5, jlong time5) {
    gated(env, [=] {
        appendPortalCredentialVaultEvent(
            env, {{count1, time1}, {count2, time2}, {count3, time3}, {count4, time4}, {count5, time5}});
    });
}

JNIEXPORT void JNICALL PORTAL(sendContentAccessDataNative)(JNIEnv *env, jclass, jint count1, jlong time1,
                                                           jint count2, jlong time2, jint count3, jlong time3,
                                                           jint count4, jlong time4) {
    gated(env, [=] {
        appendPortalContentAccessEvent(env,
                                       {{count1, time1}, {count2, time2}, {count3, time3}, {count4, time4}});
    });
}

// ---------------------------------------------------------------- pages and portlets

#define AM_PORTAL_REQUEST_NATIVES(startName, endName, type)                                                  \
    JNIEXPORT void JNICALL PORTAL(startName)(JNIEnv * env, jclass, jstring requestName, jstring className,   \
                                             jstring url, jstring userid) {                                  \
        gated(env, [=] {                                                                                     \
            appendPortalRequestEvent(env, type, Event::SUB_START, requestName, className, url, userid);      \
        });                                                                                                  \
    }                                                                                                        \
    JNIEXPORT void JNICALL PORTAL(endName)(JNIEnv * env, jclass, jstring requestName) {                      \
        gated(env, [=] {                                                                                     \
            appendPortalRequestEvent(env, type, Event::SUB_END, requestName, nullptr, nullptr, nullptr);     \
        });                                                                                                  \
    }

AM_PORTAL_REQUEST_NATIVES(startPortalPageRequestNative, endPortalPageRequestNative, Event::TYPE_PORTAL_PAGE)
AM_PORTAL_REQUEST_NATIVES(startPortletRequestNative, endPortletRequestNative, Event::TYPE_PORTAL_PORTLET)

// ---------------------------------------------------------------- phases

#define AM_PHASE_NATIVES(startName, endName, phase)                                                          \
    JNIEXPORT void JNICALL PORTAL(startName)(JNIEnv * env, jclass, jbyte methodId) {                         \
        gated(env, [=] { phase::begin(env, methodId); });                                                    \
    }                                                                                                        \
    JNIEXPORT void JNICALL PORTAL(endName)(JNIEnv * env, jclass) {                                           \
        gated(env, [=] { phase::end(env); });                                                                \
    }

AM_PHASE_NATIVES(startPortalAuthorizationRequestNative, endPortalAuthorizationRequestNative,
                 PortalAuthorization)
AM_PHASE_NATIVES(startPortalAuthenticationRequestNative, endPortalAuthenticationRequestNative,
                 PortalAuthentication)
AM_PHASE_NATIVES(startPortalModelBuildingRequestNative, endPortalModelBuildingRequestNative,
                 PortalModelBuilding)
AM_PHASE_NATIVES(startPortalPageLoadingRequestNative, endPortalPageLoadingRequestNative, PortalPageLoading)
AM_PHASE_NATIVES(startPortalPageRenderingRequestNative, endPortalPageRenderingRequestNative,
                 PortalPageRendering)
AM_PHASE_NATIVES(startPortalActionRequestNative, endPortalActionRequestNative, PortalAction)

// ---------------------------------------------------------------- the gateway

JNIEXPORT void JNICALL PORTAL(startGatewayServletRequestNative)(JNIEnv *env, jclass) {
    gated(env, [=] { appendPortalGatewayServletRequestEvent(env, Event::SUB_START); });
}

JNIEXPORT void JNICALL PORTAL(endGatewayServletRequestNative)(JNIEnv *env, jclass) {
    gated(env, [=] { appendPortalGatewayServletRequestEvent(env, Event::SUB_END); });
}

JNIEXPORT void JNICALL PORTAL(end502GatewayServletRequestNative)(JNIEnv *env, jclass, jstring pageName) {
    gated(env, [=] { appendPortalGatewayServletRequestEvent(env, Event::SUB_END, pageName); });
}

// Open levels of the thread; 0 if it has no data.
JNIEXPORT jint JNICALL PORTAL(getServletDepthNative)(JNIEnv *env, jclass) {
    return withOwnThread(env, 0, [](const ThreadData &td) { return td.requestDepth; });
}

// The page that the gateway's next end tells of, unless it names one itself.
JNIEXPORT void JNICALL PORTAL(processPortalPageNameNative)(JNIEnv *env, jclass, jstring pageName) {
    withOwnThread(env, [=](ThreadData &td) {
        char *copy = wireCopy(env, pageName);
        free(td.pageName);
        td.pageName = copy;
    });
}

// ---------------------------------------------------------------- names of methods

// Kept for the process; a key of 0 is not.
JNIEXPORT void JNICALL PORTAL(pushMonitoredMethodToNative)(JNIEnv *env, jclass, jbyte methodId,
                                                           jstring methodName) {
    const Inside inside;
    PortalMethodMgr *manager = inside ? PortalMethodMgr::getInstance() : nullptr;
    if (manager != nullptr) {
        char *name = wireCopy(env, methodName);
        manager->putMethod(methodId, name);
        free(name);
    }
}

} // extern "C"
