#include "lgkit/lgkit.h"

#include "LogWorker.h"
#include "ObjectStore.h"
#include "TypedFormat.h"
#include "lgkit/nlsm.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <spdlog/details/os.h>

namespace {

using namespace lgkit;

constexpr std::chrono::milliseconds exitLimit{2000}; // what a stuck disk may cost the exit of the server

struct Severity {
    int level;
    const char *word;
};

constexpr Severity debugMax{1000, "DEBUG_MAX"};
constexpr Severity debugMid{2000, "DEBUG_MID"};
constexpr Severity debugMin{3000, "DEBUG_MIN"};
constexpr Severity info{4000, "INFO"};
constexpr Severity warn{5000, "WARN"};
constexpr Severity error{errorLevel, "ERROR"};
constexpr Severity fatal{errorLevel, "FATAL"};

// Nothing thrown below a C operation leaves it: the callers know no exceptions.
template <typename Result, typename Operation>
Result guarded(Result otherwise, Operation operation) noexcept {
    try {
        return operation();
    } catch (...) {
        return otherwise;
    }
}

template <typename Operation>
void guarded(Operation operation) noexcept {
    guarded(0, [&] {
        operation();
        return 0;
    });
}

// One record, one line: text that came in with a request cannot pass for a record of its own.
void makeOneLine(std::string &text) {
    for (char &c : text) {
        const unsigned char code = static_cast<unsigned char>(c);
        c = (code < ' ' && c != '\t') || code == 0x7f ? ' ' : c;
    }
    text.erase(text.find_last_not_of(" \t") + 1);
}

void post(LgkObject &logger, int level, std::string &&text) {
    LogWorker *worker = LogWorker::running();
    if (worker == nullptr || !logger.isLogger()) {
        return;
    }
    makeOneLine(text);
    Record record;
    record.logger = &logger;
    record.level = level;
    record.thread = spdlog::details::os::thread_id();
    record.time = std::chrono::system_clock::now();
    record.text = std::move(text);
    worker->post(std::move(record));
}

void logTrace(LgkObject *object, Severity severity, const char *file, const char *function, int line,
              const char *format, va_list arguments) {
    if (!LgkIsLoggable(object, severity.level)) {
        return;
    }
    guarded([&] {
        std::string text = severity.word;
        appendFormatted(
            text, " %s:%d %s ",
            {{LGK_ARG_STRING, 0, file}, {LGK_ARG_INT, line, nullptr}, {LGK_ARG_STRING, 0, function}});
        appendFormatted(text, format != nullptr ? format : "", collectArguments(arguments));
        post(*object, severity.level, std::move(text));
    });
}

// Catalogue, set and number, all of them 0 for a text that is not translated.
struct MessageKey {
    const char *catalog;
    int set;
    int number;
};

void logMessage(LgkObject *object, Severity severity, MessageKey key, const char *format, va_list arguments) {
    if (!LgkIsLoggable(object, severity.level)) {
        return;
    }
    guarded([&] {
        std::string text = severity.word;
        text += ' ';
        if (key.number != 0) {
            text += std::to_string(key.number) + ' ';
        }
        const char *translated = nls_message(key.catalog, key.set, key.number, format);
        appendFormatted(text, translated != nullptr ? translated : "", collectArguments(arguments));
        post(*object, severity.level, std::move(text));
    });
}

void reportBrokenLines(const char *path, const std::vector<int> &lines) {
    if (!lines.empty()) {
        std::fprintf(stderr, "lgkit: %s: %zu line(s) ignored, the first is line %d\n", path, lines.size(),
                     *std::min_element(lines.begin(), lines.end()));
    }
}

int openToolkit(const char *path) {
    std::optional<PropertyFile> file = readPropertyFile(path);
    if (!file || file->properties.empty()) {
        return 0;
    }
    ObjectStore &store = ObjectStore::instance();
    store.apply(*file);
    const LgkObject *toolkit = store.find("toolkit");
    LogWorker::start(toolkit != nullptr ? toolkit->number("queueSize", 8192, 16, 65536) : 8192);
    reportBrokenLines(path, file->brokenLines);
    return 1;
}

// Runs when the process exits in good order, other threads still running.
__attribute__((destructor)) void drainAtExit() {
    guarded([] {
        if (LogWorker *worker = LogWorker::running()) {
            worker->drain(exitLimit);
        }
    });
}

} // namespace

