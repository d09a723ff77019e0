#include "decoder/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace ps {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

std::uint32_t byteAt(std::string_view text, std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
}

bool continues(std::string_view text, std::size_t from, std::size_t count) {
    for (std::size_t i = from; i < from + count; ++i) {
        if ((byteAt(text, i) & 0xC0) != 0x80) {
            return false;
        }
    }
    return true;
}

// The 16-bit unit of a three-byte sequence at i; 0 when there is none.
std::uint32_t threeByteUnit(std::string_view text, std::size_t i) {
    if ((byteAt(text, i) & 0xF0) != 0xE0 || !continues(text, i + 1, 2)) {
        return 0;
    }
    return (byteAt(text, i) & 0x0F) << 12 | (byteAt(text, i + 1) & 0x3F) << 6 | (byteAt(text, i + 2) & 0x3F);
}

struct Character {
    std::uint32_t code;
    std::size_t bytes;
};

constexpr Character kInvalid{kReplacement, 1};

Character threeBytes(std::string_view text, std::size_t i) {
    const std::uint32_t unit = threeByteUnit(text, i);
    if (unit < 0x800) {
        return kInvalid;
    }
    if (unit < 0xD800 || unit > 0xDFFF) {
        return {unit, 3};
    }
    const std::uint32_t low = threeByteUnit(text, i + 3);
    if (unit <= 0xDBFF && low >= 0xDC00 && low <= 0xDFFF) {
        return {0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00), 6};
    }
    return {kReplacement, 3};
}

// Texts that never were in the JVM (a host name, say) may be plain UTF-8, so its four-byte form is taken too.
Character fourBytes(std::string_view text, std::size_t i) {
    if (!continues(text, i + 1, 3)) {
        return kInvalid;
    }
    const std::uint32_t code = (byteAt(text, i) & 0x07) << 18 | (byteAt(text, i + 1) & 0x3F) << 12 |
                               (byteAt(text, i + 2) & 0x3F) << 6 | (byteAt(text, i + 3) & 0x3F);
    return code >= 0x10000 && code <= 0x10FFFF ? Character{code, 4} : kInvalid;
}

Character characterAt(std::string_view text, std::size_t i) {
    const std::uint32_t first = byteAt(text, i);
    if (first < 0x80) {
        return {first, 1};
    }
    if ((first & 0xE0) == 0xC0 && continues(text, i + 1, 1)) {
        const std::uint32_t code = (first & 0x1F) << 6 | (byteAt(text, i + 1) & 0x3F);
        return code == 0 || code >= 0x80 ? Character{code, 2} : kInvalid;
    }
    if ((first & 0xF0) == 0xE0) {
        return threeBytes(text, i);
    }
    return (first & 0xF8) == 0xF0 ? fourBytes(text, i) : kInvalid;
}

void append(std::string &out, std::uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | code >> 6);
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | code >> 12);
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | code >> 18);
        out += static_cast<char>(0x80 | (code >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

void appendEscaped(std::string &out, std::uint32_t code) {
    if (code == '"' || code == '\\') {
        out += '\\';
        out += static_cast<char>(code);
    } else if (code < 0x20 || (code >= 0x7F && code < 0xA0)) {
        char text[8];
        std::snprintf(text, sizeof text, "\\x%02X", static_cast<unsigned>(code));
        out += text;
    } else {
        append(out, code);
    }
}

} // namespace

std::string toUtf8(std::string_view text) {
    if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        return std::string(text);
    }
    std::string out;
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        append(out, character.code);
        i += character.bytes;
    }
    return out;
}

std::string toLine(std::string_view text, std::size_t columns) {
    std::string out;
    std::size_t column = 0;
    for (std::size_t i = 0; i < text.size(); ++column) {
        if (column == columns) {
            return out + "...";
        }
        const Character character = characterAt(text, i);
        appendEscaped(out, character.code);
        i += character.bytes;
    }
    return out;
}

std::string toHex(std::string_view bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (const char c : bytes) {
        out += digits[static_cast<unsigned char>(c) >> 4];
        out += digits[static_cast<unsigned char>(c) & 0x0F];
    }
    return out;
}

} // namespace ps
