#include "decoder/StreamDecoder.h"

#include "decoder/RecordReader.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace ps {
namespace {

constexpr std::size_t kContext = 32; // decoded bytes kept for the dump of an error behind them

} // namespace

StreamDecoder::StreamDecoder(std::size_t maxRecordBytes)
    : maxRecordBytes_(std::max<std::size_t>(maxRecordBytes, 1024)) {}

StreamDecoder::Space StreamDecoder::prepare() {
    const std::size_t drop = head_ > kContext ? head_ - kContext : 0;
    if (drop > 0 && buffer_.size() - tail_ < kMinSpace) {
        std::memmove(buffer_.data(), buffer_.data() + drop, tail_ - drop);
        head_ -= drop;
        tail_ -= drop;
        base_ += drop;
        if (buffer_.size() > 8 * kMinSpace && tail_ < kMinSpace) { // a giant has passed: give its memory back
            buffer_.resize(2 * kMinSpace);
            buffer_.shrink_to_fit();
        }
    }
    if (buffer_.size() - tail_ < kMinSpace) {
        const std::size_t wanted = std::max(2 * buffer_.size(), tail_ + 2 * kMinSpace);
        buffer_.resize(std::min(wanted, maxRecordBytes_ + kContext + 2 * kMinSpace));
    }
    return {buffer_.data() + tail_, buffer_.size() - tail_};
}

void StreamDecoder::wake(std::vector<char> &spare) {
    if (buffer_.size() < 2 * kMinSpace) {
        spare.resize(std::max(spare.size(), tail_ + 2 * kMinSpace));
        moveTo(spare);
    }
}

void StreamDecoder::rest(std::vector<char> &spare) {
    const std::size_t drop = head_ > kContext ? head_ - kContext : 0;
    if (tail_ - drop > kMinSpace) {
        return;
    }
    std::vector<char> kept(tail_ - drop);
    moveTo(kept);
    if (kept.size() <= 8 * kMinSpace) { // else a giant has passed
        spare.swap(kept);
    }
}

// Goes on in `buffer`, which has room for what is still of use, and leaves the old one there.
void StreamDecoder::moveTo(std::vector<char> &buffer) {
    const std::size_t drop = head_ > kContext ? head_ - kContext : 0;
    std::copy(buffer_.data() + drop, buffer_.data() + tail_, buffer.data());
    buffer_.swap(buffer);
    head_ -= drop;
    tail_ -= drop;
    base_ += drop;
}

std::size_t StreamDecoder::feed(std::string_view bytes) {
    const Space space = prepare();
    const std::size_t count = std::min(space.size, bytes.size());
    std::memcpy(space.data, bytes.data(), count);
    commit(count);
    return count;
}

Outcome StreamDecoder::next(Record &record) {
    for (;;) {
        if (state_ == State::Failed) {
            return Outcome::Fatal;
        }
        if (buffered() < wanted_) {
            return Outcome::NeedMore;
        }
        const Outcome outcome = readFront(record);
        if (outcome != Outcome::Record || advance(record)) {
            return outcome;
        }
    }
}

Outcome StreamDecoder::readFront(Record &record) {
    RecordReader reader(buffer_.data() + head_, buffer_.data() + tail_, maxRecordBytes_);
    std::uint64_t type = 0;
    if (!reader.readType(state_ == State::Init ? 4 : 1, type)) {
        wanted_ = reader.needed;
        return Outcome::NeedMore;
    }
    record.spec = specFor(type);
    if (record.spec == nullptr) {
        return fail(0, "unknown record type " + std::to_string(type));
    }
    if (reader.readFields(record)) {
        record.offset = base_ + head_;
        record.bytes = {buffer_.data() + head_, reader.consumed()};
        head_ += reader.consumed();
        wanted_ = 1;
        return Outcome::Record;
    }
    if (reader.fault == nullptr) {
        wanted_ = reader.needed;
        return Outcome::NeedMore;
    }
    std::string what = std::string(reader.fault) + " in " + record.spec->name;
    if (*reader.faultField != '\0') {
        what += std::string(", field ") + reader.faultField;
    }
    return fail(reader.faultAt, what);
}

const RecordSpec *StreamDecoder::specFor(std::uint64_t type) const {
    const RecordSpec *expected = nullptr;
    switch (state_) {
    case State::Init:
        expected = &initSpec();
        break;
    case State::J2eeInit:
        expected = &j2eeInitSpec();
        break;
    case State::PacketHeader:
        expected = &packetHeaderSpec();
        break;
    default:
        return findSpec(static_cast<std::uint8_t>(type));
    }
    return expected->type == type ? expected : nullptr;
}

// Moves on behind a whole record; false when it was a packet header, which is not handed out.
bool StreamDecoder::advance(Record &record) {
    if (state_ == State::PacketHeader) {
        left_ = record.values[0].number;
        ++packets_;
        state_ = State::Records;
        return false;
    }
    if (state_ == State::Init) {
        state_ = State::J2eeInit;
    } else if (state_ == State::J2eeInit || --left_ == 0) {
        state_ = State::PacketHeader;
    }
    record.seq = ++records_;
    record.packet = packets_;
    return true;
}

bool StreamDecoder::atBoundary() const {
    return buffered() == 0 && (state_ == State::PacketHeader || bytes() == 0);
}

Outcome StreamDecoder::fail(std::size_t distance, const std::string &what) {
    static const char *const expected[] = {"initial record", "second initial record", "packet header",
                                           "record"};
    error_.offset = base_ + head_ + distance;
    error_.message = what + " at offset " + std::to_string(error_.offset) + " (" +
                     expected[static_cast<std::size_t>(state_)] + " began at " +
                     std::to_string(base_ + head_) + ", packet " + std::to_string(packets_) + ")";
    error_.bytes = dumpAround(head_ + distance);
    state_ = State::Failed;
    return Outcome::Fatal;
}

std::string StreamDecoder::dumpAround(std::size_t position) const {
    const std::size_t from = position > kContext ? position - kContext : 0;
    const std::size_t to = std::min(position + kContext, tail_);
    std::string dump;
    char text[8];
    for (std::size_t i = from; i < to; ++i) {
        std::snprintf(text, sizeof text, i == position ? "<%02X> " : "%02X ",
                      static_cast<unsigned>(static_cast<unsigned char>(buffer_[i])));
        dump += text;
    }
    return dump;
}

} // namespace ps
