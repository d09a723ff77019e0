#include "jnihelp.h"

#include "PlatformText.h"
#include "ProbeState.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int32_t STACK_TEXT = 1024;
constexpr int SYSTEM_CLASS_TRIES = 11;
constexpr char SYSTEM_CLASS[] = "java/lang/System";
constexpr char CC_TOOLS_CLASS[] = "com/qel/morvex/norak/toolkit/ai/bcm/utility/CcTools";

char *emptyCopy() {
    return static_cast<char *>(calloc(1, 1));
}

char *heapText(const char *bytes, int32_t size) {
    char *copy = static_cast<char *>(malloc(static_cast<size_t>(size)));
    if (copy != nullptr) {
        memcpy(copy, bytes, static_cast<size_t>(size) - 1);
        copy[size - 1] = '\0';
    }
    return copy;
}

// Scratch space that is on the stack for the usual short text.
class Scratch {
public:
    explicit Scratch(size_t size)
        : bytes(size <= sizeof(small) ? small : static_cast<char *>(malloc(size))) {}
    ~Scratch() {
        if (bytes != small) {
            free(bytes);
        }
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    char *get() const { return bytes; }

private:
    alignas(jchar) char small[STACK_TEXT];
    char *bytes;
};

} // namespace

JNIEnv *ownEnv() {
    void *env = nullptr;
    return realJvm != nullptr && realJvm->GetEnv(&env, JNI_VERSION_1_6) == JNI_OK ? static_cast<JNIEnv *>(env)
                                                                                  : nullptr;
}

bool clearException(JNIEnv *env) {
    if (env->ExceptionCheck() == JNI_FALSE) {
        return false;
    }
    env->ExceptionDescribe();
    env->ExceptionClear();
    return true;
}

char *jniStringCopyLimited(JNIEnv *env, jstring text, int32_t limit, CutAt cut, int32_t *kept) {
    if (text == nullptr) {
        return emptyCopy();
    }
    const jsize chars = charsWithin(env, text, limit);
    const Scratch scratch(utf8Room(chars));
    if (scratch.get() == nullptr) {
        return emptyCopy();
    }
    const int32_t size = utf8Region(env, text, chars, scratch.get(), limit, cut) + 1;
    if (kept != nullptr) {
        *kept = size;
    }
    return heapText(scratch.get(), size);
}

char *jniStringCopy(JNIEnv *env, jstring text) {
    constexpr int32_t NO_LIMIT = INT32_MAX / 8;
    return jniStringCopyLimited(env, text, NO_LIMIT, CutAt::AnyByte, nullptr);
}

void jniStringToBuffer(JNIEnv *env, jstring text, char *buffer, size_t room) {
    if (text == nullptr) {
        return;
    }
    char *copy = jniStringCopyLimited(env, text, static_cast<int32_t>(room), CutAt::AnyByte, nullptr);
    if (copy != nullptr) {
        strncpy(buffer, copy, room - 1);
        buffer[room - 1] = '\0';
    }
    free(copy);
}

jstring newPlatformString(JNIEnv *env, const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    const size_t length = strlen(text);
    const Scratch scratch((length + 1) * sizeof(jchar));
    jchar *units = reinterpret_cast<jchar *>(scratch.get());
    jstring made = nullptr;
    if (units != nullptr && length <= INT32_MAX) {
        made = env->NewString(units, static_cast<jsize>(platformToUtf16(text, length, units)));
    }
    return clearException(env) ? nullptr : made;
}

char *platformCopy(JNIEnv *env, jstring text) {
    const jsize count = text != nullptr ? env->GetStringLength(text) : 0;
    const Scratch scratch((static_cast<size_t>(count) + 1) * sizeof(jchar));
    jchar *units = reinterpret_cast<jchar *>(scratch.get());
    char *copy = static_cast<char *>(malloc(static_cast<size_t>(count) * MAX_PLATFORM_BYTES + 1));
    if (units == nullptr || copy == nullptr || count == 0) {
        free(copy);
        return emptyCopy();
    }
    env->GetStringRegion(text, 0, count, units);
    const size_t length = clearException(env) ? 0 : utf16ToPlatform(units, static_cast<size_t>(count), copy);
    copy[length] = '\0';
    return copy;
}

jclass findGlobalClass(JNIEnv *env, const char *name) {
    const LocalRef<jclass> local(env, env->FindClass(name));
    if (clearException(env) || !local) {
        return nullptr;
    }
    return static_cast<jclass>(env->NewGlobalRef(local.get()));
}

jmethodID findStaticMethod(JNIEnv *env, jclass cls, const char *name, const char *signature) {
    if (cls == nullptr) {
        return nullptr;
    }
    const jmethodID method = env->GetStaticMethodID(cls, name, signature);
    return clearException(env) ? nullptr : method;
}

namespace {

template <typename... Args>
bool callStaticVoidMethod(JNIEnv *env, const char *className, const char *name, const char *signature,
                          Args... args) {
    if (env == nullptr) {
        return false;
    }
    const LocalRef<jclass> cls(env, env->FindClass(className));
    if (clearException(env)) {
        return false;
    }
    const jmethodID method = findStaticMethod(env, cls.get(), name, signature);
    if (method == nullptr) {
        return false;
    }
    env->CallStaticVoidMethod(cls.get(), method, args...);
    return !clearException(env);
}

} // namespace

bool callStaticVoidInt(JNIEnv *env, const char *className, const char *name, jint value) {
    return callStaticVoidMethod(env, className, name, "(I)V", value);
}

