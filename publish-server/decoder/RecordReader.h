// Reads the fields of one record from bytes that may stop anywhere. Never looks past `end`, never allocates.
// A false answer means either that bytes are missing (`needed` says how many the record has at least) or that
// the bytes cannot be a record (`fault` says why, `faultAt` where).
#pragma once

#include "decoder/Record.h"

namespace ps {

class RecordReader {
public:
    // `limit`: the most bytes a record may have.
    RecordReader(const char *begin, const char *end, std::size_t limit)
        : begin_(begin), at_(begin), end_(end), limit_(limit) {}

    // The type number, `width` bytes wide.
    bool readType(std::size_t width, std::uint64_t &type) { return number(width, type); }

    // All fields of record.spec and the end-of-record mark.
    bool readFields(Record &record);

    std::size_t consumed() const { return static_cast<std::size_t>(at_ - begin_); }

    std::size_t needed = 0;      // bytes of the record up to the first that is missing
    const char *fault = nullptr; // null unless the bytes are wrong
    const char *faultField = "";
    std::size_t faultAt = 0; // distance from the record's first byte

private:
    bool readField(const Field &field, Record &record, Value &value);
    bool prefix(Record &record);
    bool thread(Record &record);
    bool time(Record &record);
    bool level(Record &record);
    bool ranged(const Field &field, Value &value);
    bool counted(Value &value, std::uint64_t longest = kAny,
                 const char *tooLong = "text longer than its field");
    bool raw(std::size_t count, Value &value);
    bool name(Value &value);
    bool literal(Value &value);
    bool size(Value &value);
    bool sizeEnd();
    bool strs(Value &value);
    bool entries(Value &value, std::size_t bytesEach);
    bool methods(Value &value);
    bool endOfRecord();

    bool number(std::size_t width, std::uint64_t &out);
    bool take(std::size_t count, const char *&from);
    bool wrong(const char *why, const char *where);

    const char *begin_;
    const char *at_;
    const char *end_;
    std::size_t limit_;
    std::uint64_t lastNumber_ = 0; // the names flag when a Name follows it
    // Where the open Size leads, as distance from the first byte. Nothing is read beyond it, so a length that
    // leads further is refused without waiting for the bytes.
    std::uint64_t sizeEnd_ = kAny;
};

} // namespace ps
