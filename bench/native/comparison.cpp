// Natives that the benchmarks hold against the agent's: an empty one of the same shape, the clocks of a pair
// of events in a loop, and what the process has allocated. Loaded by the benchmark itself; shares nothing
// with the agent. Each may be called on any thread.
#include <ctime>
#include <jni.h>
#include <jvmti.h>
#include <malloc.h>

namespace {

jvmtiEnv *clockInterface(JNIEnv *env) {
    static jvmtiEnv *const found = [env] {
        JavaVM *machine = nullptr;
        jvmtiEnv *jvmti = nullptr;
        if (env->GetJavaVM(&machine) != JNI_OK ||
            machine->GetEnv(reinterpret_cast<void **>(&jvmti), JVMTI_VERSION_1_1) != JNI_OK) {
            return static_cast<jvmtiEnv *>(nullptr);
        }
        jvmtiCapabilities wanted{};
        wanted.can_get_current_thread_cpu_time = 1;
        return jvmti->AddCapabilities(&wanted) == JVMTI_ERROR_NONE ? jvmti : nullptr;
    }();
    return found;
}

} // namespace

#define COMPARISON(name) Java_bench_child_Comparison_##name

extern "C" {

JNIEXPORT void JNICALL COMPARISON(nothing)(JNIEnv *, jclass, jstring, jstring) {}

// What no pair of events can do without: a call with its arguments, in which each clock is read once. Not in
// a loop, since a system call also costs what runs after it.
JNIEXPORT void JNICALL COMPARISON(clocks)(JNIEnv *env, jclass, jstring, jstring) {
    jlong nanos = 0;
    if (jvmtiEnv *jvmti = clockInterface(env)) {
        jvmti->GetCurrentThreadCpuTime(&nanos);
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
}

// Reads the thread's CPU clock `count` times, the way the agent does; false if the JVM does not offer it.
JNIEXPORT jboolean JNICALL COMPARISON(cpuClock)(JNIEnv *env, jclass, jint count) {
    jvmtiEnv *jvmti = clockInterface(env);
    jlong nanos = 0;
    for (jint i = 0; jvmti != nullptr && i < count; ++i) {
        jvmti->GetCurrentThreadCpuTime(&nanos);
    }
    return nanos > 0 ? JNI_TRUE : JNI_FALSE;
}

// Reads the wall clock `count` times; the result only keeps the reads alive.
JNIEXPORT jlong JNICALL COMPARISON(wallClock)(JNIEnv *, jclass, jint count) {
    jlong sum = 0;
    for (jint i = 0; i < count; ++i) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        sum += now.tv_nsec;
    }
    return sum;
}

// Bytes that the whole process has from malloc, the allocator's own overhead included.
JNIEXPORT jlong JNICALL COMPARISON(allocatedBytes)(JNIEnv *, jclass) {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<jlong>(info.uordblks + info.hblkhd);
}

} // extern "C"
