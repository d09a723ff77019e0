// The agent's way to the logging toolkit: guarded trace records and numbered, translatable messages.
// The toolkit's libraries are bound at run time; until `openLgKit` has succeeded, and for ever if they
// are missing, every call here is a silent no-op. Callable from any thread.
#pragma once

#include "Relaxed.h"

#include <cstddef>
#include <cstdint>
#include <tuple>

struct LgkObject;

// Severities, as the toolkit numbers them.
enum LgkLevel : int {
    LGK_DEBUG_MAX = 1000, // hot paths
    LGK_DEBUG_MID = 2000, // the usual entry and exit
    LGK_DEBUG_MIN = 3000, // lifecycle and decisions
    LGK_INFO = 4000,
    LGK_WARN = 5000,
    LGK_ERROR = 6000
};

// Log objects, null until opened. A call site asks its module's tracer whether a level is on and writes
// to `traceLogger`, which lets everything through: levels are set by module, the text lands in one file.
extern Relaxed<LgkObject *> msgLogger;
extern Relaxed<LgkObject *> naTracer; // network agents
extern Relaxed<LgkObject *> eaTracer; // event agents
extern Relaxed<LgkObject *> caTracer; // command agent
extern Relaxed<LgkObject *> ccTracer; // all other code
extern Relaxed<LgkObject *> gcTracer; // garbage-collection events
extern Relaxed<LgkObject *> traceLogger;

// Where the toolkit's files lie. All strings may be empty; `runtimeDir` may be null.
struct LgKitPaths {
    const char *runtimeDir;
    const char *toolkitDir;
    const char *homeDir;
    const char *nodeName;
    const char *appServerName;
    const char *lgkitCommonDir;
};

// Binds and opens the toolkit, works out the log directories. Called once, on the VM init thread.
// A failure, a missing library included, is printed as one line and leaves logging silent.
void openLgKit(const LgKitPaths &paths);

int messageSet();           // 1 once open, 0 before
const char *catalogName();  // empty before the open
const char *logQualifier(); // the directory name of this server below the log directory

bool getStatisticsEnabled();
void setStatisticsEnabled(bool enabled);

// Sets the property "level" of an object; a null object is skipped.
void setLogLevel(LgkObject *object, int level);

// The lowest level that any tracer lets through; LGK_INFO if none traces. Call sites look at this one word
// first, and nearly always at no other.
extern Relaxed<int> tracedFrom;
// Asks the tracers anew, after something but `setLogLevel` has changed them.
void noteTraceLevels();

