#include "TypedFormat.h"

#include "lgkit/lgkit.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace lgkit {

namespace {

constexpr size_t maxArguments = 32;
constexpr int maxWidth = 1000; // of a field; a catalogue's "%999999999d" must not cost memory

struct Conversion {
    std::string flags;
    int position = -1; // zero-based, -1 takes the next argument
    int width = 0;
    int precision = -1; // -1 if not given
    char kind = 0;
};

bool isIn(char c, const char *set) {
    return c != '\0' && std::strchr(set, c) != nullptr;
}

int readNumber(const char *&at) {
    int value = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        value = std::min(value * 10 + (*at - '0'), maxWidth);
    }
    return value;
}

// Reads what follows a '%'. On success `at` stands behind the conversion, else where it stood.
bool readConversion(const char *&at, Conversion &conversion) {
    const char *next = at;
    const int position = readNumber(next);
    if (*next == '$' && next != at) {
        conversion.position = position;
        ++next;
    } else {
        next = at;
    }
    for (; isIn(*next, "-+ #0"); ++next) {
        if (conversion.flags.find(*next) == std::string::npos) {
            conversion.flags += *next;
        }
    }
    conversion.width = readNumber(next);
    if (*next == '.') {
        conversion.precision = readNumber(++next);
    }
    while (isIn(*next, "hlqjzt")) {
        ++next;
    }
    if (!isIn(*next, "diuxXocsfeEgG")) {
        return false;
    }
    conversion.kind = *next;
    at = next + 1;
    return true;
}

void appendText(std::string &out, const Conversion &conversion, const char *text) {
    const size_t limit = conversion.precision >= 0 ? conversion.precision : maxRecordBytes;
    const size_t length = strnlen(text, limit);
    const size_t width = conversion.width;
    const size_t padding = width > length ? width - length : 0;
    const bool left = conversion.flags.find('-') != std::string::npos;
    out.append(left ? 0 : padding, ' ').append(text, length).append(left ? padding : 0, ' ');
}

// The format handed to snprintf is made here from checked pieces; the catalogue's own never reaches it.
template <typename Value>
void appendNumber(std::string &out, const Conversion &conversion, const char *length, char kind,
                  Value value) {
    const std::string format = "%" + conversion.flags + "*.*" + length + kind;
    char text[2 * maxWidth + 64];
    const int written =
        std::snprintf(text, sizeof(text), format.c_str(), conversion.width, conversion.precision, value);
    if (written > 0) {
        out.append(text, std::min<size_t>(written, sizeof(text) - 1));
    }
}

unsigned long asUnsigned(const TypedArgument &argument) {
    return argument.code == LGK_ARG_INT ? static_cast<unsigned>(argument.number)
                                        : static_cast<unsigned long>(argument.number);
}

void appendArgument(std::string &out, const Conversion &conversion, const TypedArgument &argument) {
    if (argument.code == LGK_ARG_STRING) {
        appendText(out, conversion, argument.text != nullptr ? argument.text : "(null)");
    } else if (conversion.kind == 'c') {
        const char character[] = {static_cast<char>(argument.number), '\0'};
        appendText(out, conversion, character);
    } else if (isIn(conversion.kind, "uxXo")) {
        appendNumber(out, conversion, "l", conversion.kind, asUnsigned(argument));
    } else if (isIn(conversion.kind, "feEgG")) {
        appendNumber(out, conversion, "", conversion.kind, static_cast<double>(argument.number));
    } else {
        Conversion decimal = conversion;
        decimal.precision =
            conversion.kind == 's' ? -1 : conversion.precision; // a cut of text, not a count of digits
        appendNumber(out, decimal, "l", 'd', argument.number);
    }
}

} // namespace

std::vector<TypedArgument> collectArguments(va_list arguments) {
    std::vector<TypedArgument> collected;
    while (collected.size() < maxArguments) {
        TypedArgument argument;
        argument.code = va_arg(arguments, int);
        if (argument.code == LGK_ARG_INT) {
            argument.number = va_arg(arguments, int);
        } else if (argument.code == LGK_ARG_LONG) {
            argument.number = va_arg(arguments, long);
        } else if (argument.code == LGK_ARG_STRING) {
            argument.text = va_arg(arguments, const char *);
        } else {
            break;
        }
        collected.push_back(argument);
    }
    return collected;
}

void appendFormatted(std::string &out, const char *format, const std::vector<TypedArgument> &arguments) {
    size_t next = 0;
    for (const char *at = format; *at != '\0' && out.size() < maxRecordBytes;) {
        const char *percent = at + std::strcspn(at, "%");
        out.append(at, std::min<size_t>(percent - at, maxRecordBytes));
        at = percent;
        Conversion conversion;
        if (*at == '\0') {
            break;
        }
        if (!readConversion(++at, conversion)) {
            out += '%';
            at += *at == '%' ? 1 : 0;
            continue;
        }
        const size_t index = conversion.position >= 0 ? conversion.position : next++;
        if (index < arguments.size()) {
            appendArgument(out, conversion, arguments[index]);
        } else {
            out += "(missing)";
        }
    }
    out.resize(std::min(out.size(), maxRecordBytes));
}

} // namespace lgkit
