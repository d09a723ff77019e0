#include "probesystem.h"

#include "ProbeContextPersister.h"
#include "ProbeLgKit.h"
#include "ProbeMgr.h"
#include "PropertyMgr.h"
#include "class.h"
#include "jnihelp.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

SystemSettings systemSettings;

namespace {

constexpr char STRING_SIGNATURE[] = "Ljava/lang/String;";
constexpr char CLASS_SIGNATURE[] = "Ljava/lang/Class;";
constexpr char SIGNATURE_TEXT[] = "setSystemProperties( JNIEnv *env, jclass cls )";

PlainLock settingsLock; // `systemSettings` and the names; no call into Java is made behind it
using SettingsGuard = std::lock_guard<PlainLock>;

// ---------------------------------------------------------------- fields

bool missing(const char *text) {
    AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE_TEXT, "%s", text);
    return false;
}

// The id of a static field; null, with the exception described and cleared, if there is none.
jfieldID staticField(JNIEnv *env, jclass cls, const char *name, const char *signature) {
    const jfieldID id = env->GetStaticFieldID(cls, name, signature);
    return clearException(env) ? nullptr : id;
}

// A heap copy of a static String field; null if the field or its value is missing.
char *readString(JNIEnv *env, jclass cls, const char *name) {
    const jfieldID id = staticField(env, cls, name, STRING_SIGNATURE);
    if (id == nullptr) {
        return nullptr;
    }
    const LocalRef<jstring> value(env, static_cast<jstring>(env->GetStaticObjectField(cls, id)));
    return value ? jniStringCopy(env, value.get()) : nullptr;
}

// One field: where it goes and what the trace says.
struct StringField {
    const char *name;
    char *target;
    size_t room;
    const char *defined;
    const char *undefined;
    void (*passOn)(const char *value) = nullptr;
};

bool takeString(JNIEnv *env, jclass cls, const StringField &field) {
    char *value = readString(env, cls, field.name);
    if (value == nullptr) {
        return missing(field.undefined);
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE_TEXT, field.defined, static_cast<const char *>(value));
    {
        const SettingsGuard guard(settingsLock);
        field.target[0] = '\0';
        copyFact(field.target, field.room, value);
    }
    if (field.passOn != nullptr) {
        field.passOn(value);
    }
    free(value);
    return true;
}

// Takes `value` over; the older one is freed.
void keepCopy(char **target, char *value) {
    char *old = nullptr;
    {
        const SettingsGuard guard(settingsLock);
        old = std::exchange(*target, value);
    }
    free(old);
}

// A missing value is told and leaves the old one.
bool takeCopy(JNIEnv *env, jclass cls, const char *name, char **target, const char *defined) {
    char *value = readString(env, cls, name);
    if (value == nullptr) {
        return false;
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE_TEXT, defined, static_cast<const char *>(value));
    keepCopy(target, value);
    return true;
}

struct IntField {
    const char *name;
    int32_t *target;
    int32_t zeroBecomes;
    const char *defined;
    const char *undefined;
    void (*passOn)(int32_t value) = nullptr;
};

bool takeInt(JNIEnv *env, jclass cls, const IntField &field) {
    const jfieldID id = staticField(env, cls, field.name, "I");
    if (id == nullptr) {
        return missing(field.undefined);
    }
    const jint given = env->GetStaticIntField(cls, id);
    const int32_t value = given != 0 ? given : field.zeroBecomes;
    {
        const SettingsGuard guard(settingsLock);
        *field.target = value;
    }
    if (field.passOn != nullptr) {
        field.passOn(value);
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE_TEXT, field.defined, value);
    return true;
}

bool takeRetryFrequency(JNIEnv *env, jclass cls) {
    const jfieldID id = staticField(env, cls, "psRetryFrequency", "J");
    if (id == nullptr) {
        return missing("exiting with error. ps_retry_frequency not defined");
    }
    const jlong given = env->GetStaticLongField(cls, id);
    const jlong value = given != 0 ? given : 5000;
    {
        const SettingsGuard guard(settingsLock);
        systemSettings.psRetryFrequency = value;
    }
    char digits[24];
    snprintf(digits, sizeof(digits), "%lld", static_cast<long long>(value));
    AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE_TEXT, "ps_retry_frequency defined: %s",
             static_cast<const char *>(digits));
    return true;
}

