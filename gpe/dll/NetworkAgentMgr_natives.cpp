// Natives of NativeNetworkAgentImpl that run the network agents and switch their traces. The pool has a gate
// of its own.
#include "NetworkAgent.h"
#include "NetworkAgentMgr.h"
#include "ProbeLgKit.h"
#include "ProtocolVisitor.h"

#define NETWORK_AGENT(name) Java_com_qel_morvex_norak_dc_networkagent_NativeNetworkAgentImpl_##name

extern "C" {

// The number of agents, so of threads that the Java half shall start: 0 to 256.
JNIEXPORT jint JNICALL NETWORK_AGENT(getNetAgentCountNative)(JNIEnv *, jclass) {
    return NetworkAgentMgr::agentCount();
}

// Runs the agent of that index on the calling thread; returns when it was stopped, or at once if the index
// is outside the pool or the pool is closed.
JNIEXPORT void JNICALL NETWORK_AGENT(startThreadNative)(JNIEnv *env, jclass, jint id) {
    NetworkAgentMgr::startNetworkAgent(env, id);
}

// Ends the agent of that index; returns when its thread has left `startThreadNative`.
JNIEXPORT void JNICALL NETWORK_AGENT(stopThreadNative)(JNIEnv *env, jclass, jint id) {
    NetworkAgentMgr::stopNetworkAgent(env, id);
}

// Switches the network trace, on if `flag` is 1. The first call of all finds its Java method; if that fails,
// the trace stays without effect.
JNIEXPORT void JNICALL NETWORK_AGENT(setNetworkTrace)(JNIEnv *env, jclass owner, jbyte flag) {
    NetworkAgent::setNetworkTrace(env, owner, flag == 1);
}

// Switches the record trace: on for 1, off for any other value.
JNIEXPORT void JNICALL NETWORK_AGENT(setTrace)(JNIEnv *env, jclass cls, jbyte flag) {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MID, "setTrace( JNIEnv *env, jclass cls, jbyte flag )");
    ProtocolVisitor::switchRecordTrace(env, cls, flag == 1);
}

} // extern "C"
