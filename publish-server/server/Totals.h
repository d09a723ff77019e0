// Figures over all connections: records by layout, dropped records, request and statement times. Fed with
// every record; bounded by the bounds of LatencyTable and PairMatcher. One thread.
#pragma once

#include "decoder/Record.h"
#include "server/Latency.h"
#include "server/PairMatcher.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace ps {

// Number of records of each layout, by specIndex().
using RecordCounts = std::vector<std::uint64_t>;

// {"name": count, ...} of the layouts that occurred.
nlohmann::ordered_json countsJson(const RecordCounts &counts);

class Totals {
public:
    void add(const Record &record, PairMatcher &pairs);
    // Takes over what `pairs` left unmatched; with `closing` all that is still open too.
    void settle(PairMatcher &pairs, bool closing);

    // Everything, for scripts.
    nlohmann::ordered_json json() const;
    // The table for people, at most `rows` URLs and as many statements.
    std::string table(std::size_t rows) const;

    std::uint64_t connections = 0; // ever accepted
    std::uint64_t open = 0;
    std::uint64_t refused = 0;      // over the limit of connections
    std::uint64_t errors = 0;       // streams that could not be decoded
    std::uint64_t capturesLost = 0; // raw files that lack bytes
    std::uint64_t bytes = 0;
    std::uint64_t packets = 0;
    std::uint64_t records = 0;

private:
    void begin(const Record &record, PairMatcher &pairs);
    void end(const Record &record, PairMatcher &pairs);
    void dropped(const Record &record);
    std::uint64_t droppedSum() const;

    static constexpr std::size_t kDroppedCounters = 6;

    RecordCounts counts_ = RecordCounts(recordSpecs().size());
    std::array<std::uint64_t, kDroppedCounters> dropped_{};
    std::uint64_t droppedMarkers_ = 0;
    PairMatcher::Unmatched unmatched_{0, 0};
    LatencyTable urls_;
    LatencyTable statements_;
};

} // namespace ps
