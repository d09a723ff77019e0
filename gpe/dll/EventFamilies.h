// The usual families of requests as a table: one row a family tells the class of its events, by which rule
// they are recorded, and what becomes of the arguments of its natives, in their order. `begin`, `end` and
// `append` come from the row alone: `JMSRequest::begin(env, action, queue, server, selector)`. A null string
// is an empty string. Families with a way of their own stand in `EventUtils.h`.
#pragma once

#include "EventAssembly.h"

#include <jni.h>
#include <type_traits>

namespace assembly {

// ---------------------------------------------------------------- what becomes of an argument

// A number goes into a field.
template <auto FIELD>
struct Value {
    template <typename E, typename V>
    static void fill(E &event, Texts &, V value) {
        event.*FIELD = value;
    }
};

// A string goes into a field, and its length into the event's size or not.
template <auto FIELD>
struct Weighed {
    template <typename E>
    static void fill(E &event, Texts &texts, jstring text) {
        texts.weigh(event.*FIELD, text);
    }
};

template <auto FIELD>
struct Copied {
    template <typename E>
    static void fill(E &event, Texts &texts, jstring text) {
        texts.copy(event.*FIELD, text);
    }
};

struct Unkept {
    template <typename E, typename V>
    static void fill(E &, Texts &, V) {}
};

// ---------------------------------------------------------------- what a row gives

// Whether it was recorded is the result of both.
template <typename E, Rule RULE, typename... Arguments>
struct Family {
    template <typename... V>
    static bool begin(JNIEnv *env, V... values) {
        return beginRequest<E>(env, RULE,
                               [=](E &event, Texts &texts) { (Arguments::fill(event, texts, values), ...); });
    }
    template <typename... V>
    static bool end(JNIEnv *env, V... values) {
        return endRequest<E>(env, RULE,
                             [=](E &event, Texts &texts) { (Arguments::fill(event, texts, values), ...); });
    }
};

// Counted without any test, so that the depth of unbalanced ends goes below 0. An end carries nothing.
template <typename E, typename... Arguments>
struct CountedFamily {
    template <typename... V>
    static void begin(JNIEnv *env, V... values) {
        countedRequest<E>(env, Event::SUB_START, [=](E &event, Texts &texts) {
            prepare(env, event);
            (Arguments::fill(event, texts, values), ...);
        });
    }
    static void end(JNIEnv *env) {
        countedRequest<E>(env, Event::SUB_END, [=](E &event, Texts &) { prepare(env, event); });
    }

private:
    static void prepare(JNIEnv *env, E &event) {
        if constexpr (std::is_base_of_v<CommonEvent, E>) {
            event.prepare(env, 0);
        }
    }
};

// The same, but nothing is recorded or counted for a thread without data.
template <typename E, typename... Arguments>
struct PhaseFamily {
    template <typename... V>
    static void begin(JNIEnv *env, V... values) {
        if (callingThread(env) != nullptr) {
            CountedFamily<E, Arguments...>::begin(env, values...);
        }
    }
    static void end(JNIEnv *env) {
        if (callingThread(env) != nullptr) {
            CountedFamily<E, Arguments...>::end(env);
        }
    }
};

// A record that stands alone.
template <typename E, typename... Arguments>
struct Single {
    template <typename... V>
    static void append(JNIEnv *env, V... values) {
        appendSingle<E>(env, [=](E &event, Texts &texts) { (Arguments::fill(event, texts, values), ...); });
    }
};

} // namespace assembly

// ---------------------------------------------------------------- the table