int LgkOpenToolkit(const char *path) {
    return guarded(0, [&] { return path != nullptr ? openToolkit(path) : 0; });
}

LgkObject *LgkGetObject(const char *name, const char *typeName) {
    return guarded<LgkObject *>(nullptr, [&]() -> LgkObject * {
        LgkObject *object = name != nullptr ? ObjectStore::instance().find(name) : nullptr;
        return object != nullptr && (typeName == nullptr || object->type == typeName) ? object : nullptr;
    });
}

char *LgkGetObjProp(LgkObject *object, const char *property, int *foundFlag) {
    char *copy = guarded<char *>(nullptr, [&]() -> char * {
        if (object == nullptr || property == nullptr) {
            return nullptr;
        }
        const std::optional<std::string> value = object->get(property);
        return value ? strdup(value->c_str()) : nullptr;
    });
    if (foundFlag != nullptr) {
        *foundFlag = copy != nullptr ? 1 : 0;
    }
    return copy;
}

int LgkSetObjProp(LgkObject *object, const char *property, const char *value) {
    return guarded(0, [&] {
        const bool complete = object != nullptr && property != nullptr && value != nullptr;
        return complete && object->set(property, value) ? 1 : 0;
    });
}

int LgkSetObjPropInt(LgkObject *object, const char *property, int value) {
    return guarded(0, [&] { return LgkSetObjProp(object, property, std::to_string(value).c_str()); });
}

void LgkReleaseObject(LgkObject *) {}

void LgkMemoryFree(void *pointer) {
    std::free(pointer);
}

int LgkIsLoggable(const LgkObject *object, int level) {
    return object != nullptr && object->lets(level) ? 1 : 0;
}

// A variadic C operation cannot be a table entry or a template: these two make one for each severity.
#define DEFINE_TRACE_OPERATION(operation, severity)                                                          \
    void operation(LgkObject *object, const char *file, const char *function, int line, const char *format,  \
                   ...) {                                                                                    \
        va_list arguments;                                                                                   \
        va_start(arguments, format);                                                                         \
        logTrace(object, severity, file, function, line, format, arguments);                                 \
        va_end(arguments);                                                                                   \
    }

DEFINE_TRACE_OPERATION(LgkLogDebugMin, debugMin)
DEFINE_TRACE_OPERATION(LgkLogDebugMid, debugMid)
DEFINE_TRACE_OPERATION(LgkLogDebugMax, debugMax)

#define DEFINE_MESSAGE_OPERATION(operation, severity)                                                        \
    void operation(LgkObject *object, const char *catalog, int set, int number, const char *format, ...) {   \
        va_list arguments;                                                                                   \
        va_start(arguments, format);                                                                         \
        logMessage(object, severity, {catalog, set, number}, format, arguments);                             \
        va_end(arguments);                                                                                   \
    }

DEFINE_MESSAGE_OPERATION(LgkLogInfo, info)
DEFINE_MESSAGE_OPERATION(LgkLogWarn, warn)
DEFINE_MESSAGE_OPERATION(LgkLogError, error)
DEFINE_MESSAGE_OPERATION(LgkLogFatal, fatal)

void LgkLogText(LgkObject *object, const char *text, int) {
    if (object != nullptr && text != nullptr) {
        guarded([&] { post(*object, info.level, std::string(text, strnlen(text, maxRecordBytes))); });
    }
}

void LgkSetIncidentFunction(LgkIncidentFunction function) {
    RecordWriter::incidentFunction.store(function, std::memory_order_relaxed);
}
