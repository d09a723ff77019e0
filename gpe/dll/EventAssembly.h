// The rules by which a native call becomes an event, each written once; the families of EventUtils are built
// from them. Everything runs on the application's thread and touches only that thread's counters.
// A rule that finds no `ThreadData` lets the event be built without one: the append then tries once more.
#pragma once

#include "Event.h"
#include "EventUtils.h"
#include "LossAccount.h"
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

// Asks the Java listeners, if there are any to be asked; false if one refuses the event. They may take any
// time, even until the collector has been stopped: then it is false too, `recordStands` is false, and no
// `ThreadData` looked up before may be touched.
bool askListeners(JNIEnv *env, const Event &event, bool &recordStands);

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

// Copies the strings of an event, as far as the wire can carry them, and adds up their lengths: of those that
// count in the event's size, and of the others.
class Texts {
public:
    explicit Texts(JNIEnv *jniEnv) : env(jniEnv) {}
    void copy(char *&target, jstring text) { unweighed += take(target, text); }
    void weigh(char *&target, jstring text) { weighed += take(target, text); }
    // Bytes that the event holds beside its strings.
    void hold(int64_t bytes) { unweighed += bytes; }
    // Charges the event for all of them.
    void charge(Event &event) const;

private:
    int32_t take(char *&target, jstring text);

    JNIEnv *env;
    int64_t weighed = 0;
    int64_t unweighed = 0;
};

// Adds to the event's size. That has 16 bits: what is beyond goes to the extra bytes.
void addWeight(Event &event, int64_t bytes);
// What the size does not cover by its fixed part or its averages: nothing for usual lengths.
void addUnweighed(Event &event, int64_t bytes);

// A new event with the thread's number, and its depth for classes that carry one. Null when memory is out:
// the call is then an event less, told as lost, and counts and nests as any other.
template <typename E, typename... Args>
E *newThreadEvent(const ThreadData *td, Args... args) {
    E *event = new E(args...);
    if (event == nullptr) {
        lossAccount.enter(E(args...));
    } else if (td != nullptr) {
        event->threadId = td->threadId;
    }
    return event;
}
template <typename E, typename... Args>
E *newEvent(const ThreadData *td, Args... args) {
    E *event = newThreadEvent<E>(td, args...);
    if (event != nullptr && td != nullptr) {
        event->requestDepth = td->requestDepth;
    }
    return event;
}

// Strings and what they weigh.
template <typename E, typename Fill>
void fillAndCharge(JNIEnv *env, E &event, Fill fill) {
    Texts texts(env);
    fill(event, texts);
    texts.charge(event);
}

// Clocks, strings, weight, queue: what every begin and end has in common. The result as of
// `appendRequestEvent`. Nothing for null.
template <typename E, typename Fill>
bool completeAndAppend(JNIEnv *env, ThreadData *td, E *event, Clocks order, Fill fill) {
    if (event == nullptr) {
        return true;
    }
    takeClocks(*event, td, order);
    fillAndCharge(env, *event, fill);
    return appendRequestEvent(env, td, event);
}

// A begin that opens a level and an end that closes it. False if it is not recorded.
template <typename E, typename Fill>
bool beginRequest(JNIEnv *env, Rule rule, Fill fill) {
    ThreadData *td = callingThread(env);
    if (!enter(td, rule)) {
        return false;
    }
    completeAndAppend(env, td, newEvent<E>(td, Event::SUB_START), Clocks::WallFirst, fill);
    return true;
}

template <typename E, typename Fill>
bool endRequest(JNIEnv *env, Rule rule, Fill fill) {
    ThreadData *td = callingThread(env);
    if (!mayEnd(td, rule)) {
        return false;
    }
    if (completeAndAppend(env, td, newEvent<E>(td, Event::SUB_END), Clocks::CpuFirst, fill)) {
        leave(td);
    }
    return true;
}

// The families that are counted without any test: their depth may go below 0. `record` makes the record, if
// there is one, and says whether the thread's data still stands.
template <typename Record>
void counted(ThreadData *td, Event::EventSubType subType, Record record) {
    if (td != nullptr && subType == Event::SUB_START) {
        ++td->requestDepth;
    }
    if (record() && td != nullptr && subType == Event::SUB_END) {
        --td->requestDepth;
    }
}

// Those that make a record of their own take the wall clock first, also at the end.
template <typename E, typename Fill>
void countedRequest(JNIEnv *env, Event::EventSubType subType, Fill fill) {
    ThreadData *td = callingThread(env);
    counted(td, subType,
            [=] { return completeAndAppend(env, td, newEvent<E>(td, subType), Clocks::WallFirst, fill); });
}

// A record of the calling thread that stands alone, without clocks; false, with nothing done, if the thread
// has no data or memory is out.
template <typename E, typename Fill, typename... Args>
bool appendSingle(JNIEnv *env, Fill fill, Args... args) {
    ThreadData *td = callingThread(env);
    if (td == nullptr) {
        return false;
    }
    E *event = newThreadEvent<E>(td, args...);
    if (event == nullptr) {
        return false;
    }
    fillAndCharge(env, *event, fill);
    appendRequestEvent(env, td, event);
    return true;
}

} // namespace assembly
