#include "RecordedLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

namespace {

RecordedLog *current = nullptr;
int lowestLevel = 0;
char anyObject = 0;

Relaxed<LgkObject *> *const objects[] = {&msgLogger, &naTracer, &eaTracer,   &caTracer,
                                         &ccTracer,  &gcTracer, &traceLogger};

// The type code that a conversion needs.
int codeFor(const char *conversion) {
    const char type = conversion[1 + strspn(conversion + 1, ".0123456789")];
    return type == 's' ? 507 : type == 'l' ? 503 : 502;
}

std::string nextArgument(va_list &args, const char *conversion) {
    const int code = va_arg(args, int);
    EXPECT_EQ(codeFor(conversion), code) << "argument of another kind than " << conversion;
    switch (code) {
    case 502:
        return std::to_string(va_arg(args, int));
    case 503:
        return std::to_string(va_arg(args, long));
    case 507:
        return va_arg(args, const char *);
    default:
        ADD_FAILURE() << "no argument for " << conversion;
        return "";
    }
}

std::string finished(const char *format, va_list &args) {
    std::string text;
    for (const char *at = format; *at != '\0'; ++at) {
        if (*at != '%') {
            text += *at;
            continue;
        }
        text += nextArgument(args, at);
        at += strcspn(at, "dsux");
    }
    const bool ended = va_arg(args, int) == 0;
    EXPECT_TRUE(ended || strchr(format, '%') == nullptr) << "more arguments than conversions: " << format;
    return text;
}

template <int LEVEL>
void recordDebug(LgkObject *, const char *, const char *, int, const char *format, ...) {
    va_list args;
    va_start(args, format);
    current->keep({LEVEL, 0, finished(format, args), format});
    va_end(args);
}

template <int LEVEL>
void recordMessage(LgkObject *, const char *, int, int number, const char *format, ...) {
    va_list args;
    va_start(args, format);
    current->keep({LEVEL, number, finished(format, args), format});
    va_end(args);
}

} // namespace

RecordedLog::RecordedLog(int traceLevel) : oldApi(lgkApi) {
    current = this;
    lowestLevel = traceLevel;
    lgkApi.isLoggable = [](const LgkObject *, int level) { return level >= lowestLevel ? 1 : 0; };
    lgkApi.debugMax = recordDebug<LGK_DEBUG_MAX>;
    lgkApi.debugMid = recordDebug<LGK_DEBUG_MID>;
    lgkApi.debugMin = recordDebug<LGK_DEBUG_MIN>;
    lgkApi.info = recordMessage<LGK_INFO>;
    lgkApi.warn = recordMessage<LGK_WARN>;
    lgkApi.error = recordMessage<LGK_ERROR>;
    lgkApi.fatal = recordMessage<LGK_ERROR>;
    lgkApi.text = [](LgkObject *, const char *text, int) { current->keep({0, 0, text, text}); };
    for (Relaxed<LgkObject *> *object : objects) {
        oldObjects.push_back(object->get());
        *object = reinterpret_cast<LgkObject *>(&anyObject);
    }
    noteTraceLevels();
}

RecordedLog::~RecordedLog() {
    for (size_t i = 0; i < oldObjects.size(); ++i) {
        *objects[i] = oldObjects[i];
    }
    lgkApi = oldApi;
    noteTraceLevels();
    current = nullptr;
}

void RecordedLog::keep(Line line) {
    const std::lock_guard<std::mutex> guard(mutex);
    kept.push_back(std::move(line));
}

std::vector<RecordedLog::Line> RecordedLog::lines() const {
    const std::lock_guard<std::mutex> guard(mutex);
    return kept;
}

std::vector<std::string> RecordedLog::texts() const {
    std::vector<std::string> result;
    for (const Line &line : lines()) {
        result.push_back(line.text);
    }
    return result;
}

std::vector<int> RecordedLog::numbers() const {
    std::vector<int> result;
    for (const Line &line : lines()) {
        if (line.number != 0) {
            result.push_back(line.number);
        }
    }
    return result;
}

bool RecordedLog::has(const std::string &text) const {
    return countIf([&](const Line &line) { return line.text == text; }) > 0;
}

int RecordedLog::count(const std::string &format) const {
    return countIf([&](const Line &line) { return line.format == format; });
}

int RecordedLog::messages(int number) const {
    return countIf([&](const Line &line) { return line.number == number; });
}

void RecordedLog::clear() {
    const std::lock_guard<std::mutex> guard(mutex);
    kept.clear();
}