namespace families {

using namespace assembly;

// Calls of a request to other resources.
using JMSRequest = Family<JMSEvent, Rule::Nested, Value<&JMSEvent::action>, Weighed<&JMSEvent::queue>,
                          Weighed<&JMSEvent::server>, Copied<&JMSEvent::selector>>;
using JCARequest = Family<JCAEvent, Rule::Nested, Weighed<&JCAEvent::eis>>;
using JNDIRequest = Family<JNDIEvent, Rule::Nested, Weighed<&JNDIEvent::lookup>, Weighed<&JNDIEvent::url>>;
using JavaMailRequest =
    Family<MailEvent, Rule::Plain, Weighed<&MailEvent::subject>, Weighed<&MailEvent::url>>;
using JDORequest = Family<JDOEvent, Rule::Inner, Weighed<&JDOEvent::className>,
                          Weighed<&JDOEvent::methodName>, Weighed<&JDOEvent::argumentString>>;
using XQRequest = Family<XQEvent, Rule::Plain, Weighed<&XQEvent::queueMgrName>, Weighed<&XQEvent::queueName>,
                         Value<&XQEvent::action>>;

// Work inside a request: objects made, and monitors entered and left.
using HeapAllocation = Family<HeapEvent, Rule::Plain, Value<&HeapEvent::allocatingMethodId>, Unkept,
                              Weighed<&HeapEvent::instantiatedClassName>>;
using LockAcquisition =
    Family<LockAcquisitionEvent, Rule::Plain, Value<&LockAcquisitionEvent::lockingMethodId>,
           Weighed<&LockAcquisitionEvent::lockedClassName>>;
using LockRelease = Family<LockReleaseEvent, Rule::Plain, Value<&LockReleaseEvent::lockingMethodId>,
                           Weighed<&LockReleaseEvent::lockedClassName>>;

// Remote calls, and those of web services with their faults.
using IIOPClientCall =
    CountedFamily<CommonEvent, Copied<&CommonEvent::className>, Copied<&CommonEvent::methodName>>;
using IIOPServerCall =
    CountedFamily<IIOPServerEvent, Copied<&IIOPServerEvent::className>, Copied<&IIOPServerEvent::methodName>>;
using WSClientCall = CountedFamily<WSClientEvent, Copied<&WSClientEvent::applicationName>,
                                   Copied<&WSClientEvent::requestName>, Copied<&WSClientEvent::url>>;
using WSProviderCall = CountedFamily<WSProviderEvent, Copied<&WSProviderEvent::applicationName>,
                                     Copied<&WSProviderEvent::requestName>, Copied<&WSProviderEvent::url>>;
using WSFault = CountedFamily<WSFaultEvent, Copied<&WSFaultEvent::appName>, Copied<&WSFaultEvent::faultCode>,
                              Copied<&WSFaultEvent::faultString>>;

// The phases of a portal's page; the argument is a key of the method constants.
using PortalAuthorization = PhaseFamily<PortalAuthorizationEvent, Value<&PortalAuthorizationEvent::methodId>>;
using PortalAuthentication =
    PhaseFamily<PortalAuthenticationEvent, Value<&PortalAuthenticationEvent::methodId>>;
using PortalModelBuilding = PhaseFamily<PortalModelBuildingEvent, Value<&PortalModelBuildingEvent::methodId>>;
using PortalPageLoading = PhaseFamily<PortalPageLoadingEvent, Value<&PortalPageLoadingEvent::methodId>>;
using PortalPageRendering = PhaseFamily<PortalPageRenderingEvent, Value<&PortalPageRenderingEvent::methodId>>;
using PortalAction = PhaseFamily<PortalActionEvent, Value<&PortalActionEvent::methodId>>;

// Records that stand alone.
using Exception =
    Single<ExceptionEvent, Copied<&ExceptionEvent::exception>, Copied<&ExceptionEvent::className>,
           Copied<&ExceptionEvent::methodName>, Copied<&ExceptionEvent::stackTrace>>;
using GWXFigures = Single<GWXEvent, Weighed<&GWXEvent::gatewayName>, Weighed<&GWXEvent::serverName>,
                          Weighed<&GWXEvent::progName>, Value<&GWXEvent::snapShotTime>,
                          Value<&GWXEvent::count>, Value<&GWXEvent::avgTimeTaken>>;
using DroppedMarker = Single<DroppedEvent>;

} // namespace families
