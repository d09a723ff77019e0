// A text that is put together in a buffer of fixed size, without the heap. It is always terminated; what does
// not fit is cut.
#pragma once

#include <cstddef>
#include <cstring>

template <size_t Room>
class FixedText {
public:
    // The parts one after another; a null part is an empty one.
    template <typename... Parts>
    explicit FixedText(const Parts *...parts) {
        (add(parts), ...);
    }

    FixedText &add(const char *text) { return text != nullptr ? add(text, strlen(text)) : *this; }
    FixedText &add(const char *text, size_t length) {
        const size_t kept = length < Room - 1 - used ? length : Room - 1 - used;
        memcpy(bytes + used, text, kept);
        used += kept;
        bytes[used] = '\0';
        cut = cut || kept < length;
        return *this;
    }

    const char *get() const { return bytes; }
    size_t size() const { return used; }
    bool isCut() const { return cut; }

private:
    size_t used = 0;
    bool cut = false;
    char bytes[Room] = {};
};
