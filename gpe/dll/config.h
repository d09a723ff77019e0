// The instrumentation configuration: an optional file that describes what the class-load hook is to do. Read
// once, on the thread that loads the agent, before any service of the JVM exists; nothing else touches the
// record. The agent itself asks only whether it is sound: the rest is the contract of the file.
#pragma once

#include <cstdint>
#include <cstdlib>

// A list that grows and owns its elements' texts. Trivial elements only.
template <typename T>
struct GrowingArray {
    T *items = nullptr;
    int32_t count = 0;

    // False when memory is out.
    bool add(const T &item) {
        auto *grown = static_cast<T *>(
            realloc(static_cast<void *>(items), sizeof(T) * (static_cast<size_t>(count) + 1)));
        if (grown == nullptr) {
            return false;
        }
        items = grown;
        items[count++] = item;
        return true;
    }
};

struct Filter {
    char *value; // a prefix, in slash form
    int32_t length;
    int32_t isInclude;
};

// A method that defines classes, and which of its arguments tell what.
struct DefineClassMethod {
    char *className; // this and the next in slash form
    int32_t classNameLength;
    char *declaringClassName;
    int32_t declaringClassNameLength;
    char *methodName;
    char *signature;
    int16_t arguments[5];
    int32_t reserved; // 0
};

enum DelegateTo : int32_t {
    DELEGATE_BOOT = 0,
    DELEGATE_EXTENSION = 1,
    DELEGATE_SYSTEM = 2,
    DELEGATE_NAMED = 3
};

struct InstrumentationConfig {
    char *hookClassName = nullptr;
    GrowingArray<char *> classPath;
    GrowingArray<Filter> filters; // the first that matches decides
    bool instrumentDefineClass = true;
    DelegateTo delegateTo = DELEGATE_BOOT;
    char *delegateClassLoader = nullptr; // in slash form; null but for DELEGATE_NAMED
    int32_t delegateClassLoaderLength = 0;
    bool includeInterfaces = false;
    bool statistics = false;
    bool loggingEntryExit = false;
    bool loggingException = true;
    bool loggingMessage = false;
    bool loggingText = false;
    char *logFile = nullptr;
    bool dumpClasses = false;
    char *dumpPath = nullptr;
    GrowingArray<DefineClassMethod> classLoaderMethods;
    GrowingArray<DefineClassMethod> proxyMethods;
};

extern InstrumentationConfig instrumentationConfig;

// Fills in the defaults, then what the file says: the one that DSRVKVOR_PROPS names, else `filename`, which
// may be null or empty for none. False if a value cannot be stored; a file that cannot be read is none.
bool getConfig(const char *filename);

// Steps of it. `buffer` ends with a NUL and is changed in place.
bool initConfig();
bool convert8859_1ToUTF8(char *buffer); // "\uXXXX" becomes UTF-8; false for a bad digit
bool parseConfig(char *buffer);
