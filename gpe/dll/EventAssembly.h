// The rules by which a native call becomes an event, each written once; the families of EventUtils are built
// from them. Everything runs on the application's thread and touches only that thread's counters.
// A rule that finds no `ThreadData` lets the event be built without one: the append then tries once more.
#pragma once

#include "Event.h"
#include "EventUtils.h"
#include "MemoryMonitor.h"
#include "ThreadData.h"
#include "jnihelp.h"

#include <cstdint>
#include <jni.h>

namespace assembly {

// When a begin and its end are recorded.
enum class Rule {
    Nested, // inside a request only, and not when nested requests are suppressed
    Plain,  // inside a request only
    Any     // everywhere, but not when nested requests are suppressed
};

// The calling thread's data; null if it has none.
ThreadData *callingThread(JNIEnv *env);

// At level 1 an inner call of a request is not reported if the switch says so. Both count such calls and are
// true for one that is to be passed over.
bool suppressBegin(ThreadData *td);
bool suppressEnd(ThreadData *td);

// Counts a begin; false if it is not recorded.
bool enter(ThreadData *td, Rule rule);
// False if an end is not recorded. If it is, `leave` closes the level once the event has been built.
bool mayEnd(ThreadData *td, Rule rule);
void leave(ThreadData *td);

enum class Clocks { WallFirst, CpuFirst };

// A start takes the wall clock first and an end the CPU clock first, so that the measuring itself falls
// outside the interval.
inline Clocks clocksOf(Event::EventSubType subType) {
    return subType == Event::SUB_START ? Clocks::WallFirst : Clocks::CpuFirst;
}
void takeClocks(Event &event, ThreadData *td, Clocks order);
// The calling thread's CPU time in nanoseconds, never running backwards; 0 without a JVM interface.
int64_t threadCpuTime(ThreadData *td);

// A longer text (bytes, the NUL included) could not be read back: its length has 16 bits on the wire.
constexpr int32_t WIRE_TEXT_LIMIT = 65535 + 1;
// A copy of a text as far as the wire can carry it.
char *textCopy(JNIEnv *env, jstring text);

// Copies the strings of an event and adds up the weight of those that count.
class Texts {
public:
    explicit Texts(JNIEnv *jniEnv) : env(jniEnv) {}
    void copy(char *&target, jstring text) { target = textCopy(env, text); }
    void weigh(char *&target, jstring text);
    int64_t weight() const { return bytes; }
    void cutTo16Bits() { bytes = static_cast<uint16_t>(bytes); }

private:
    JNIEnv *env;
    int64_t bytes = 0;
};

// The estimate has 16 bits: what is heavier counts as the most they can hold.
void addWeight(Event &event, int64_t bytes);

// A new event with the thread's number, and its depth for classes that carry one.
template <typename E, typename... Args>
E *newThreadEvent(const ThreadData *td, Args... args) {
    E *event = new E(args...);
    if (td != nullptr) {
        event->threadId = td->threadId;
    }
    return event;
}
template <typename E, typename... Args>
E *newEvent(const ThreadData *td, Args... args) {
    E *event = newThreadEvent<E>(td, args...);
    if (td != nullptr) {
        event->requestDepth = td->requestDepth;
    }
    return event;
}

// Clocks, strings, weight, queue: what every begin and end has in common.
template <typename E, typename Fill>
void completeAndAppend(JNIEnv *env, ThreadData *td, E *event, Clocks order, Fill fill) {
    takeClocks(*event, td, order);
    Texts texts(env);
    fill(*event, texts);
    addWeight(*event, texts.weight());
    appendRequestEvent(env, td, event);
}

// A begin that opens a level and an end that closes it.
template <typename E, typename Fill>
void beginRequest(JNIEnv *env, Rule rule, Fill fill) {
    ThreadData *td = callingThread(env);
    if (enter(td, rule)) {
        completeAndAppend(env, td, newEvent<E>(td, Event::SUB_START), Clocks::WallFirst, fill);
    }
}

template <typename E, typename Fill>
void endRequest(JNIEnv *env, Rule rule, Fill fill) {
    ThreadData *td = callingThread(env);
    if (mayEnd(td, rule)) {
        completeAndAppend(env, td, newEvent<E>(td, Event::SUB_END), Clocks::CpuFirst, fill);
        leave(td);
    }
}

// The families that are counted without any test: their depth may go below 0. Both of their records take the
// wall clock first.
template <typename E, typename Fill>
void countedRequest(JNIEnv *env, Event::EventSubType subType, Fill fill) {
    ThreadData *td = callingThread(env);
    if (td != nullptr && subType == Event::SUB_START) {
        ++td->requestDepth;
    }
    completeAndAppend(env, td, newEvent<E>(td, subType), Clocks::WallFirst, fill);
    if (td != nullptr && subType == Event::SUB_END) {
        --td->requestDepth;
    }
}

} // namespace assembly
