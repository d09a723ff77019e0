// How natives of the Java half come in. Each says what it needs, what it does with that, and what it answers
// where it does not get it. The thread is inside the agent meanwhile, so that nothing is freed under it.
#pragma once

#include "Inside.h"
#include "MemoryMonitor.h"
#include "ProbeState.h"
#include "Relaxed.h"
#include "ThreadData.h"
#include "ThreadMgr.h"

#include <jni.h>

namespace native {

// The agent lets the call in, and `published`, a manager, stands.
template <typename Published, typename Answer, typename Use>
Answer with(Relaxed<Published *> &published, Answer refusal, Use use) {
    const Inside inside;
    Published *standing = inside ? published.get() : nullptr;
    return standing != nullptr ? use(*standing) : refusal;
}

// The gate of everything that makes events is open: the call counts. It may wait there.
class Admission {
public:
    explicit Admission(JNIEnv *env) : admitted(inside && !shouldReject(env)) {}
    explicit operator bool() const { return admitted; }

private:
    const Inside inside;
    const bool admitted;
};

template <typename Use>
void gated(JNIEnv *env, Use use) {
    if (const Admission admitted{env}) {
        use();
    }
}

// The number of the calling thread by the id lookup, which gives it one if it has none; 0 while there is no
// thread manager.
inline jint lookedUpNumber(JNIEnv *env) {
    ThreadMgr *threads = threadMgr;
    return threads != nullptr ? static_cast<jint>(threads->getThreadId(env)) : 0;
}

// The calling thread's data where no gate came before, or listeners were asked since: while the probe is
// being stopped a thread counts as unknown, as its record may be destroyed once the calls that came before
// are out.
inline ThreadData *ungatedThread(JNIEnv *env) {
    ThreadMgr *threads = threadMgr;
    return probeDisabled || threads == nullptr ? nullptr : threads->getThreadData(env);
}

// The same gate for a native that answers with the thread's number, also when refused.
template <typename Use>
jint gatedWithNumber(JNIEnv *env, Use use) {
    const Admission admitted(env);
    if (!admitted) {
        return lookedUpNumber(env);
    }
    use();
    const ThreadData *td = ungatedThread(env);
    return td != nullptr ? static_cast<jint>(td->threadId.get()) : lookedUpNumber(env);
}

// Not gated: the probe is on and the calling thread has data.
template <typename Answer, typename Use>
Answer withOwnThread(JNIEnv *env, Answer refusal, Use use) {
    const Inside inside;
    ThreadData *td = inside ? ungatedThread(env) : nullptr;
    return td != nullptr ? use(*td) : refusal;
}

template <typename Use>
void withOwnThread(JNIEnv *env, Use use) {
    withOwnThread(env, false, [=](ThreadData &td) { return use(td), true; });
}

} // namespace native
