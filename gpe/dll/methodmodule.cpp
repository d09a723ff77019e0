#include "methodmodule.h"

#include "EventAssembly.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "class.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

using namespace assembly;

namespace {

// More than any packet holds: a class that takes more could never be told of.
constexpr int64_t MOST_CLASS_BYTES = 8 * 1024 * 1024;

// What a class and its methods hold, so that the memory governor sees it.
int64_t bytesOf(const jmethod_t &method) {
    const auto length = [](const char *text) { return text != nullptr ? strlen(text) : 0; };
    return static_cast<int64_t>(sizeof(method) + length(method.name) + length(method.signature));
}

char *textOf(JNIEnv *env, jstring text) {
    return jniStringCopyLimited(env, text, WIRE_TEXT_LIMIT, CutAt::Character, nullptr);
}

char *elementOf(JNIEnv *env, jobjectArray texts, jsize index) {
    const LocalRef<jobject> element(env, env->GetObjectArrayElement(texts, index));
    return clearException(env) ? nullptr : textOf(env, static_cast<jstring>(element.get()));
}

jsize lengthOf(JNIEnv *env, jarray array) {
    return array != nullptr ? env->GetArrayLength(array) : 0;
}

bool isComplete(JNIEnv *env, const ClassTexts &texts) {
    if (texts.name == nullptr || texts.ids == nullptr || texts.names == nullptr ||
        texts.signatures == nullptr) {
        return false;
    }
    const jsize count = lengthOf(env, texts.ids);
    return lengthOf(env, texts.names) == count && lengthOf(env, texts.signatures) == count;
}

// A class that is being filled, let go of unless it is passed on.
class Described {
public:
    Described(JNIEnv *jniEnv, const ClassTexts &texts) : env(jniEnv), cls(new (std::nothrow) jclass_t()) {
        if (cls != nullptr && !fill(texts)) {
            jclass_t::release(cls);
            cls = nullptr;
        }
    }
    ~Described() { jclass_t::release(cls); }
    Described(const Described &) = delete;
    Described &operator=(const Described &) = delete;

    explicit operator bool() const { return cls != nullptr; }
    jclass_t *operator->() const { return cls; }
    jclass_t *pass() { return std::exchange(cls, nullptr); }
    int64_t bytes() const { return held; }

private:
    bool fill(const ClassTexts &texts) {
        const jsize count = lengthOf(env, texts.ids);
        if (count > static_cast<jsize>(MOST_CLASS_BYTES / sizeof(jmethod_t))) {
            return false;
        }
        cls->name = textOf(env, texts.name);
        cls->methods = new (std::nothrow) jmethod_t[static_cast<size_t>(count)];
        if (cls->name == nullptr || cls->methods == nullptr) {
            return false;
        }
        cls->methodCount = count;
        return fillIds(texts.ids) && fillTexts(texts);
    }

    bool fillIds(jintArray ids) {
        jint *values = env->GetIntArrayElements(ids, nullptr);
        if (values == nullptr) {
            clearException(env);
            return false;
        }
        for (int32_t i = 0; i < cls->methodCount; ++i) {
            cls->methods[i].id = static_cast<uint32_t>(values[i]);
            cls->methods[i].cls = cls;
            cls->methods[i].state = 0;
        }
        env->ReleaseIntArrayElements(ids, values, JNI_ABORT);
        return true;
    }

    bool fillTexts(const ClassTexts &texts) {
        for (int32_t i = 0; i < cls->methodCount; ++i) {
            jmethod_t &method = cls->methods[i];
            if (texts.names != nullptr) {
                method.name = elementOf(env, texts.names, i);
                method.signature = elementOf(env, texts.signatures, i);
            }
            held += bytesOf(method);
            if (held > MOST_CLASS_BYTES) {
                return false;
            }
        }
        return true;
    }

    JNIEnv *env;
    jclass_t *cls;
    int64_t held = 0;
};

// Of the calling thread, which has data; the event holds the class from now on. Classes are not refused by
// the length of a queue, so the memory limit must stop them.
bool appendClassEvent(JNIEnv *env, Event::EventSubType subType, jclass_t *cls, int64_t bytes) {
    ThreadData *td = probeDisabled || notAccepting ? nullptr : callingThread(env);
    ThreadDraft<ClassEvent> draft(td, subType);
    draft->classRecord = cls;
    addUnweighed(*draft, bytes);
    return td != nullptr && td->appendEvent(&draft);
}

} // namespace

// ---------------------------------------------------------------- methods

bool appendMethodEvent(JNIEnv *env, Event::EventSubType subType, jint methodId) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MAX, "appendL3Event( jboolean isExit, jint methodId )");
    ThreadData *td = callingThread(env);
    ThreadDraft<MethodEvent> draft(td, subType);
    draft->methodId = methodId;
    takeClocks(*draft, td, clocksOf(subType));
    if (td != nullptr || subType == Event::SUB_START) {
        appendRequestEvent(env, td, draft);
    }
    return td != nullptr;
}

bool appendPendingEntry(JNIEnv *env, jint methodId, jlong cpuTime, jint timeSec, jint timeUSec) {
    ThreadData *td = callingThread(env);
    if (td == nullptr) {
        return false;
    }
    ThreadDraft<MethodEvent> draft(td, Event::SUB_START);
    draft->methodId = methodId;
    draft->cpuTime = cpuTime;
    draft->timeSec = static_cast<uint32_t>(timeSec);
    draft->timeUSec = static_cast<uint32_t>(timeUSec);
    appendRequestEvent(env, td, draft);
    return true;
}

// ---------------------------------------------------------------- classes

void registerClass(JNIEnv *env, const ClassTexts &texts) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, "initializeClass( JNIEnv *env, jstring className )");
    if (!isComplete(env, texts)) {
        return;
    }
    Described described(env, texts);
    if (!described) {
        return;
    }
    described->sequence = getNextClassSequence();
    described->filtered = isClassFiltered(described->name);
    const int64_t bytes = described.bytes();
    jclass_t *cls = described.pass();
    cls->hold(); // for its event; the tables hold it too, and may let go of it at once
    cls->doRegister();
    appendClassEvent(env, Event::SUB_CLASS_LOAD, cls, bytes);
}

void unloadRegisteredClass(JNIEnv *env, jstring name) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, "unloadClass( JNIEnv *env, jstring className )");
    char *text = name != nullptr ? textOf(env, name) : nullptr;
    if (jclass_t *cls = takeClassForUnload(text)) {
        appendClassEvent(env, Event::SUB_CLASS_UNLOAD, cls, 0);
    }
    free(text);
}

bool sendClassEvent(JNIEnv *env, Event::EventSubType subType, jint sequence, const ClassTexts &texts) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, "sendClassEventNative( jint sequence, jstring className )");
    const bool loads = subType == Event::SUB_CLASS_LOAD;
    if (loads ? !isComplete(env, texts) : texts.name == nullptr || texts.ids == nullptr) {
        return false;
    }
    Described described(env, texts);
    if (!described) {
        return false;
    }
    described->sequence = static_cast<uint32_t>(sequence);
    described->id = loads ? 0 : static_cast<uint32_t>(sequence);
    described->deleteWithEvent = 1;
    const int64_t bytes = described.bytes();
    return appendClassEvent(env, subType, described.pass(), bytes);
}
