// Where the Publish Server is: asked of the Java half, and shared by all agents until none is connected.

#include "NetworkAgentMgr.h"

#include "ProbeLgKit.h"
#include "jnihelp.h"

#include <cstdio>
#include <mutex>

namespace {

constexpr char LOOKUP_CLASS[] = "com/zykora/publish/pe_lookup";
constexpr int SILENT_FROM = 6;

Relaxed<jclass> lookupClass(nullptr); // a global reference, kept once found

// A static field id; null, exception cleared, if there is none.
jfieldID findStaticField(JNIEnv *env, jclass cls, const char *name, const char *signature) {
    const jfieldID field = env->GetStaticFieldID(cls, name, signature);
    return clearException(env) ? nullptr : field;
}

// False, and `*result` unchanged or of no meaning, if Java failed.
bool callInitialize(JNIEnv *env, jclass lookup, jint *result) {
    const jmethodID initialize = findStaticMethod(env, lookup, "initialize", "()I");
    if (initialize == nullptr) {
        return false;
    }
    *result = env->CallStaticIntMethod(lookup, initialize);
    return !clearException(env);
}

} // namespace

bool NetworkAgentMgr::getPSDetailsFromKernel(JNIEnv *env, int nCntLog, NetworkAgent *, PSDetails &details) {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MID,
                   "NetworkAgentMgr::getPSDetailsFromKernel( JNIEnv * env, int nCntLog, NetworkAgent *na )");
    if (!psDetailsNeeded_) {
        return readDetails(details);
    }
    const ZykLockGuard guard(lookupLock_);
    if (psDetailsNeeded_) { // no other agent asked meanwhile
        storeDetails(nullptr);
        askKernel(env, nCntLog);
    }
    return readDetails(details);
}

bool NetworkAgentMgr::readDetails(PSDetails &details) {
    const std::lock_guard<PlainLock> guard(detailsLock_);
    if (detailsKnown_) {
        details = psDetails_;
    }
    return detailsKnown_;
}

void NetworkAgentMgr::storeDetails(const PSDetails *details) {
    const std::lock_guard<PlainLock> guard(detailsLock_);
    detailsKnown_ = details != nullptr;
    if (detailsKnown_) {
        psDetails_ = *details;
    }
}

void NetworkAgentMgr::askKernel(JNIEnv *env, int nCntLog) {
    if (env == nullptr) {
        return;
    }
    if (lookupClass == nullptr) {
        lookupClass = findGlobalClass(env, LOOKUP_CLASS);
    }
    jint result = 0;
    if (lookupClass == nullptr || !callInitialize(env, lookupClass, &result)) {
        return;
    }
    if (result == 1) {
        readLookupResult(env, lookupClass);
    } else if (nCntLog < SILENT_FROM) {
        messageWarn(1058, "PSLookup failed");
    }
}

void NetworkAgentMgr::readLookupResult(JNIEnv *env, jclass lookup) {
    const jfieldID hostField = findStaticField(env, lookup, "hostName_", "Ljava/lang/String;");
    if (hostField == nullptr) {
        AM_TRACE(naTracer, LGK_DEBUG_MID,
                 "NetworkAgentMgr::getPSDetailsFromKernel( JNIEnv * env, int nCntLog, NetworkAgent *na )",
                 "PS Lookup was successful but hostName field id was not found");
        return;
    }
    const LocalRef<jobject> host(env, env->GetStaticObjectField(lookup, hostField));
    const jfieldID portField = findStaticField(env, lookup, "port_", "I");
    const jfieldID sizeField = findStaticField(env, lookup, "sendBuffSize_", "I");
    if (!host || portField == nullptr || sizeField == nullptr) {
        return;
    }
    char text[sizeof(PSDetails::host)] = "";
    jniStringToBuffer(env, static_cast<jstring>(host.get()), text, sizeof(text));
    setPSDetails(text, env->GetStaticIntField(lookup, portField), env->GetStaticIntField(lookup, sizeField));
}

void NetworkAgentMgr::setPSDetails(const char *host, int32_t port, int32_t sendBuffSize) {
    const ZykLockGuard guard(lookupLock_);
    PSDetails details;
    snprintf(details.host, sizeof(details.host), "%s", host);
    details.port = port;
    details.sendBuffSize = sendBuffSize;
    storeDetails(&details);
    psDetailsNeeded_ = false;
}
