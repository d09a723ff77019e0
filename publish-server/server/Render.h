// Records and summaries as text lines and as JSON lines. Both forms walk the record's layout, so neither
// knows any record by name. Whatever bytes arrive, a line stays one line and JSON stays valid: see
// decoder/Text.h. One thread.
#pragma once

#include "decoder/Record.h"
#include "server/Totals.h"

#include <cstdint>
#include <memory>
#include <string>

namespace ps {

class Output;

// One connection, told at its end.
struct Summary {
    std::uint64_t connection = 0;
    std::string peer;
    std::uint64_t bytes = 0;
    std::uint64_t packets = 0;
    std::uint64_t records = 0;
    RecordCounts counts;
    std::string ended;      // how it ended, in words
    std::string errorBytes; // hex dump; empty unless the stream could not be decoded
};

std::string summaryText(const Summary &summary);

// Where decoded records go.
class RecordSink {
public:
    virtual ~RecordSink() = default;
    virtual void record(std::uint64_t connection, const Record &record) = 0;
    virtual void summary(const Summary &) {}
};

std::string recordText(std::uint64_t connection, const Record &record);
nlohmann::ordered_json recordJson(std::uint64_t connection, const Record &record);

// The sinks write to `output`, which must outlive them.
std::unique_ptr<RecordSink> makeTextSink(Output &output);
std::unique_ptr<RecordSink> makeJsonSink(Output &output);

} // namespace ps
