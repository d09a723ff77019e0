#include "JVMTIUtils.h"

#include "ProbeLgKit.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

jvmtiEnv *jvmti = nullptr;
GCProcessor *gcProcessor = nullptr;

namespace {

bool jvmIsDead() {
    jvmtiPhase phase{};
    return jvmti->GetPhase(&phase) == JVMTI_ERROR_NONE && phase == JVMTI_PHASE_DEAD;
}

void logJvmtiError(jvmtiError error, const char *file, int line, const char *message) {
    char *name = getErrorName(error);
    traceError("ERROR: JVMTI error: NO: %d Name: %s Location %s:%d Msg: %s\n", static_cast<int>(error),
               name != nullptr ? name : "", file, line, message);
    free(name);
}

const char *primitiveName(char letter) {
    switch (letter) {
    case 'B':
        return "byte";
    case 'C':
        return "char";
    case 'D':
        return "double";
    case 'F':
        return "float";
    case 'I':
        return "int";
    case 'J':
        return "long";
    case 'S':
        return "short";
    case 'V':
        return "void";
    case 'Z':
        return "boolean";
    default:
        return nullptr;
    }
}

// Appends "java.lang.String" for "Ljava/lang/String;" at `index`; returns the index behind the ";".
size_t appendClassName(const char *signature, size_t index, char *out, size_t room) {
    size_t used = strlen(out);
    for (++index; signature[index] != '\0' && signature[index] != ';'; ++index) {
        if (used + 1 < room) {
            out[used++] = signature[index] == '/' ? '.' : signature[index];
        }
    }
    out[used] = '\0';
    return signature[index] == ';' ? index + 1 : index;
}

void append(const char *text, char *out, size_t room) {
    const size_t used = strlen(out);
    snprintf(out + used, room - used, "%s", text);
}

} // namespace

void checkJvmtiError(jvmtiError error, const char *file, int line, const char *message) {
    if (error == JVMTI_ERROR_NONE) {
        return;
    }
    if (jvmti == nullptr) {
        fprintf(stderr, "ERROR: JVMTI Error Occurred, Error No: %d File: %s Line: %d Msg: %s \n",
                static_cast<int>(error), file, line, message);
        return;
    }
    if (error == JVMTI_ERROR_WRONG_PHASE && jvmIsDead()) {
        return;
    }
    logJvmtiError(error, file, line, message);
}

char *getErrorName(jvmtiError errNum) {
    if (jvmti == nullptr) {
        return nullptr;
    }
    char *name = nullptr;
    const jvmtiError result = jvmti->GetErrorName(errNum, &name);
    if (result != JVMTI_ERROR_NONE) {
        traceError("ERROR: JVMTI GetErrorName failed, Error No: %d \n", static_cast<int>(result));
        return nullptr;
    }
    char *copy = dupString(name);
    freeJVMTIMemory(name);
    return copy;
}

void AllocateJVMTIMemory(jlong size, unsigned char **mem_ptr) {
    if (jvmti == nullptr) {
        return;
    }
    const jvmtiError result = jvmti->Allocate(size, mem_ptr);
    if (result != JVMTI_ERROR_NONE) {
        traceError("ERROR: JVMTI Allocate failed, Error No: %d \n", static_cast<int>(result));
    }
}

void freeJVMTIMemory(void *p) {
    if (jvmti == nullptr) {
        return;
    }
    const jvmtiError result = jvmti->Deallocate(static_cast<unsigned char *>(p));
    if (result != JVMTI_ERROR_NONE) {
        traceError("ERROR: JVMTI Deallocate failed, Error No: %d \n", static_cast<int>(result));
    }
}

size_t translateSignature(const char *signature, size_t index, char *out, size_t room) {
    size_t dimensions = 0;
    for (; signature[index] == '['; ++index) {
        ++dimensions;
    }
    if (signature[index] == 'L') {
        index = appendClassName(signature, index, out, room);
    } else if (const char *name = primitiveName(signature[index])) {
        append(name, out, room);
        ++index;
    } else {
        traceWarn("Error: couldn't translate <%s> to readable text\n", signature);
        return strlen(signature);
    }
    for (; dimensions > 0; --dimensions) {
        append("[]", out, room);
    }
    return index;
}

char *dupString(const char *text) {
    return text != nullptr ? strdup(text) : nullptr;
}

void setEventMode(jvmtiEventMode mode, jvmtiEvent event) {
    if (jvmti != nullptr) {
        AM_CHECK_JVMTI(jvmti->SetEventNotificationMode(mode, event, nullptr), "SetEventNotificationMode");
    }
}

void enableThreadAndClassEvents() {
    setEventMode(JVMTI_ENABLE, JVMTI_EVENT_THREAD_START);
    setEventMode(JVMTI_ENABLE, JVMTI_EVENT_THREAD_END);
    setEventMode(JVMTI_ENABLE, JVMTI_EVENT_CLASS_FILE_LOAD_HOOK);
    if (gcProcessor != nullptr) {
        setEventMode(JVMTI_ENABLE, JVMTI_EVENT_GARBAGE_COLLECTION_START);
        setEventMode(JVMTI_ENABLE, JVMTI_EVENT_GARBAGE_COLLECTION_FINISH);
    }
}

void disableAllEvents() {
    static const jvmtiEvent events[] = {
        JVMTI_EVENT_THREAD_START,
        JVMTI_EVENT_THREAD_END,
        JVMTI_EVENT_CLASS_FILE_LOAD_HOOK,
        JVMTI_EVENT_GARBAGE_COLLECTION_START,
        JVMTI_EVENT_GARBAGE_COLLECTION_FINISH,
        JVMTI_EVENT_DATA_DUMP_REQUEST,
    };
    for (const jvmtiEvent event : events) {
        setEventMode(JVMTI_DISABLE, event);
    }
}

void relinquishCapabilities() {
    if (jvmti == nullptr) {
        return;
    }
    jvmtiCapabilities given{};
    given.can_tag_objects = 1;
    given.can_get_current_thread_cpu_time = 1;
    given.can_generate_all_class_hook_events = 1;
    jvmti->RelinquishCapabilities(&given);
}
