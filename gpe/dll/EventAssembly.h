// The rules by which a native call becomes an event, each written once; the families of EventUtils are built
// from them. Everything runs on the application's thread and touches only that thread's counters.
// A rule that finds no `ThreadData` lets the event be built without one: the append then tries once more.
#pragma once

#include "EventDraft.h"
#include "LossAccount.h"
#include "MemoryMonitor.h"
#include "ThreadData.h"
#include "jnihelp.h"

#include <cstdint>
#include <jni.h>

// Hands an event to its thread's queue, unless a Java listener refuses its type. A null `thr` is replaced by
// the calling thread's data. False if the collector was stopped meanwhile: no `ThreadData` looked up before
// may then be touched.
bool appendRequestEvent(JNIEnv *env, ThreadData *thr, EventDraft &request);

// Java listeners may veto events by their type: static `boolean notifyListeners(int)` of `cls`. The target is
// set once.
void setNotifyTarget(JNIEnv *env, jclass cls);
void setListenerCount(jint count);
void setEntryExitNotification(bool on);

namespace assembly {

// The place among the strings that the calling thread, whose data it is, gave last; null if it keeps none.
KnownString *knownTo(ThreadData *td, KnownString KnownStrings::*place);

// When a begin and its end are recorded.
enum class Rule {
    Nested, // inside a request only, and not when nested requests are suppressed
    Plain,  // inside a request only
    Any,    // everywhere, but not when nested requests are suppressed
    Inner   // as nested, but everywhere: one that opens a thread's outermost level is counted only
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
// Whether the level that is open now is counted only.
bool isSilent(const ThreadData *td, Rule rule);

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

// Whether an event's texts go out. An end is charged for them and carries none.
enum class Goes { Out, Nowhere };

// Copies the strings of an event, as far as the wire can carry them, and adds up their lengths: of those that
// count in the event's size, and of the others. A text for which there is no memory stays null, and so does
// one that goes nowhere, but where only its copy tells at which byte it is cut.
class Texts {
public:
    Texts(JNIEnv *jniEnv, EventDraft &eventDraft, Goes where = Goes::Out)
        : env(jniEnv), draft(eventDraft), goes(where) {}
    void copy(Text &target, jstring text, KnownString *known = nullptr) {
        unweighed += take(target, text, known);
    }
    void weigh(Text &target, jstring text) { weighed += take(target, text); }
    // As `copy`, but cut at `limit` bytes, the NUL included, and weighing nothing. Gives the bytes kept, the
    // NUL included; 0 if there was none to copy.
    // `known` may be null.
    int32_t cut(Text &target, jstring text, int32_t limit, CutAt where, KnownString *known = nullptr);
    // A list of `count` null texts, and one of them.
    void list(Text &target, int32_t count) { draft.putTexts(target, count); }
    void weighInList(const Text &list, int32_t index, jstring text);
    // Bytes from elsewhere.
    void hold(Text &target, const void *bytes, size_t count, size_t alignment = 1);
    // The same from a Java array: `count` elements, which it has.
    template <typename T, typename Array>
    void hold(Text &target, Array array, jsize count, void (JNIEnv::*getRegion)(Array, jsize, jsize, T *)) {
        const size_t bytes = static_cast<size_t>(count) * sizeof(T);
        if (char *place = draft.room(bytes, alignof(T))) {
            (env->*getRegion)(array, 0, count, reinterpret_cast<T *>(place));
            draft.keep(target, bytes);
            unweighed += static_cast<int64_t>(bytes);
        }
    }
    // What a field of the event tells of.
    const char *text(const Text &field) const { return draft.text(field); }
    // Charges the event for all of them.
    void charge() const;

private:
    int32_t take(Text &target, jstring text, KnownString *known = nullptr);
    int32_t measured(jstring text, jsize chars, int32_t limit) const;

    JNIEnv *env;
    EventDraft &draft;
    const Goes goes;
    int64_t weighed = 0;
    int64_t unweighed = 0;
};

// Adds to the event's size. That has 16 bits: what is beyond goes to the extra bytes.
void addWeight(Event &event, int64_t bytes);
// What the size does not cover by its fixed part or its averages: nothing for usual lengths.
void addUnweighed(Event &event, int64_t bytes);

// A new event with the thread's number, and one with its depth too.
template <typename E>
class ThreadDraft : public Draft<E> {
public:
    template <typename... Args>
    explicit ThreadDraft(const ThreadData *td, Args... args) : Draft<E>(args...) {
        if (td != nullptr) {
            (*this)->threadId = td->threadId;
        }
    }
};

template <typename E>
class NestedDraft : public ThreadDraft<E> {
public:
    template <typename... Args>
    explicit NestedDraft(const ThreadData *td, Args... args) : ThreadDraft<E>(td, args...) {
        if (td != nullptr) {
            (*this)->requestDepth = td->requestDepth;
        }
    }
};

// Strings and what they weigh.
template <typename E, typename Fill>
void fillAndCharge(JNIEnv *env, Draft<E> &draft, Fill fill, Goes goes = Goes::Out) {
    Texts texts(env, draft, goes);
    fill(*draft, texts);
    texts.charge();
}

// Clocks, strings, weight, queue: what every begin and end has in common. The result as of
// `appendRequestEvent`.
template <typename E, typename Fill>
bool completeAndAppend(JNIEnv *env, ThreadData *td, Draft<E> &draft, Clocks order, Fill fill,
                       Goes goes = Goes::Out) {
    takeClocks(*draft, td, order);
    fillAndCharge(env, draft, fill, goes);
    return appendRequestEvent(env, td, draft);
}

// A begin that opens a level and an end that closes it. False if it is not recorded.
template <typename E, typename Fill>
bool beginRequest(JNIEnv *env, Rule rule, Fill fill) {
    ThreadData *td = callingThread(env);
    if (!enter(td, rule) || isSilent(td, rule)) {
        return false;
    }
    NestedDraft<E> draft(td, Event::SUB_START);
    completeAndAppend(env, td, draft, Clocks::WallFirst, fill);
    return true;
}

template <typename E, typename Fill>
bool endRequest(JNIEnv *env, Rule rule, Fill fill) {
    ThreadData *td = callingThread(env);
    if (!mayEnd(td, rule)) {
        return false;
    }
    if (isSilent(td, rule)) {
        leave(td);
        return false;
    }
    NestedDraft<E> draft(td, Event::SUB_END);
    if (completeAndAppend(env, td, draft, Clocks::CpuFirst, fill, Goes::Nowhere)) {
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
    counted(td, subType, [=] {
        NestedDraft<E> draft(td, subType);
        return completeAndAppend(env, td, draft, Clocks::WallFirst, fill);
    });
}

// A record of the calling thread that stands alone, without clocks; nothing if the thread has no data.
template <typename E, typename Fill, typename... Args>
void appendSingle(JNIEnv *env, Fill fill, Args... args) {
    ThreadData *td = callingThread(env);
    if (td != nullptr) {
        ThreadDraft<E> draft(td, args...);
        fillAndCharge(env, draft, fill);
        appendRequestEvent(env, td, draft);
    }
}

} // namespace assembly
