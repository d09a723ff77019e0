// The layouts of all records as data: which fields follow the type number, in order. Decoding, printing and
// JSON all walk this one table, so a new record is one list of fields and one row for each of its type
// numbers. Everything here is constant and may be read from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace ps {

enum class Kind : std::uint8_t {
    Prefix,   // thread id u32, depth u8, seconds u32, microseconds u32, CPU nanoseconds u64
    ThreadId, // u32
    Time,     // seconds u32, microseconds u32
    Level,    // u8
    Number,   // big-endian, `width` bytes, its value from `low` to `high`, or 0 if `orZero`
    Numbers,  // `low` numbers of `width` bytes
    Str,      // u16 length, not above `high`, text
    Name,     // as Str, but empty when the names flag (the number before) is 0
    Literal,  // as Str, and its text is kNoClusterName
    Blob,     // u16 length, raw bytes
    Size,     // u16 number of bytes up to the matching SizeEnd
    SizeEnd,  // no byte: the place where Size must have led
    Strs,     // u8 count, then so many Str
    Entries,  // u32 count, then so many of kEntryBytes: type u8, count u32, average time u64
    Ids,      // u32 count, then so many u32
    Methods,  // u32 count, then so many of: id u32, name Str, signature Str
};

constexpr std::uint64_t kAny = std::numeric_limits<std::uint64_t>::max();
constexpr std::size_t kEntryBytes = 13;
constexpr const char *kNoClusterName = "<NO CLUSTER NAME>";

struct Field {
    Kind kind;
    const char *name = "";
    std::uint8_t width = 0;
    std::uint64_t low = 0;
    std::uint64_t high = kAny;
    bool orZero = false;
};

enum class Role : std::uint8_t { Single, Begin, End, Failed };

struct RecordSpec {
    std::uint16_t type;
    const char *name; // class of the event, with ".begin", ".end" or ".failed" where it is one of a pair
    Role role;
    std::uint8_t pair; // the same number in a begin and in every record that can end it
    const Field *fields;
    std::uint8_t fieldCount;
};

constexpr std::size_t kMaxFields = 12;

struct SpecRange {
    const RecordSpec *first;
    const RecordSpec *last;
    const RecordSpec *begin() const { return first; }
    const RecordSpec *end() const { return last; }
    std::size_t size() const { return static_cast<std::size_t>(last - first); }
};

// Every layout, the packet header and the two initial records included.
SpecRange recordSpecs();

// Position of a layout in recordSpecs(), for counters kept in an array.
std::size_t specIndex(const RecordSpec &spec);

// Layout of a record inside a packet; null when no such record type is known.
const RecordSpec *findSpec(std::uint8_t type);

const RecordSpec &packetHeaderSpec();
const RecordSpec &initSpec();
const RecordSpec &j2eeInitSpec();

// Place of the named field among the fields of a layout; kMaxFields when there is none.
std::size_t fieldIndex(const RecordSpec &spec, const char *name);

} // namespace ps
