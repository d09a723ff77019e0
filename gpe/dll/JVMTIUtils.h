// Small helpers over the one JVMTI environment. Callable from any thread; with no environment every
// operation does nothing.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <jvmti.h>

extern jvmtiEnv *jvmti; // null until `Agent_OnLoad` has obtained it

// Logs a failed JVMTI result. JVMTI_ERROR_WRONG_PHASE is silent once the JVM is dead: races at shutdown
// are normal. While `jvmti` is null the failure goes to standard error.
void checkJvmtiError(jvmtiError error, const char *file, int line, const char *message);

// Tells which failures of one place are worth a line: one that fails at each event tells it ever more rarely.
class FailureCount {
public:
    bool nextIsNews() {
        const uint32_t number = failures.fetch_add(1, std::memory_order_relaxed) + 1;
        return (number & (number - 1)) == 0;
    }

private:
    std::atomic<uint32_t> failures{0};
};
#define AM_CHECK_JVMTI(error, message)                                                                       \
    do {                                                                                                     \
        static FailureCount failures_;                                                                       \
        const jvmtiError error_ = error;                                                                     \
        if (error_ != JVMTI_ERROR_NONE && failures_.nextIsNews()) {                                          \
            checkJvmtiError(error_, __FILE_NAME__, __LINE__, message);                                       \
        }                                                                                                    \
    } while (false)

// The name of an error as a new copy (freed by the caller with `free`); null with no `jvmti` or on failure.
char *getErrorName(jvmtiError errNum);

// JVMTI's own allocator. On failure `*mem_ptr` is left alone.
void AllocateJVMTIMemory(jlong size, unsigned char **mem_ptr);
void freeJVMTIMemory(void *p);

// Appends the type at `index` of a JVM signature as Java writes it ("[[I" is "int[][]") to the terminated
// text in `out`, which has room for `room` bytes; what does not fit is cut. The result is the index behind
// the type; on an unknown letter the length of the signature, with a warning.
size_t translateSignature(const char *signature, size_t index, char *out, size_t room);

// A copy on the heap; null gives null.
char *dupString(const char *text);

// Switches one JVMTI event for all threads.
void setEventMode(jvmtiEventMode mode, jvmtiEvent event);

// Thread and class events, and those of garbage collection if a processor for them exists.
void enableThreadAndClassEvents();
void disableAllEvents();
void relinquishCapabilities();

// Takes the JVM's garbage-collection events when it is plugged in. None is: the pointer stays null and the
// route with its capability, callbacks and events stays dormant.
class GCProcessor {
public:
    virtual ~GCProcessor() = default;
    virtual void gcStart() = 0;
    virtual void gcFinish() = 0;
    // By Java: what was told is kept from a start to the next stop, and asked for one by one.
    virtual void startNative() {}
    virtual void stopNative() {}
    virtual bool getGCEvent(int64_t (&)[2]) { return false; }
};
extern GCProcessor *gcProcessor;