bool takeNames(JNIEnv *env, jclass cls) {
    const StringField fields[] = {
        {"zykoraHome", rawHome, sizeof(rawHome), "zykora_home defined: %s",
         "exiting with error. zykora_home not defined"},
        {"adminServerName", rawNodeName, sizeof(rawNodeName), "nodename defined: %s",
         "exiting with error. nodename not defined"},
        {"appServerName", rawAppServer, sizeof(rawAppServer), "appname defined: %s",
         "exiting with error. appname not defined"},
    };
    for (const StringField &field : fields) {
        if (!takeString(env, cls, field)) {
            return false;
        }
    }
    return true;
}

bool takeSizes(JNIEnv *env, jclass cls) {
    const IntField beforeRetry[] = {
        {"methodHashSize", &systemSettings.methodHashSize, 55511, "method_hash_size defined: %d",
         "exiting with error. method_hash_size not defined", setMethodHashSize},
        {"publishFrequency", &systemSettings.publishFrequency, 2000, "publishing_frequency defined: %d",
         "exiting with error. publishing_frequency not defined"},
        {"eventPacketSize", &systemSettings.eventPacketSize, 5000, "event_packet_size defined: %d",
         "exiting with error. event_packet_size not defined"},
        {"eventQueueSizeLimit", &systemSettings.eventQueueSizeLimit, 5000,
         "limit_per_event_queue defined: %d", "exiting with error. limit_per_event_queue not defined"},
    };
    const IntField wakeup = {"wakeupQueueLength", &systemSettings.wakeupQueueLength, 500,
                             "wakeup_queuelength defined: %d",
                             "exiting with error. wakeup_queuelength not defined"};
    for (const IntField &field : beforeRetry) {
        if (!takeInt(env, cls, field)) {
            return false;
        }
    }
    return takeRetryFrequency(env, cls) && takeInt(env, cls, wakeup);
}

bool takeIdentity(JNIEnv *env, jclass cls) {
    takeCopy(env, cls, "probeStdout", &systemSettings.probeStdout, "probe_stdout defined: %s");
    const StringField id = {"commandAgentID",
                            systemSettings.commandAgentId,
                            sizeof(systemSettings.commandAgentId),
                            "component_id defined: %s",
                            "exiting with error. component_id not defined",
                            ProbeMgr::setComponentId};
    if (!takeString(env, cls, id)) {
        return false;
    }
    const IntField port = {"adminServerPort",
                           &systemSettings.adminServerPort,
                           0,
                           "adminserverport defined: %d",
                           "exiting with error. adminserverport not defined",
                           ProbeMgr::setAdminServerPort};
    if (!takeInt(env, cls, port)) {
        return false;
    }
    return takeCopy(env, cls, "jvmVersion", &systemSettings.jvmVersion, "java_version defined: %s") ||
           missing("exiting with error. java_version not defined");
}

// ---------------------------------------------------------------- classes and version

bool takeClass(JNIEnv *env, jclass cls, const char *name, jclass *target) {
    const jfieldID id = staticField(env, cls, name, CLASS_SIGNATURE);
    if (id == nullptr) {
        return false;
    }
    const LocalRef<jobject> value(env, env->GetStaticObjectField(cls, id));
    auto *kept = value ? static_cast<jclass>(env->NewGlobalRef(value.get())) : nullptr;
    {
        const SettingsGuard guard(settingsLock);
        kept = std::exchange(*target, kept);
    }
    env->DeleteGlobalRef(kept);
    return true;
}

