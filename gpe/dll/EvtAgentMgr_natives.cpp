// Natives of NativeEventAgentImpl that run and count the event agents. The manager is made by the first of
// them, and lives on while its agents do: so none passes a gate.
#include "EvtAgentMgr.h"

#define EVENT_AGENT(name) Java_com_qel_morvex_norak_dc_eventagent_NativeEventAgentImpl_##name

namespace {

// What `use` gives of the singleton; 0 without one.
template <typename Use>
auto withManager(Use use) {
    EvtAgentMgr *manager = EvtAgentMgr::create();
    return manager != nullptr ? use(*manager) : 0;
}

} // namespace

extern "C" {

// The size of the pool, at least 1: that many threads are to be started.
JNIEXPORT jint JNICALL EVENT_AGENT(getAgentCountNative)(JNIEnv *, jclass) {
    return withManager([](EvtAgentMgr &manager) { return manager.getPoolSize(); });
}

// The life of one agent, on the calling thread; returns when it was stopped, at once for a bad id.
JNIEXPORT void JNICALL EVENT_AGENT(startThreadNative)(JNIEnv *env, jclass, jint id) {
    withManager([env, id](EvtAgentMgr &manager) { return manager.startEvtAgent(env, id), 0; });
}

// Waits for the end of one agent; returns at once for a bad id.
JNIEXPORT void JNICALL EVENT_AGENT(stopThreadNative)(JNIEnv *, jclass, jint id) {
    withManager([id](EvtAgentMgr &manager) { return manager.stopEvtAgent(id), 0; });
}

// Events queued in all threads; 0 while stopped.
JNIEXPORT jint JNICALL EVENT_AGENT(getNumberOfEventsNative)(JNIEnv *, jclass) {
    return withManager([](EvtAgentMgr &manager) { return manager.getNumberOfEvents(); });
}

// Bytes that the collector holds by its own estimate; 0 before the memory monitor is up.
JNIEXPORT jint JNICALL EVENT_AGENT(getTotalBytesConsumedNative)(JNIEnv *, jclass) {
    return withManager(
        [](EvtAgentMgr &manager) { return static_cast<jint>(manager.getTotalBytesConsumed()); });
}

// Frees nothing: memory comes back only as queues are sent.
JNIEXPORT void JNICALL Java_com_qel_morvex_norak_dc_eventagent_reduceMemoryUsedNative(JNIEnv *, jclass) {
    withManager([](EvtAgentMgr &manager) { return manager.reduceMemory(), 0; });
}

} // extern "C"
