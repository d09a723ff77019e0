// The bytes of paths, options and environment variables as characters of Java strings, and back. The bytes
// are UTF-8. A byte that is part of no valid character becomes a lone surrogate, U+DC80 to U+DCFF, and that
// one the same byte again, so that any text comes back as it went. Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t MAX_PLATFORM_BYTES = 3; // of one UTF-16 unit

// Writes at most `length` units; the number written.
size_t platformToUtf16(const char *text, size_t length, uint16_t *units);

// Writes at most `count` times MAX_PLATFORM_BYTES bytes, no terminator; the number written. A NUL among the
// units becomes two bytes, C0 80, since it cannot stand in a path. Other lone surrogates become U+FFFD.
size_t utf16ToPlatform(const uint16_t *units, size_t count, char *text);

// True if no byte is above 127.
bool isAscii(const char *text);

// True if all bytes belong to valid characters.
bool isUtf8(const char *text);