// A line that has to be seen at any trace level. With no logger it is printed to standard output.
void traceText(const char *text);
void traceFormat(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The toolkit's operations that are called through typed arguments; null pointers until bound.
struct LgkApi {
    using DebugCall = void (*)(LgkObject *, const char *file, const char *function, int line,
                               const char *format, ...);
    using MessageCall = void (*)(LgkObject *, const char *catalog, int set, int number, const char *format,
                                 ...);
    int (*isLoggable)(const LgkObject *, int level);
    DebugCall debugMin, debugMid, debugMax;
    MessageCall info, warn, error, fatal;
    void (*text)(LgkObject *, const char *text, int reserved);
};
extern LgkApi lgkApi;

inline bool LgkIsLoggable(LgkObject *object, int level) {
    return object != nullptr && lgkApi.isLoggable(object, level) != 0;
}

inline bool isTraced(LgkObject *tracer, int level) {
    return __builtin_expect(level >= tracedFrom, 0) && LgkIsLoggable(tracer, level);
}

namespace lgk {

// Type codes of the toolkit's argument pairs.
inline std::tuple<int, int> typed(int value) {
    return {502, value};
}
inline std::tuple<int, int> typed(unsigned value) {
    return {502, static_cast<int>(value)};
}
inline std::tuple<int, int> typed(bool value) {
    return {502, value ? 1 : 0};
}
inline std::tuple<int, long> typed(long value) {
    return {503, value};
}
inline std::tuple<int, long> typed(unsigned long value) {
    return {503, static_cast<long>(value)};
}
inline std::tuple<int, const char *> typed(const char *value) {
    return {507, value != nullptr ? value : ""};
}

template <typename Call, typename... Fixed, typename... Args>
void callTyped(Call call, std::tuple<Fixed...> fixed, Args... args) {
    std::apply(call, std::tuple_cat(fixed, typed(args)..., std::tuple<int>(0)));
}

inline LgkApi::DebugCall debugCall(int level) {
    return level >= LGK_DEBUG_MIN   ? lgkApi.debugMin
           : level >= LGK_DEBUG_MID ? lgkApi.debugMid
                                    : lgkApi.debugMax;
}

// Writes one trace record. Call it behind the guard of `AM_TRACE`.
template <typename... Args>
void trace(int level, const char *file, const char *function, int line, const char *format, Args... args) {
    LgkObject *sink = traceLogger;
    if (sink != nullptr) {
        callTyped(debugCall(level), std::make_tuple(sink, file, function, line, format), args...);
    }
}

template <typename... Args>
void message(LgkApi::MessageCall call, int number, const char *format, Args... args) {
    LgkObject *sink = msgLogger;
    if (sink != nullptr) {
        callTyped(call, std::make_tuple(sink, catalogName(), messageSet(), number, format), args...);
    }
}

// Untranslated record at information level or above, to the trace log.
template <typename... Args>
void traceRecord(LgkApi::MessageCall call, const char *format, Args... args) {
    LgkObject *sink = traceLogger;
    if (sink != nullptr) {
        callTyped(call, std::make_tuple(sink, static_cast<const char *>(nullptr), 0, 0, format), args...);
    }
}

} // namespace lgk

// Numbered messages; `format` is the text when the catalogue has none.
template <typename... Args>
void messageInfo(int number, const char *format, Args... args) {
    lgk::message(lgkApi.info, number, format, args...);
}
template <typename... Args>
void messageWarn(int number, const char *format, Args... args) {
    lgk::message(lgkApi.warn, number, format, args...);
}
template <typename... Args>
void messageError(int number, const char *format, Args... args) {
    lgk::message(lgkApi.error, number, format, args...);
}
template <typename... Args>
void messageFatal(int number, const char *format, Args... args) {
    lgk::message(lgkApi.fatal, number, format, args...);
}

// Lines of the trace log that carry no number.
template <typename... Args>
void traceInfo(const char *format, Args... args) {
    lgk::traceRecord(lgkApi.info, format, args...);
}
template <typename... Args>
void traceWarn(const char *format, Args... args) {
    lgk::traceRecord(lgkApi.warn, format, args...);
}
template <typename... Args>
void traceError(const char *format, Args... args) {
    lgk::traceRecord(lgkApi.error, format, args...);
}

// AM_TRACE(ccTracer, LGK_DEBUG_MID, "Class::function( int arg )", "exit: %d", value):
// the arguments are evaluated only if the tracer is on at that level.
#define AM_TRACE(tracer, level, signature, ...)                                                              \
    do {                                                                                                     \
        if (isTraced(tracer, level)) {                                                                       \
            lgk::trace(level, __FILE_NAME__, signature, __LINE__, __VA_ARGS__);                              \
        }                                                                                                    \
    } while (false)

// "entry" now and "exit" on every way out of the scope.
class TraceScope {
public:
    TraceScope(LgkObject *moduleTracer, int traceLevel, const char *sourceFile, const char *declaration,
               int sourceLine)
        : tracer(moduleTracer), level(traceLevel), file(sourceFile), signature(declaration),
          line(sourceLine) {
        write("entry");
    }
    ~TraceScope() { write("exit"); }
    TraceScope(const TraceScope &) = delete;
    TraceScope &operator=(const TraceScope &) = delete;

private:
    void write(const char *text) const {
        if (isTraced(tracer, level)) {
            lgk::trace(level, file, signature, line, text);
        }
    }

    LgkObject *tracer;
    int level;
    const char *file;
    const char *signature;
    int line;
};

#define AM_TRACE_SCOPE(tracer, level, signature)                                                             \
    const TraceScope traceScope(tracer, level, __FILE_NAME__, signature, __LINE__)
