// Where the Publish Server is: asked of the Java half, and shared by all agents until none is connected.

#include "NetworkAgentMgr.h"

#include "ProbeLgKit.h"
#include "jnihelp.h"

namespace {

constexpr char LOOKUP_CLASS[] = "com/zykora/publish/pe_lookup";
constexpr size_t HOST_ROOM = 200;
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

std::shared_ptr<const PSDetails> NetworkAgentMgr::getPSDetailsFromKernel(JNIEnv *env, int nCntLog,
                                                                         NetworkAgent *) {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MID,
                   "NetworkAgentMgr::getPSDetailsFromKernel( JNIEnv * env, int nCntLog, NetworkAgent *na )");
    if (!psDetailsNeeded_) {
        return std::atomic_load(&psDetails_);
    }
    const ZykLockGuard guard(lookupLock_);
    if (psDetailsNeeded_) { // no other agent asked meanwhile
        std::atomic_store(&psDetails_, std::shared_ptr<const PSDetails>());
        askKernel(env, nCntLog);
    }
    return std::atomic_load(&psDetails_);
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
    char text[HOST_ROOM] = "";
    jniStringToBuffer(env, static_cast<jstring>(host.get()), text, sizeof(text));
    setPSDetails(text, env->GetStaticIntField(lookup, portField), env->GetStaticIntField(lookup, sizeField));
}

void NetworkAgentMgr::setPSDetails(const char *host, int32_t port, int32_t sendBuffSize) {
    const ZykLockGuard guard(lookupLock_);
    std::shared_ptr<const PSDetails> details(new PSDetails{host, port, sendBuffSize});
    std::atomic_store(&psDetails_, std::move(details));
    psDetailsNeeded_ = false;
}
