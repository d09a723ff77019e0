#include "decoder/RecordReader.h"

namespace ps {
namespace {

constexpr char kSizeMismatch[] = "length does not fit its content";

} // namespace

bool RecordReader::readFields(Record &record) {
    for (std::size_t i = 0; i < record.spec->fieldCount; ++i) {
        const Field &field = record.spec->fields[i];
        if (!readField(field, record, record.values[i])) {
            faultField = field.name;
            return false;
        }
    }
    return endOfRecord();
}

bool RecordReader::readField(const Field &field, Record &record, Value &value) {
    switch (field.kind) {
    case Kind::Prefix:
        return prefix(record);
    case Kind::ThreadId:
        return thread(record);
    case Kind::Time:
        return time(record);
    case Kind::Level:
        return level(record);
    case Kind::Number:
        return ranged(field, value);
    case Kind::Numbers:
        return raw(field.low * field.width, value);
    case Kind::Str:
        return counted(value, field.high);
    case Kind::Blob:
        return counted(value);
    case Kind::Name:
        return name(value);
    case Kind::Literal:
        return literal(value);
    case Kind::Size:
        return size(value);
    case Kind::SizeEnd:
        return sizeEnd();
    case Kind::Strs:
        return strs(value);
    case Kind::Entries:
        return entries(value, kEntryBytes);
    case Kind::Ids:
        return entries(value, 4);
    case Kind::Methods:
        return methods(value);
    }
    return wrong("layout of unknown kind", at_);
}

bool RecordReader::prefix(Record &record) {
    const char *from = nullptr;
    if (!take(21, from)) {
        return false;
    }
    record.threadId = static_cast<std::uint32_t>(bigEndian(from, 4));
    record.depth = static_cast<std::uint8_t>(from[4]);
    record.timeSec = static_cast<std::uint32_t>(bigEndian(from + 5, 4));
    record.timeUSec = static_cast<std::uint32_t>(bigEndian(from + 9, 4));
    record.cpuTime = bigEndian(from + 13, 8);
    return true;
}

bool RecordReader::thread(Record &record) {
    std::uint64_t id = 0;
    if (!number(4, id)) {
        return false;
    }
    record.threadId = static_cast<std::uint32_t>(id);
    return true;
}

bool RecordReader::time(Record &record) {
    std::uint64_t both = 0;
    if (!number(8, both)) {
        return false;
    }
    record.timeSec = static_cast<std::uint32_t>(both >> 32);
    record.timeUSec = static_cast<std::uint32_t>(both);
    return true;
}

bool RecordReader::level(Record &record) {
    std::uint64_t level = 0;
    if (!number(1, level)) {
        return false;
    }
    record.level = static_cast<std::uint8_t>(level);
    return true;
}

bool RecordReader::ranged(const Field &field, Value &value) {
    const char *from = at_;
    if (!number(field.width, value.number)) {
        return false;
    }
    lastNumber_ = value.number;
    const bool allowed = value.number >= field.low && value.number <= field.high;
    return allowed || (field.orZero && value.number == 0) || wrong("value out of range", from);
}

bool RecordReader::counted(Value &value, std::uint64_t longest, const char *tooLong) {
    const char *from = at_;
    std::uint64_t length = 0;
    if (!number(2, length)) {
        return false;
    }
    return length <= longest ? raw(length, value) : wrong(tooLong, from);
}

bool RecordReader::raw(std::size_t count, Value &value) {
    const char *from = nullptr;
    if (!take(count, from)) {
        return false;
    }
    value.text = {from, count};
    return true;
}

bool RecordReader::name(Value &value) {
    return counted(value, lastNumber_ == 1 ? kAny : 0, "a name although the names flag is 0");
}

bool RecordReader::literal(Value &value) {
    const char *from = at_;
    return counted(value) && (value.text == kNoClusterName || wrong("not the fixed text", from));
}

bool RecordReader::size(Value &value) {
    if (!number(2, value.number)) {
        return false;
    }
    sizeEnd_ = consumed() + value.number;
    return true;
}

bool RecordReader::sizeEnd() {
    const bool reached = consumed() == sizeEnd_;
    sizeEnd_ = kAny;
    return reached || wrong(kSizeMismatch, at_);
}

bool RecordReader::strs(Value &value) {
    if (!number(1, value.number)) {
        return false;
    }
    const char *from = at_;
    Value ignored;
    for (std::uint64_t i = 0; i < value.number; ++i) {
        if (!counted(ignored)) {
            return false;
        }
    }
    value.text = {from, static_cast<std::size_t>(at_ - from)};
    return true;
}

bool RecordReader::entries(Value &value, std::size_t bytesEach) {
    return number(4, value.number) && raw(value.number * bytesEach, value);
}

bool RecordReader::methods(Value &value) {
    if (!number(4, value.number)) {
        return false;
    }
    const char *from = at_;
    std::uint64_t id = 0;
    Value ignored;
    for (std::uint64_t i = 0; i < value.number; ++i) {
        if (!number(4, id) || !counted(ignored) || !counted(ignored)) {
            return false;
        }
    }
    value.text = {from, static_cast<std::size_t>(at_ - from)};
    return true;
}

bool RecordReader::endOfRecord() {
    const char *from = at_;
    std::uint64_t mark = 0;
    return number(2, mark) && (mark == 0x7F7F || wrong("no end-of-record mark", from));
}

bool RecordReader::number(std::size_t width, std::uint64_t &out) {
    const char *from = nullptr;
    if (!take(width, from)) {
        return false;
    }
    out = bigEndian(from, width);
    return true;
}

bool RecordReader::take(std::size_t count, const char *&from) {
    if (consumed() + count > sizeEnd_) {
        return wrong(kSizeMismatch, at_);
    }
    if (consumed() + count > limit_) {
        return wrong("record longer than the limit", at_);
    }
    if (static_cast<std::size_t>(end_ - at_) < count) {
        needed = consumed() + count;
        return false;
    }
    from = at_;
    at_ += count;
    return true;
}

bool RecordReader::wrong(const char *why, const char *where) {
    fault = why;
    faultAt = static_cast<std::size_t>(where - begin_);
    return false;
}

} // namespace ps
