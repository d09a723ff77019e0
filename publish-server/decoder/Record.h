// One decoded record. All texts are views into the buffer of the StreamDecoder that produced it and are valid
// until that decoder is asked for the next buffer space. A record is reused from call to call: only the
// members that its layout names are set.
#pragma once

#include "decoder/Layout.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace ps {

struct Value {
    std::uint64_t number = 0; // of Number; count of Strs and Entries; length of Size
    std::string_view text;    // of Str, Name, Literal, Blob; the raw bytes of Numbers, Strs, Entries
};

struct Record {
    const RecordSpec *spec = nullptr;
    std::uint64_t offset = 0; // of its first byte in the stream
    std::uint64_t seq = 0;    // 1 for the first record of the stream, the initial records included
    std::uint64_t packet = 0; // 1 for the first packet, 0 for the initial records
    std::string_view bytes;

    std::uint32_t threadId = 0;
    std::uint32_t timeSec = 0;
    std::uint32_t timeUSec = 0;
    std::uint64_t cpuTime = 0; // nanoseconds
    std::uint8_t depth = 0;    // low byte of the nesting depth
    std::uint8_t level = 0;
    std::array<Value, kMaxFields> values; // parallel to spec->fields
};

// Big-endian number of `width` bytes at `at`.
inline std::uint64_t bigEndian(const char *at, std::size_t width) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < width; ++i) {
        number = number << 8 | static_cast<unsigned char>(at[i]);
    }
    return number;
}

} // namespace ps
