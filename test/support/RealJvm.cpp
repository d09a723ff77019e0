#include "RealJvm.h"

#include "JVMTIUtils.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

JavaVM *createJvm() {
    // AM_TEST_CLASS_PATH is set by the build: the Java half and the compiled test helpers.
    std::string classPath = std::string("-Djava.class.path=") + AM_TEST_CLASS_PATH;
    JavaVMOption options[] = {{classPath.data(), nullptr},
                              {const_cast<char *>("-Xcheck:jni"), nullptr},
                              {const_cast<char *>("-Xmx256m"), nullptr},
                              {const_cast<char *>("-XX:+UseSerialGC"), nullptr}};
    JavaVMInitArgs args{JNI_VERSION_1_8, 4, options, JNI_FALSE};
    JavaVM *machine = nullptr;
    JNIEnv *env = nullptr;
    if (JNI_CreateJavaVM(&machine, reinterpret_cast<void **>(&env), &args) != JNI_OK) {
        fputs("the test JVM could not be created\n", stderr);
        abort();
    }
    return machine;
}

// One environment for the whole process, as in the agent.
jvmtiEnv *realJvmti() {
    static jvmtiEnv *environment = nullptr;
    if (environment == nullptr) {
        RealJvm::vm()->GetEnv(reinterpret_cast<void **>(&environment), JVMTI_VERSION_1_1);
        jvmtiCapabilities wanted{};
        wanted.can_get_current_thread_cpu_time = 1;
        environment->AddCapabilities(&wanted);
    }
    return environment;
}

} // namespace

JavaVM *RealJvm::vm() {
    static JavaVM *machine = createJvm();
    return machine;
}

JNIEnv *RealJvm::env() {
    JNIEnv *own = nullptr;
    vm()->AttachCurrentThread(reinterpret_cast<void **>(&own), nullptr);
    return own;
}

RealVmSkin::RealVmSkin()
    : wrapper(JVMTI_PHASE_LIVE), oldJvmti(jvmti), oldWrapper(jvmpiWrapper), oldInterface(eventInterface) {
    jvmti = realJvmti();
    wrapper.realJvm = RealJvm::vm();
    jvmpiWrapper = &wrapper;
    eventInterface = &wrapper;
    JVMPIWrapper::learnInterrupt(RealJvm::env());
}

RealVmSkin::~RealVmSkin() {
    jvmti = oldJvmti;
    jvmpiWrapper = oldWrapper;
    eventInterface = oldInterface;
}
