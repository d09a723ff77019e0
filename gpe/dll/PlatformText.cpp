#include "PlatformText.h"

#include <cstring>

namespace {

constexpr uint32_t NO_CHARACTER = UINT32_MAX;
constexpr uint32_t REPLACEMENT = 0xFFFD;
constexpr uint16_t ESCAPED_BYTE = 0xDC00; // plus the byte
constexpr uint32_t SURROGATES = 0xD800;
constexpr uint32_t LOW_SURROGATES = 0xDC00;
constexpr uint32_t SURROGATES_END = 0xE000;
constexpr uint32_t SUPPLEMENTARY = 0x10000;
constexpr uint32_t CHARACTERS_END = 0x110000;

// The characters that take `length` bytes begin at `first`; a shorter form would do for those before.
struct Form {
    uint8_t mask, mark;
    size_t length;
    uint32_t first;
};
constexpr Form FORMS[] = {
    {0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, SUPPLEMENTARY}};

bool isSurrogate(uint32_t character) {
    return character >= SURROGATES && character < SURROGATES_END;
}

// The character that begins at `text`, and its length; NO_CHARACTER, of length 1, if none does.
uint32_t decode(const unsigned char *text, size_t left, size_t *length) {
    *length = 1;
    for (const Form &form : FORMS) {
        if ((text[0] & form.mask) != form.mark || form.length > left) {
            continue;
        }
        uint32_t character = text[0] & static_cast<uint8_t>(~form.mask);
        for (size_t i = 1; i < form.length; ++i) {
            if ((text[i] & 0xC0) != 0x80) {
                return NO_CHARACTER;
            }
            character = character << 6 | (text[i] & 0x3FU);
        }
        if (character < form.first || character >= CHARACTERS_END || isSurrogate(character)) {
            return NO_CHARACTER;
        }
        *length = form.length;
        return character;
    }
    return NO_CHARACTER;
}

size_t encode(uint32_t character, char *text) {
    const Form *form = FORMS;
    while (form->length < 4 && character >= form[1].first) {
        ++form;
    }
    for (size_t i = form->length; i-- > 1; character >>= 6) {
        text[i] = static_cast<char>(0x80 | (character & 0x3F));
    }
    text[0] = static_cast<char>(form->mark | character);
    return form->length;
}

// The character that begins at `units`, and how many of them it takes; a lone surrogate is itself.
uint32_t join(const uint16_t *units, size_t left, size_t *taken) {
    const uint32_t one = units[0];
    const bool high = one >= SURROGATES && one < LOW_SURROGATES;
    if (high && left > 1 && units[1] >= LOW_SURROGATES && units[1] < SURROGATES_END) {
        *taken = 2;
        return SUPPLEMENTARY + ((one - SURROGATES) << 10) + (units[1] - LOW_SURROGATES);
    }
    *taken = 1;
    return one;
}

} // namespace

size_t platformToUtf16(const char *text, size_t length, uint16_t *units) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(text);
    size_t written = 0;
    for (size_t at = 0, taken = 0; at < length; at += taken) {
        const uint32_t character = decode(bytes + at, length - at, &taken);
        if (character == NO_CHARACTER) {
            units[written++] = static_cast<uint16_t>(ESCAPED_BYTE + bytes[at]);
        } else if (character < SUPPLEMENTARY) {
            units[written++] = static_cast<uint16_t>(character);
        } else {
            units[written++] = static_cast<uint16_t>(SURROGATES + ((character - SUPPLEMENTARY) >> 10));
            units[written++] = static_cast<uint16_t>(LOW_SURROGATES + (character & 0x3FF));
        }
    }
    return written;
}

size_t utf16ToPlatform(const uint16_t *units, size_t count, char *text) {
    size_t written = 0;
    for (size_t at = 0, taken = 0; at < count; at += taken) {
        const uint32_t character = join(units + at, count - at, &taken);
        if (character == 0) {
            text[written++] = static_cast<char>(0xC0);
            text[written++] = static_cast<char>(0x80);
        } else if (character >= ESCAPED_BYTE + 0x80U && character <= ESCAPED_BYTE + 0xFFU) {
            text[written++] = static_cast<char>(character - ESCAPED_BYTE);
        } else {
            written += encode(isSurrogate(character) ? REPLACEMENT : character, text + written);
        }
    }
    return written;
}

bool isAscii(const char *text) {
    for (; *text != '\0'; ++text) {
        if (static_cast<signed char>(*text) < 0) {
            return false;
        }
    }
    return true;
}

bool isUtf8(const char *text) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(text);
    const size_t length = strlen(text);
    for (size_t at = 0, taken = 0; at < length; at += taken) {
        if (decode(bytes + at, length - at, &taken) == NO_CHARACTER) {
            return false;
        }
    }
    return true;
}
