// Bytes written by hand for the receiver's tests. Header-only, any thread.
#pragma once

#include "../support/Bytes.h"
#include "decoder/StreamDecoder.h"
#include "server/Render.h"

#include <functional>
#include <string>
#include <vector>

namespace pstest {

inline const std::string kInitBlock = bytes("000007D0 64 02 01 00000000A1B2C3D4 7F7F"
                                            "65 C8 09 08 07 0005'agent' 0011'<NO CLUSTER NAME>' 0004'node'"
                                            "0006'server' 00001F90 7F7F");

inline std::string u32(std::size_t value) {
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8) {
        out += static_cast<char>(value >> shift);
    }
    return out;
}

inline std::string packet(const std::vector<std::string> &records) {
    std::string out = std::string(1, '\0') + u32(records.size()) + "\x7F\x7F";
    for (const std::string &record : records) {
        out += record;
    }
    return out;
}

// A record of `type` with the common prefix, `payload` between prefix and level, and level 1.
inline std::string record(int type, std::uint32_t thread, int depth, std::uint64_t micros,
                          const std::string &payload = std::string()) {
    return static_cast<char>(type) + u32(thread) + static_cast<char>(depth) + u32(micros / 1000000) +
           u32(micros % 1000000) + std::string(8, '\0') + payload + "\x01\x7F\x7F";
}

inline std::string httpPayload(const std::string &url) {
    return std::string("\0\0\0\0\0\0", 6) + static_cast<char>(url.size()) + url + std::string(2, '\0');
}

struct Decoded {
    std::vector<std::string> lines; // JSON
    bool fatal = false;
    bool atBoundary = false;
    ps::DecodeError error;
    std::size_t capacity = 0;
};

// Decodes `stream`, fed in pieces whose sizes `pieceSize` chooses.
inline Decoded decode(
    const std::string &stream, const std::function<std::size_t()> &pieceSize = [] { return 1u << 20; },
    std::size_t maxRecordBytes = ps::StreamDecoder::kDefaultMaxRecordBytes) {
    ps::StreamDecoder decoder(maxRecordBytes);
    Decoded decoded;
    ps::Record record;
    std::string_view left = stream;
    while (!left.empty() && !decoded.fatal) {
        left.remove_prefix(decoder.feed(left.substr(0, pieceSize())));
        ps::Outcome outcome;
        while ((outcome = decoder.next(record)) == ps::Outcome::Record) {
            decoded.lines.push_back(ps::recordJson(7, record).dump());
        }
        decoded.fatal = outcome == ps::Outcome::Fatal;
    }
    decoded.atBoundary = decoder.atBoundary();
    decoded.error = decoder.error();
    decoded.capacity = decoder.capacity();
    return decoded;
}

} // namespace pstest
