#include "InstrumentJNI.h"

#include "JVMTIUtils.h"
#include "ProbeLgKit.h"
#include "Relaxed.h"
#include "class.h"
#include "jnihelp.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

// Set once; the method last, for those that load classes meanwhile.
Relaxed<jclass> instrumentClass;
jmethodID instrumentFromJVMPI = nullptr; // found but not called
std::atomic<jmethodID> instrumentFromJVMTI{nullptr};

Relaxed<int> instrumenting{0}; // one for all threads: it only tells
Relaxed<int> classesSeen{0};   // about how many

} // namespace

void notifyJVMInitDone(const JVMPI_Event *event) {
    constexpr char signature[] = "notifyJVMInitDone( JVMPI_Event *event )";
    JNIEnv *env = event->env_id;
    instrumentClass = env != nullptr ? findGlobalClass(env, BOOTSTRAP_CLASS) : nullptr;
    if (instrumentClass == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MIN, signature,
                 "InstrumentJNI: notifyJVMInitDone has been processed, BcmBootstrap class has **NOT** been "
                 "loaded");
        return;
    }
    instrumentFromJVMPI =
        findStaticMethod(env, instrumentClass, "instrumentClassFromJVMPI", "([BLjava/lang/String;)[B");
    instrumentFromJVMTI.store(findStaticMethod(env, instrumentClass, "instrumentClassFromJVMTI",
                                               "([BLjava/lang/String;Ljava/lang/ClassLoader;)[B"),
                              std::memory_order_release);
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, signature,
             "InstrumentJNI: notifyJVMInitDone has been processed, BcmBootstrap class has been loaded");
}

// ---------------------------------------------------------------- which classes

namespace {

constexpr char SAMPLE[] = "com.qel.morvex.norak.demo"; // instrumented, in spite of the first list
constexpr const char *EXCLUDED[] = {"java.",
                                    "sun",
                                    "com.zykora",
                                    "org.aspectj",
                                    "org.objectweb.asm",
                                    "com.qel.morvex.norak",
                                    "com.qel.log.mgr",
                                    "com.qel.log.cmd",
                                    "com.qel.jflt",
                                    "com.rsa.jsafe",
                                    "jrockit",
                                    "com.bea.jvm"};
constexpr const char *ALWAYS_EXCLUDED[] = {"com.qel.jvm", "com.qel.misc", "com.qel.oti", "com.qel.io",
                                           "com.qel.security.bootstrap"};

bool startsWith(const char *name, const char *prefix) {
    for (; *prefix != '\0'; ++prefix, ++name) {
        if ((*name == '/' ? '.' : *name) != *prefix) {
            return false;
        }
    }
    return true;
}

template <size_t N>
bool startsWithAny(const char *name, const char *const (&prefixes)[N]) {
    return std::any_of(std::begin(prefixes), std::end(prefixes),
                       [=](const char *prefix) { return startsWith(name, prefix); });
}

} // namespace

bool classIsExcluded(const char *class_name) {
    return startsWithAny(class_name, ALWAYS_EXCLUDED) ||
           (startsWithAny(class_name, EXCLUDED) && !startsWith(class_name, SAMPLE));
}

// ---------------------------------------------------------------- the hook

namespace {

constexpr unsigned char CLASS_FILE[] = {0xCA, 0xFE, 0xBA, 0xBE};

// What Java makes of the class, null to keep it. Each step goes on after an exception of the one before.
jbyteArray notifyClassLoadHookJVMTIEvent_do(JNIEnv *env, const char *name, jint len,
                                            const unsigned char *data, jobject loader) {
    const jmethodID method = instrumentFromJVMTI.load(std::memory_order_acquire);
    if (method == nullptr) {
        return nullptr;
    }
    const LocalRef<jbyteArray> bytes(env, env->NewByteArray(len));
    if (clearException(env) || !bytes) {
        return nullptr;
    }
    env->SetByteArrayRegion(bytes.get(), 0, len, reinterpret_cast<const jbyte *>(data));
    const LocalRef<jstring> text(env, env->NewStringUTF(name));
    if (clearException(env)) {
        return nullptr;
    }
    jobject made = env->CallStaticObjectMethod(instrumentClass, method, bytes.get(), text.get(), loader);
    return clearException(env) ? nullptr : static_cast<jbyteArray>(made);
}

// The class stays as it is if there is no memory, and for bytes that are no class.
void takeBytes(JNIEnv *env, jbyteArray made, jint *new_class_data_len, unsigned char **new_class_data) {
    const jsize length = env->GetArrayLength(made);
    unsigned char head[sizeof(CLASS_FILE)];
    if (length < static_cast<jsize>(sizeof(head))) {
        return;
    }
    env->GetByteArrayRegion(made, 0, sizeof(head), reinterpret_cast<jbyte *>(head));
    if (memcmp(head, CLASS_FILE, sizeof(head)) != 0) {
        return;
    }
    unsigned char *place = nullptr;
    AllocateJVMTIMemory(length, &place);
    if (place == nullptr) {
        return;
    }
    env->GetByteArrayRegion(made, 0, length, reinterpret_cast<jbyte *>(place));
    *new_class_data_len = length;
    *new_class_data = place;
}

} // namespace

void notifyClassLoadHookJVMTIEvent(JNIEnv *env, jobject loader, const char *name, jint class_data_len,
                                   const unsigned char *class_data, jint *new_class_data_len,
                                   unsigned char **new_class_data) {
    if (instrumenting != 0) {
        AM_TRACE(ccTracer, LGK_DEBUG_MAX, "notifyClassLoadHookJVMTIEvent()",
                 "Recursive load for same class; aborting instrumentation");
    }
    if (env == nullptr || name == nullptr || class_data == nullptr) {
        return;
    }
    classesSeen += 1;
    if (classIsExcluded(name)) {
        return;
    }
    char *dotted = slashToDot(strdup(name));
    if (dotted == nullptr) {
        return;
    }
    instrumenting = 1;
    const LocalRef<jbyteArray> made(
        env, notifyClassLoadHookJVMTIEvent_do(env, dotted, class_data_len, class_data, loader));
    instrumenting = 0;
    if (made) {
        takeBytes(env, made.get(), new_class_data_len, new_class_data);
    }
    free(dotted);
}
