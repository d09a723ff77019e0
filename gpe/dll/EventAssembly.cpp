#include "EventAssembly.h"

#include "JVMPIWrapper.h"
#include "ProbeState.h"
#include "ThreadMgr.h"
#include "platform.h"

#include <algorithm>
#include <cstring>

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
    if (rule != Rule::Any && td->requestDepth == 0) {
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

char *textCopy(JNIEnv *env, jstring text) {
    return jniStringCopyLimited(env, text, WIRE_TEXT_LIMIT, CutAt::Character, nullptr);
}

void Texts::weigh(char *&target, jstring text) {
    copy(target, text);
    bytes += target != nullptr ? static_cast<int64_t>(strlen(target)) : 0;
}

void addWeight(Event &event, int64_t bytes) {
    event.size = static_cast<int16_t>(std::min<int64_t>(event.size + bytes, INT16_MAX));
}

} // namespace assembly
