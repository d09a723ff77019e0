#include "PropertyMgr.h"

#include "JVMTIUtils.h"
#include "JavaPath.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "jnihelp.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

constexpr char BUILDER_CLASS[] = "com/qel/morvex/norak/toolkit/ai/runtimebuilder/RuntimeBuilder";
constexpr char MANAGER_CLASS[] = "com/qel/morvex/norak/toolkit/ai/bcm/bootstrap/PropertyManager";
constexpr char ENVIRONMENT_FILE[] = "dc.env.properties";
constexpr char COLLECTOR_MASK[] = "datacollector*.properties";

// Copies at most `room - 1` bytes and terminates.
template <size_t Room>
void copyCut(char (&target)[Room], const char *text) {
    const size_t length = strnlen(text, Room - 1);
    memcpy(target, text, length);
    target[length] = '\0';
}

// A heap copy of what the builder calls the runtime directory; null if it names none.
char *buildRuntimeDir(JNIEnv *env, jclass builder, const char *dir) {
    const jmethodID build = findStaticMethod(env, builder, "buildRuntime", "(Ljava/lang/String;)Z");
    const jmethodID getName = findStaticMethod(env, builder, "getRuntimeDirName", "()Ljava/lang/String;");
    if (build != nullptr) {
        const LocalRef<jstring> name(env, newPlatformString(env, dir));
        if (name) {
            env->CallStaticBooleanMethod(builder, build, name.get());
            clearException(env);
        }
    }
    if (getName == nullptr) {
        return nullptr;
    }
    const LocalRef<jobject> name(env, env->CallStaticObjectMethod(builder, getName));
    return clearException(env) || !name ? nullptr : platformCopy(env, static_cast<jstring>(name.get()));
}

} // namespace

// One static method of the Java half that takes up to three strings and answers with "key=value" lines.
class PropertyMgr::LineSource {
public:
    LineSource(JNIEnv *jniEnv, const char *name, const char *signature)
        : env(jniEnv), cls(jniEnv, jniEnv->FindClass(MANAGER_CLASS)) {
        if (!clearException(env)) {
            method = findStaticMethod(env, cls.get(), name, signature);
        }
    }
    bool hasClass() const { return static_cast<bool>(cls); }
    bool hasMethod() const { return method != nullptr; }

    // False after an exception. `*lines` is a local reference for the caller to delete, or null.
    bool call(std::initializer_list<const char *> texts, jobjectArray *lines) const {
        jvalue args[MAX_ARGS] = {};
        int count = 0;
        bool good = true;
        for (const char *text : texts) {
            args[count].l = good ? newPlatformString(env, text) : nullptr;
            good = args[count++].l != nullptr;
        }
        *lines =
            good ? static_cast<jobjectArray>(env->CallStaticObjectMethodA(cls.get(), method, args)) : nullptr;
        good = !clearException(env) && good;
        for (int i = 0; i < count; ++i) {
            env->DeleteLocalRef(args[i].l);
        }
        return good;
    }

private:
    static constexpr int MAX_ARGS = 3;
    JNIEnv *env;
    LocalRef<jclass> cls;
    jmethodID method = nullptr;
};

// `*dir` is a heap string that this function may replace.
void PropertyMgr::askRuntimeBuilder(JNIEnv *env, char **dir) {
    jclass builder = findGlobalClass(env, BUILDER_CLASS);
    if (builder == nullptr) {
        printf("## PropertyMgr::initialize() Could not load RuntimeBuilder Class; "
               "Dynamic Runtime Build will not be attempted\n");
        return;
    }
    const char *given = forJava(env, *dir);
    char *named = buildRuntimeDir(env, builder, given);
    env->DeleteGlobalRef(builder);
    if (named == nullptr) {
        return;
    }
    if (*named != '\0' && strcmp(named, given) != 0) {
        printf("## PropertyMgr::initialize() A RuntimeBuilder helper class has changed the runtime directory "
               "name\n");
        printf("## PropertyMgr::initialize() originally specified parameter=%s, new value used=%s\n", *dir,
               named);
        std::swap(*dir, named);
    }
    free(named);
    facts.runtimeDir = dupString(*dir);
}

// How Java spells a directory. Valid until the next call.
const char *PropertyMgr::forJava(JNIEnv *env, const char *dir) {
    if (*javaDir == '\0' || strncmp(nativeDir, dir, sizeof(nativeDir)) != 0) {
        copyCut(nativeDir, dir);
        pathForJava(env, dir, javaDir, sizeof(javaDir));
    }
    return javaDir;
}