bool callStaticVoid(JNIEnv *env, const char *className, const char *name) {
    return callStaticVoidMethod(env, className, name, "()V");
}

jobjectArray newStringArray(JNIEnv *env, char *const *texts, int count) {
    const LocalRef<jclass> stringClass(env, env->FindClass("java/lang/String"));
    if (clearException(env) || !stringClass) {
        return nullptr;
    }
    jobjectArray array = env->NewObjectArray(count, stringClass.get(), nullptr);
    if (clearException(env) || array == nullptr) {
        return nullptr;
    }
    for (int i = 0; i < count; ++i) {
        const LocalRef<jstring> text(env, newPlatformString(env, texts[i]));
        if (text) {
            env->SetObjectArrayElement(array, i, text.get());
        }
        if (clearException(env) || !text) {
            break;
        }
    }
    return array;
}

// ---------------------------------------------------------------- system properties

namespace {

// Found on first use, on the VM init thread, and kept for the process's life.
struct PropertyAccess {
    bool ccToolsTried = false;
    jclass ccTools = nullptr;
    jmethodID getPropertyBytes = nullptr;
    jclass system = nullptr;
    jmethodID getProperty = nullptr;
    jmethodID setProperty = nullptr;
};
PropertyAccess access;

void findCcTools(JNIEnv *env) {
    if (access.ccToolsTried) {
        return;
    }
    access.ccToolsTried = true;
    access.ccTools = findGlobalClass(env, CC_TOOLS_CLASS);
    access.getPropertyBytes =
        findStaticMethod(env, access.ccTools, "getPropertyBytes", "(Ljava/lang/String;)[B");
    if (access.getPropertyBytes == nullptr && initDebug) {
        printf("## Utils::getJavaSystemProperty could not find %s.getPropertyBytes\n", CC_TOOLS_CLASS);
    }
}

void findSystemClass(JNIEnv *env) {
    for (int i = 0; i < SYSTEM_CLASS_TRIES && access.system == nullptr; ++i) {
        access.system = findGlobalClass(env, SYSTEM_CLASS);
        if (access.system == nullptr && initDebug) {
            printf("## Utils::findClassGlobalRef(env, JAVA_SYS_CLASS_NAME) failure %d\n", i);
        }
    }
}

void copyBytes(JNIEnv *env, jbyteArray bytes, char *value, size_t maxValue) {
    const jsize length = std::min<jsize>(env->GetArrayLength(bytes), static_cast<jsize>(maxValue - 1));
    env->GetByteArrayRegion(bytes, 0, length, reinterpret_cast<jbyte *>(value));
    value[clearException(env) ? 0 : length] = '\0';
}

// The property's bytes as the Java side encodes them: they do not pass through the JVM's own encoding.
void readPropertyBytes(JNIEnv *env, jstring name, char *value, size_t maxValue) {
    const LocalRef<jobject> bytes(env,
                                  env->CallStaticObjectMethod(access.ccTools, access.getPropertyBytes, name));
    if (!clearException(env) && bytes) {
        copyBytes(env, static_cast<jbyteArray>(bytes.get()), value, maxValue);
    }
}

void readPropertyText(JNIEnv *env, jstring name, char *value, size_t maxValue) {
    findSystemClass(env);
    if (access.getProperty == nullptr) {
        access.getProperty =
            findStaticMethod(env, access.system, "getProperty", "(Ljava/lang/String;)Ljava/lang/String;");
    }
    if (access.getProperty == nullptr) {
        return;
    }
    const LocalRef<jobject> text(env, env->CallStaticObjectMethod(access.system, access.getProperty, name));
    char *copy = clearException(env) ? nullptr : platformCopy(env, static_cast<jstring>(text.get()));
    if (copy != nullptr) {
        snprintf(value, maxValue, "%s", copy);
    }
    free(copy);
}

} // namespace

void getJavaSystemProperty(JNIEnv *env, const char *name, char *value, size_t maxValue) {
    *value = '\0';
    findCcTools(env);
    const LocalRef<jstring> key(env, newPlatformString(env, name));
    if (!key) {
        return;
    }
    if (access.getPropertyBytes != nullptr) {
        readPropertyBytes(env, key.get(), value, maxValue);
    } else {
        readPropertyText(env, key.get(), value, maxValue);
    }
}

void setJavaSystemProperty(JNIEnv *env, const char *name, const char *value) {
    findSystemClass(env);
    if (access.setProperty == nullptr) {
        access.setProperty = findStaticMethod(env, access.system, "setProperty",
                                              "(Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;");
    }
    if (access.setProperty == nullptr) {
        return;
    }
    const LocalRef<jstring> key(env, newPlatformString(env, name));
    const LocalRef<jstring> text(env, newPlatformString(env, value));
    if (!key || !text) {
        return;
    }
    const LocalRef<jobject> old(
        env, env->CallStaticObjectMethod(access.system, access.setProperty, key.get(), text.get()));
    clearException(env);
}

int getFullAppServerName(char *buffer, size_t bufLength, JNIEnv *env) {
    const LocalRef<jclass> cls(env, env->FindClass(PROBE_SYSTEM_CLASS));
    if (clearException(env)) {
        return 1;
    }
    const jmethodID method = findStaticMethod(env, cls.get(), "getAppServerName", "()Ljava/lang/String;");
    if (method == nullptr) {
        return 1;
    }
    const LocalRef<jobject> name(env, env->CallStaticObjectMethod(cls.get(), method));
    if (clearException(env)) {
        return 1;
    }
    jniStringToBuffer(env, static_cast<jstring>(name.get()), buffer, bufLength);
    return 0;
}
