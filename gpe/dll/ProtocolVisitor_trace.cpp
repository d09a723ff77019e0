// The record trace: each finished record is shown to Java while the trace is on.
#include "ProtocolVisitor.h"

#include "PlainLock.h"
#include "jnihelp.h"

#include <mutex>

Relaxed<bool> ProtocolVisitor::recordTrace{false};

namespace {

// Found by the first switching of the trace and kept for the process's life. The class is set first.
Relaxed<jclass> listenerClass;
Relaxed<jmethodID> writeTraceEntry;
PlainLock listenerLock; // held while they are looked for

void findListener(JNIEnv *env, jclass cls) {
    if (listenerClass == nullptr) {
        listenerClass = static_cast<jclass>(env->NewGlobalRef(cls));
    }
    writeTraceEntry = findStaticMethod(env, listenerClass, "writeTraceEntry", "(BIB[B)V");
}

jbyteArray newByteArray(JNIEnv *env, const char *bytes, jsize count) {
    jbyteArray array = env->NewByteArray(count);
    if (clearException(env) || array == nullptr) {
        return nullptr;
    }
    env->SetByteArrayRegion(array, 0, count, reinterpret_cast<const jbyte *>(bytes));
    return array;
}

} // namespace

void ProtocolVisitor::traceRecord(const Record &record) {
    const jclass cls = listenerClass;
    const jmethodID method = writeTraceEntry;
    if (env == nullptr || cls == nullptr || method == nullptr || overflow) {
        return;
    }
    if (env->PushLocalFrame(1) != JNI_OK) {
        clearException(env);
        return;
    }
    jbyteArray bytes = newByteArray(env, record.first, static_cast<jsize>(cursor - record.first));
    if (bytes != nullptr) {
        env->CallStaticVoidMethod(cls, method, static_cast<jbyte>(record.type),
                                  static_cast<jint>(record.threadId), static_cast<jbyte>(record.depth),
                                  bytes);
        clearException(env);
    }
    env->PopLocalFrame(nullptr);
}

void ProtocolVisitor::switchRecordTrace(JNIEnv *env, jclass cls, bool on) {
    {
        const std::lock_guard<PlainLock> guard(listenerLock);
        if (writeTraceEntry == nullptr) {
            findListener(env, cls);
        }
    }
    setRecordTrace(on);
}
