#include "EventAssembly.h"

#include "JVMPIWrapper.h"
#include "ProbeState.h"
#include "ThreadMgr.h"
#include "VirtualThreads.h"
#include "platform.h"

#include <algorithm>

namespace assembly {

namespace {

bool suppressionIsOn() {
    return disableNestedRequests && probeLevel == 1;
}

} // namespace

ThreadData *callingThread(JNIEnv *env) {
    ThreadMgr *threads = threadMgr;
    return threads != nullptr ? threads->getThreadData(env) : nullptr;
}

// Virtual threads are too many, and mostly too short, to have one each.
KnownString *knownTo(ThreadData *td, KnownString KnownStrings::*place) {
    if (td == nullptr || isVirtualKey(td->envId)) {
        return nullptr;
    }
    if (td->known == nullptr) {
        td->known = new (std::nothrow) KnownStrings;
    }
    return td->known != nullptr ? &(td->known->*place) : nullptr;
}

bool suppressBegin(ThreadData *td) {
    if (!suppressionIsOn() || td->requestDepth < 1) {
        return false;
    }
    ++td->suppressedNestedCount;
    return true;
}

bool suppressEnd(ThreadData *td) {
    if (!suppressionIsOn() || td->suppressedNestedCount <= 0) {
        return false;
    }
    --td->suppressedNestedCount;
    return true;
}

bool enter(ThreadData *td, Rule rule) {
    if (td == nullptr) {
        return true;
    }
    if ((rule == Rule::Nested || rule == Rule::Plain) && td->requestDepth == 0) {
        return false;
    }
    if (rule != Rule::Plain && suppressBegin(td)) {
        return false;
    }
    ++td->requestDepth;
    return true;
}

bool mayEnd(ThreadData *td, Rule rule) {
    if (td == nullptr) {
        return true;
    }
    if (rule == Rule::Any) {
        return td->requestDepth < 1 || !suppressEnd(td);
    }
    return td->requestDepth != 0 && (rule == Rule::Plain || !suppressEnd(td));
}

void leave(ThreadData *td) {
    if (td != nullptr && td->requestDepth > 0) {
        --td->requestDepth;
    }
}

bool isSilent(const ThreadData *td, Rule rule) {
    return rule == Rule::Inner && td != nullptr && td->requestDepth <= 1;
}

int64_t threadCpuTime(ThreadData *td) {
    JVMPIWrapper *events = eventInterface;
    const jlong now = events != nullptr ? events->GetCurrentThreadCpuTime() : 0;
    return td != nullptr ? td->monotonicCpuTime(now) : now;
}

void takeClocks(Event &event, ThreadData *td, Clocks order) {
    if (order == Clocks::CpuFirst) {
        event.cpuTime = threadCpuTime(td);
    }
    getCurrentTime(&event.timeSec, &event.timeUSec);
    if (order == Clocks::WallFirst) {
        event.cpuTime = threadCpuTime(td);
    }
}

int32_t Texts::cut(Text &target, jstring text, int32_t limit, CutAt where, KnownString *known) {
    limit = std::max(limit, 1);
    if (text == nullptr) {
        draft.put(target, "", 0);
        return 0;
    }
    if (known != nullptr && known->is(env, text, limit)) {
        const bool counts =
            goes == Goes::Nowhere || draft.put(target, known->bytes(), static_cast<size_t>(known->length()));
        return counts ? known->length() + 1 : 0;
    }
    const jsize chars = charsWithin(env, text, limit);
    if (goes == Goes::Nowhere && (where == CutAt::AnyByte || chars < limit / MOST_BYTES_PER_CHAR)) {
        return measured(text, chars, limit);
    }
    char *place = draft.room(utf8Room(chars));
    if (place == nullptr) {
        return 0;
    }
    const int32_t length = utf8Region(env, text, chars, place, limit, where);
    draft.keep(target, static_cast<size_t>(length));
    if (known != nullptr) {
        known->learn(env, text, limit, place, length);
    }
    return length + 1;
}

int32_t Texts::measured(jstring text, jsize chars, int32_t limit) const {
    return chars < limit ? std::min(env->GetStringUTFLength(text) + 1, limit) : limit;
}

int32_t Texts::take(Text &target, jstring text, KnownString *known) {
    return std::max(cut(target, text, WIRE_TEXT_LIMIT, CutAt::Character, known) - 1, 0);
}

// The list may move when room is made: so that comes first.
void Texts::weighInList(const Text &list, int32_t index, jstring text) {
    if (draft.room(utf8Room(charsWithin(env, text, WIRE_TEXT_LIMIT))) != nullptr) {
        weigh(draft.textAt(list, index), text);
    }
}

void Texts::hold(Text &target, const void *bytes, size_t count, size_t alignment) {
    if (draft.put(target, bytes, count, alignment)) {
        unweighed += static_cast<int64_t>(count);
    }
}

void Texts::charge() const {
    addWeight(draft.event(), weighed);
    addUnweighed(draft.event(), unweighed);
}

namespace {

void addExtra(Event &event, int64_t bytes) {
    constexpr int64_t MOST = INT32_MAX - INT16_MAX;
    event.extraBytes = static_cast<uint32_t>(std::min(event.extraBytes + bytes, MOST));
}

} // namespace

void addWeight(Event &event, int64_t bytes) {
    const int64_t wanted = event.size + bytes;
    event.size = static_cast<int16_t>(std::min<int64_t>(wanted, INT16_MAX));
    addExtra(event, wanted - event.size);
}

void addUnweighed(Event &event, int64_t bytes) {
    constexpr int64_t USUAL = 2048;
    addExtra(event, std::max<int64_t>(bytes - USUAL, 0));
}

} // namespace assembly