bool PropertyMgr::initialize(JNIEnv *env, const char *propDir) {
    free(facts.runtimeDir);
    facts.runtimeDir = nullptr;
    char *dir = dupString(propDir != nullptr ? propDir : "");
    if (dir == nullptr || !isWhole()) {
        free(dir);
        switchJavaHalfOff(env);
        return false;
    }
    askRuntimeBuilder(env, &dir);
    const bool loaded = loadEnvironmentProperties(env, forJava(env, dir));
    if (loaded) {
        printf("## PropertyMgr::initialize() loaded Environment Variables\n");
        loadJavaProperties(env, dir);
    } else {
        printf("## PropertyMgr::initialize() could not load Environment Variables\n");
    }
    free(dir);
    fflush(stdout);
    if (!loaded) {
        switchJavaHalfOff(env);
        return false;
    }
    setGlobalProperties(env);
    openLgKit({runtimeDir(), toolkitDir(), homeDir(), nodeName(), appServerName(), lgkitCommonDir()});
    traceInfo("PropertyMgr has intialized LgKit");
    messageInfo(1071, "PropertyMgr started");
    loadDataCollectorProperties(env);
    return true;
}

void PropertyMgr::switchJavaHalfOff(JNIEnv *env) {
    printf("## PropertyMgr::initialize() error during initialization\n");
    printf("## PropertyMgr::initialize() NORAK will be disabled\n");
    fflush(stdout);
    setJavaSystemProperty(env, "NORAK_DC_ENABLED", "false");
    bool (*disableToolkit)(JNIEnv *) = disableToolkitHook;
    if (disableToolkit != nullptr) {
        disableToolkit(env);
    }
}

// With no directory known there is no file: the empty name says so to Java, which is asked all the same,
// since without an answer the collector stays off.
bool PropertyMgr::loadEnvironmentProperties(JNIEnv *env, const char *dir) {
    const bool known = *dir != '\0';
    if (snprintf(propFileBuffer, sizeof(propFileBuffer), "%s%s%s", dir, known ? "/" : "",
                 known ? ENVIRONMENT_FILE : "") < 0 ||
        !loadEnvProperties(env, false)) {
        printf("## loadEnvProperties failed.\n");
        return false;
    }
    moveSettingsToEnvironment();
    return true;
}

// The file only serves to fill the environment of the process: nothing of it stays a setting.
void PropertyMgr::moveSettingsToEnvironment() {
    const std::unique_ptr<const char *[]> keys(internalProps->keys());
    for (const char **key = keys.get(); key != nullptr && *key != nullptr; ++key) {
        const char *value = getInternalProp(*key);
        if (value != nullptr) {
            setenv(*key, value, 1);
        }
    }
    freeEntries(internalProps.get());
}

bool PropertyMgr::loadEnvProperties(JNIEnv *env, bool nullValsOK) {
    const LineSource source(env, "getEnvVariables", "(Ljava/lang/String;)[Ljava/lang/String;");
    if (!source.hasMethod()) {
        if (source.hasClass()) {
            printf("## PropertyMgr::initialize() Error getting static method id - getEnvVariables\n");
        }
        return false;
    }
    printf("## PropertyMgr::initialize() Calling  defineEnvMethodId.......\n");
    const bool answered = loadLines(env, source, {propFileBuffer}, nullValsOK);
    if (!answered) {
        printf("## PropertyMgr::initialize() Error calling static method - getEnvVariables\n");
    }
    return answered;
}

bool PropertyMgr::loadJavaProperties(JNIEnv *env, const char *dir) {
    copyCut(propFileBuffer, dir);
    return loadProperties(env, true);
}

// With no runtime directory there are no files, and the defaults apply.
bool PropertyMgr::loadDataCollectorProperties(JNIEnv *env) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MIN, "PropertyMgr::loadDataCollectorProperties( JNIEnv * env )");
    if (facts.runtimeDir == nullptr) {
        return true;
    }
    copyCut(propFileBuffer, forJava(env, facts.runtimeDir));
    return loadProperties(env, COLLECTOR_MASK, "ZYK", false);
}

bool PropertyMgr::loadProperties(JNIEnv *env, bool nullValsOK) {
    const LineSource source(env, "defineSysProps", "(Ljava/lang/String;)[Ljava/lang/String;");
    return loadLines(env, source, {propFileBuffer}, nullValsOK);
}

bool PropertyMgr::loadProperties(JNIEnv *env, const char *mask, const char *mgrName, bool nullValsOK) {
    const LineSource source(env, "defineProps",
                            "(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;)[Ljava/lang/String;");
    return loadLines(env, source, {propFileBuffer, mask, mgrName}, nullValsOK);
}

bool PropertyMgr::loadLines(JNIEnv *env, const LineSource &source,
                            std::initializer_list<const char *> arguments, bool nullValsOK) {
    jobjectArray lines = nullptr;
    if (!source.hasMethod() || !source.call(arguments, &lines)) {
        return false;
    }
    parsePropsFromJavaArray(env, lines, nullValsOK);
    return true;
}

// Takes over the local reference; null is an empty array.
void PropertyMgr::parsePropsFromJavaArray(JNIEnv *env, jobjectArray array, bool nullValsOK) {
    const LocalRef<jobjectArray> lines(env, array);
    const jsize count = lines ? env->GetArrayLength(array) : 0;
    for (jsize i = 0; i < count; ++i) {
        const LocalRef<jobject> line(env, env->GetObjectArrayElement(array, i));
        if (clearException(env)) {
            return;
        }
        char *text = platformCopy(env, static_cast<jstring>(line.get()));
        parseProperty(strtrim(text), nullValsOK);
        free(text);
    }
}
