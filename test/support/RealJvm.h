// The one real JVM of a test process, created through the invocation interface with the Java half and the
// test helpers on its class path. The process can have one JVM only, so it stays up once created.
#pragma once

#include "JVMPIWrapper.h"

#include <jni.h>

class RealJvm {
public:
    // Creates the JVM on first use and attaches the calling thread.
    static JNIEnv *env();
    static JavaVM *vm();

    // Runs `body(env)` on a new Java thread of its own and waits for it.
    template <typename Body>
    static void onJavaThread(Body body);
};

// Puts the agent's JVM skin over the real JVM for the life of the object: `jvmti`, `jvmpiWrapper` and
// `eventInterface`, in the live phase.
class RealVmSkin {
public:
    RealVmSkin();
    ~RealVmSkin();
    RealVmSkin(const RealVmSkin &) = delete;
    RealVmSkin &operator=(const RealVmSkin &) = delete;

    JVMPIWrapper wrapper;

private:
    jvmtiEnv *oldJvmti;
    JVMPIWrapper *oldWrapper;
    JVMPIWrapper *oldInterface;
};

#include <thread>

template <typename Body>
void RealJvm::onJavaThread(Body body) {
    JavaVM *machine = vm();
    std::thread([&] {
        JNIEnv *own = nullptr;
        machine->AttachCurrentThread(reinterpret_cast<void **>(&own), nullptr);
        body(own);
        machine->DetachCurrentThread();
    }).join();
}
