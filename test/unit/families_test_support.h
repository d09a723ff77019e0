// What the tests of the request families share: the agent's managers around a real JVM without a pump, the
// natives bound to their Java declarations, words run on Java threads of their own, and what these queued as
// the receiver's decoder reads it.
#pragma once

#include "EventUtils.h"
#include "EvtAgentMgr.h"
#include "MemoryMonitor.h"
#include "ProbeState.h"
#include "ProtocolVisitor.h"
#include "RealJvm.h"
#include "ThreadData.h"
#include "ThreadMgr.h"
#include "decoder/RecordReader.h"
#include "jnihelp.h"

#include <gmock/gmock.h>

#include <dlfcn.h>
#include <string>
#include <vector>

namespace families_test {

constexpr char NATIVE_EVENT_AGENT[] = "com/qel/morvex/norak/dc/eventagent/NativeEventAgentImpl";

// One record as it would go out.
struct Seen {
    std::string
        text; // fields in the order of the wire: "SQLEvent.begin d1 L2 dataSourceName=ds sql=select 1"
    std::string shape; // the same with # in place of depth and level
    int depth;         // the byte, signed
    uint32_t threadId; // as the event has it, as the next two
    int64_t cpuTime;
    int64_t wallMillis;
    int weight;
};

// ---------------------------------------------------------------- decoding

inline std::string renderStrs(std::string_view raw) {
    std::string text;
    for (size_t at = 0; at < raw.size();) {
        const size_t length = ps::bigEndian(raw.data() + at, 2);
        text += (at == 0 ? "" : "|") + std::string(raw.substr(at + 2, length));
        at += 2 + length;
    }
    return "[" + text + "]";
}

inline std::string renderEntries(std::string_view raw) {
    std::string text;
    for (size_t at = 0; at < raw.size(); at += ps::kEntryBytes) {
        text += "(" + std::to_string(ps::bigEndian(raw.data() + at, 1)) + "," +
                std::to_string(ps::bigEndian(raw.data() + at + 1, 4)) + "," +
                std::to_string(ps::bigEndian(raw.data() + at + 5, 8)) + ")";
    }
    return text;
}

inline std::string renderNumbers(std::string_view raw, size_t width) {
    std::string text;
    for (size_t at = 0; at < raw.size(); at += width) {
        text += (at == 0 ? "" : ",") + std::to_string(ps::bigEndian(raw.data() + at, width));
    }
    return text;
}

inline std::string renderHex(std::string_view raw) {
    std::string text;
    char digits[3];
    for (const char byte : raw) {
        snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

inline std::string renderValue(const ps::Field &field, const ps::Value &value) {
    switch (field.kind) {
    case ps::Kind::Number:
        return std::to_string(value.number);
    case ps::Kind::Numbers:
        return renderNumbers(value.text, field.width);
    case ps::Kind::Blob:
        return renderHex(value.text);
    case ps::Kind::Strs:
        return renderStrs(value.text);
    case ps::Kind::Entries:
        return renderEntries(value.text);
    default:
        return std::string(value.text);
    }
}

inline std::string render(const ps::Record &record, const std::string &depth, const std::string &level) {
    std::string text = record.spec->name;
    for (size_t i = 0; i < record.spec->fieldCount; ++i) {
        const ps::Field &field = record.spec->fields[i];
        switch (field.kind) {
        case ps::Kind::Prefix:
            text += " d" + depth;
            break;
        case ps::Kind::Level:
            text += " L" + level;
            break;
        case ps::Kind::ThreadId:
        case ps::Kind::Time:
        case ps::Kind::Size:
        case ps::Kind::SizeEnd:
            break;
        default:
            text += std::string(" ") + field.name + "=" + renderValue(field, record.values[i]);
        }
    }
    return text;
}

// The event's record, read strictly and to its last byte.
inline Seen decoded(Event &event) {
    static thread_local std::vector<char> area(1 << 20);
    ProtocolVisitor visitor(area.data(), area.data(), area.data() + area.size(), nullptr);
    EXPECT_TRUE(event.addToBuffer(&visitor));
    const auto length = static_cast<size_t>(visitor.getCursor() - area.data());
    ps::RecordReader reader(area.data(), area.data() + length, area.size());
    ps::Record record;
    uint64_t type = 0;
    reader.readType(1, type);
    record.spec = ps::findSpec(static_cast<uint8_t>(type));
    const bool readable = record.spec != nullptr && reader.readFields(record) && reader.consumed() == length;
    EXPECT_TRUE(readable) << "record " << type << " of event type " << event.type;
    if (!readable) {
        return {"unreadable", "unreadable", 0, 0, 0, 0, 0};
    }
    const int depth = static_cast<int8_t>(record.depth);
    return {render(record, std::to_string(depth), std::to_string(record.level)),
            render(record, "#", "#"),
            depth,
            event.threadId,
            event.cpuTime,
            event.timeSec * int64_t{1000} + event.timeUSec / 1000,
            event.size};
}

inline std::vector<Seen> drain(ThreadData *td) {
    std::vector<Seen> seen;
    while (Event *event = td != nullptr ? td->eventQueue->removeFirst() : nullptr) {
        seen.push_back(decoded(*event));
        delete event;
    }
    return seen;
}

inline std::vector<std::string> textsOf(const std::vector<Seen> &seen) {
    std::vector<std::string> texts;
    for (const Seen &each : seen) {
        texts.push_back(each.text);
    }
    return texts;
}

// ---------------------------------------------------------------- Java

// Binds every native of a class whose symbol is in this process, as the JVM does with an agent's library.
inline void bindNatives(JNIEnv *env, const char *className) {
    const LocalRef<jclass> cls(env, env->FindClass(className));
    const LocalRef<jclass> helper(env, env->FindClass("am/test/families/Natives"));
    ASSERT_TRUE(cls && helper);
    const jmethodID of = env->GetStaticMethodID(helper.get(), "of", "(Ljava/lang/Class;)[Ljava/lang/String;");
    const LocalRef<jobject> list(env, env->CallStaticObjectMethod(helper.get(), of, cls.get()));
    ASSERT_FALSE(clearException(env));
    const auto texts = static_cast<jobjectArray>(list.get());
    const auto textAt = [&](jsize index) {
        const LocalRef<jobject> text(env, env->GetObjectArrayElement(texts, index));
        return jniStringCopy(env, static_cast<jstring>(text.get()));
    };
    for (jsize i = 0; i + 2 < env->GetArrayLength(texts); i += 3) {
        char *name = textAt(i);
        char *signature = textAt(i + 1);
        char *symbol = textAt(i + 2);
        const JNINativeMethod method{name, signature, dlsym(RTLD_DEFAULT, symbol)};
        EXPECT_NE(method.fnPtr, nullptr) << symbol;
        if (method.fnPtr != nullptr) {
            env->RegisterNatives(cls.get(), &method, 1);
        }
        freeAll(name, signature, symbol);
    }
}

inline void bindAllNatives(JNIEnv *env) {
    static bool done = false;
    if (!done) {
        done = true;
        for (const char *cls :
             {NATIVE_EVENT_AGENT, "com/zykora/jdbc/ZykoraStatement", "oracle/jdbc/driver/OracleStatement"}) {
            bindNatives(env, cls);
        }
    }
}

// The test's own Java thread while it lasts.
class Worker {
public:
    explicit Worker(JNIEnv *own) : env(own) {}
    // As the thread's end in a running agent.
    ~Worker() {
        ThreadData *td = threadMgr->findThreadData(env);
        if (td != nullptr) {
            td->resetOnThreadEnd();
            threadMgr->deleteThreadData(td);
        }
    }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    void run(const std::string &words) {
        const LocalRef<jstring> text(env, env->NewStringUTF(words.c_str()));
        callStatic("am/test/families/Script", "run", "(Ljava/lang/String;)V", text.get());
    }
    template <typename... Args>
    void callStatic(const char *className, const char *name, const char *signature, Args... args) {
        const LocalRef<jclass> cls(env, env->FindClass(className));
        env->CallStaticVoidMethod(cls.get(), env->GetStaticMethodID(cls.get(), name, signature), args...);
        EXPECT_FALSE(clearException(env)) << name;
    }
    jint callInt(const char *name) {
        const LocalRef<jclass> cls(env, env->FindClass(NATIVE_EVENT_AGENT));
        const jint answer =
            env->CallStaticIntMethod(cls.get(), env->GetStaticMethodID(cls.get(), name, "()I"));
        EXPECT_FALSE(clearException(env)) << name;
        return answer;
    }
    std::vector<Seen> take() { return drain(threadMgr->findThreadData(env)); }
    ThreadData *data() { return threadMgr->getThreadData(env); }

    JNIEnv *const env;
};

// Takes threads and leaves their queues to the test.
class IdleTaker : public ThreadTaker {
public:
    bool canTakeThreads() override { return true; }
    bool manageThreadData(ThreadData *) override { return true; }
};

class FamiliesTest : public testing::Test {
protected:
    FamiliesTest() {
        bindAllNatives(RealJvm::env());
        ThreadMgr::create();
        ThreadMgr::setThreadTaker(&taker);
        threadMgr->start();
        MemoryMonitor::create();
        memoryMonitor->start();
        probeDisabled = false;
        configure(2, false);
    }
    ~FamiliesTest() override {
        probeDisabled = true;
        configure(oldLevel, false);
        setEntryExitNotification(false);
        setListenerCount(0);
        if (memoryMonitor != nullptr) {
            memoryMonitor->start(); // limits and averages as at first
            MemoryMonitor::destroy();
        }
        delete evtAgentMgr.get();
        ThreadMgr::setThreadTaker(nullptr);
        threadMgr->stop();
    }

    static void configure(uint32_t level, bool suppressNested) {
        probeLevel = level;
        disableNestedRequests = suppressNested;
    }

    // `body(worker)` on a new Java thread.
    template <typename Body>
    static void onThread(Body body) {
        RealJvm::onJavaThread([&](JNIEnv *env) {
            Worker worker(env);
            body(worker);
        });
    }

    const uint32_t oldLevel = probeLevel;
    RealVmSkin skin;
    IdleTaker taker;
};

} // namespace families_test