void takeProductVersion(JNIEnv *env, jclass cls) {
    const jmethodID method = findStaticMethod(env, cls, "getAppServerProductVersion", "()Ljava/lang/String;");
    if (method == nullptr) {
        return;
    }
    const LocalRef<jobject> version(env, env->CallStaticObjectMethod(cls, method));
    if (clearException(env) || !version) {
        return;
    }
    char *copy = jniStringCopy(env, static_cast<jstring>(version.get()));
    ProbeMgr::setAppServerVersion(copy);
    keepCopy(&systemSettings.appServerProductVersion, copy);
}

// -1 for a missing class field, 0 after a pending exception, else 1.
int loadClassesFindMethods(JNIEnv *env, jclass cls) {
    if (!takeClass(env, cls, "object", &systemSettings.object) ||
        !takeClass(env, cls, "clazz", &systemSettings.clazz) ||
        !takeClass(env, cls, "string", &systemSettings.string)) {
        return -1;
    }
    if (clearException(env)) {
        return 0;
    }
    takeProductVersion(env, cls);
    return 1;
}

// ---------------------------------------------------------------- initializeProbe

constexpr char INITIALIZE_TEXT[] = "ProbeSystem.initializeProbe()";

#define AM_INITIALIZE_TRACE(...) AM_TRACE(ccTracer, LGK_DEBUG_MID, INITIALIZE_TEXT, __VA_ARGS__)

// Tells one build from another.
void reportCompilerDirectives() {
#if defined(__x86_64__)
    constexpr char defined[] = "LINUX JVMTI X86_64";
    constexpr char notDefined[] = "WINDOWS JVMPI AARCH64";
#else
    constexpr char defined[] = "LINUX JVMTI";
    constexpr char notDefined[] = "WINDOWS JVMPI X86_64";
#endif
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "reportCompilerDirectives()", "Compiler directives defined: %s",
             static_cast<const char *>(defined));
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "reportCompilerDirectives()", "Compiler directives not defined: %s",
             static_cast<const char *>(notDefined));
}

bool giveInt(JNIEnv *env, jclass cls, const char *name, jint value) {
    const jfieldID id = staticField(env, cls, name, "I");
    if (id == nullptr) {
        return false;
    }
    env->SetStaticIntField(cls, id, value);
    return true;
}

bool giveContextFileName(JNIEnv *env, jclass cls) {
    char *path = ProbeMgr::copyContextFilePath();
    const LocalRef<jstring> text(env, newPlatformString(env, path));
    free(path);
    if (clearException(env) || !text) {
        AM_INITIALIZE_TRACE("Probe context filename not defined");
        return true;
    }
    const jfieldID id = staticField(env, cls, "contextFileName", STRING_SIGNATURE);
    if (id == nullptr) {
        AM_INITIALIZE_TRACE("Exiting with error. ProbeSystem.contextFileName not defined");
        return false;
    }
    env->SetStaticObjectField(cls, id, text.get());
    return true;
}

} // namespace

int setSystemProperties(JNIEnv *env, jclass cls) {
    if (!takeNames(env, cls) || !takeSizes(env, cls) || !takeIdentity(env, cls)) {
        return -1;
    }
    loadClassesFindMethods(env, cls);
    return 1;
}

bool initializeProbe(JNIEnv *env, jclass cls) {
    reportCompilerDirectives();
    if (setSystemProperties(env, cls) == -1) {
        AM_INITIALIZE_TRACE("Exiting with error. SystemProperties not set. Native probe not initialized");
        return false;
    }
    if (!giveInt(env, cls, "processId", processId)) {
        AM_INITIALIZE_TRACE("Exiting with error. ProbeSystem.processId not defined");
        return false;
    }
    AM_INITIALIZE_TRACE("Set ProbeSystem.processId field: %d", processId);
    if (!giveInt(env, cls, "probeLevel", static_cast<jint>(probeLevel.get()))) {
        AM_INITIALIZE_TRACE("Exiting with error. ProbeSystem.probeLevel not defined");
        return false;
    }
    if (!giveContextFileName(env, cls)) {
        return false;
    }
    if (clearException(env)) {
        AM_INITIALIZE_TRACE("Exiting with error. Exception occurred");
        return false;
    }
    return true;
}
