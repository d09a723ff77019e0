// Framing of one connection's stream: initial block, then packets, each a header and exactly the records it
// counts. Takes the bytes in any pieces and owns their buffer, which never outgrows one record of the allowed
// length by more than kMinSpace and its read-ahead, and grows only with bytes that have come. One thread at a
// time. After Fatal the decoder stays Fatal.
#pragma once

#include "decoder/Record.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ps {

enum class Outcome { Record, NeedMore, Fatal };

struct DecodeError {
    std::uint64_t offset = 0; // in the stream, of the byte that cannot be right
    std::string message;      // one line: what, in which record, at which offsets
    std::string bytes;        // hex dump of the bytes around, the one at `offset` between angle brackets
};

class StreamDecoder {
public:
    static constexpr std::size_t kDefaultMaxRecordBytes = 4u << 20;
    static constexpr std::size_t kMinSpace = 64u << 10;

    explicit StreamDecoder(std::size_t maxRecordBytes = kDefaultMaxRecordBytes);

    struct Space {
        char *data;
        std::size_t size; // at least kMinSpace if next() has answered NeedMore since the last commit()
    };
    // Room for more bytes of the stream; invalidates all earlier records. commit() says how many were put
    // there.
    Space prepare();
    void commit(std::size_t count) { tail_ += count; }

    // prepare() and commit() for bytes that lie elsewhere. Answers how many it took; the rest has to wait
    // until next() has answered NeedMore.
    std::size_t feed(std::string_view bytes);

    // Between two reads a decoder needs only the bytes that wait. wake() takes over the memory of `spare`,
    // rest() gives it back, so that many streams share one buffer; one in the midst of a long record keeps
    // its own. Both invalidate all earlier records and spaces. Where they throw, nothing has changed.
    void wake(std::vector<char> &spare);
    void rest(std::vector<char> &spare);

    // The next record, or why there is none now.
    Outcome next(Record &record);

    const DecodeError &error() const { return error_; }
    // True where a stream may end: nothing received at all, or a packet complete and nothing after it.
    bool atBoundary() const;
    std::uint64_t bytes() const { return base_ + tail_; }
    std::uint64_t packets() const { return packets_; }
    std::uint64_t records() const { return records_; }
    std::size_t capacity() const { return buffer_.size(); }
    // Both initial records have come.
    bool isOpen() const { return state_ == State::PacketHeader || state_ == State::Records; }

private:
    enum class State { Init, J2eeInit, PacketHeader, Records, Failed };

    Outcome readFront(Record &record);
    const RecordSpec *specFor(std::uint64_t type) const;
    bool advance(Record &record);
    Outcome fail(std::size_t distance, const std::string &what);
    std::string dumpAround(std::size_t position) const;
    void moveTo(std::vector<char> &buffer);
    std::size_t buffered() const { return tail_ - head_; }

    const std::size_t maxRecordBytes_;
    State state_ = State::Init;
    std::vector<char> buffer_;
    std::size_t head_ = 0;   // first byte not yet decoded
    std::size_t tail_ = 0;   // one past the last byte received
    std::uint64_t base_ = 0; // stream offset of buffer_[0]
    std::size_t wanted_ = 1; // bytes that the front record has at least: below, another look is useless
    std::uint64_t left_ = 0; // records of the open packet still to come
    std::uint64_t packets_ = 0;
    std::uint64_t records_ = 0;
    DecodeError error_;
};

} // namespace ps
