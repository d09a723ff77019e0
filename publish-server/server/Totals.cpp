#include "server/Totals.h"

#include "decoder/Text.h"

#include <cstdio>
#include <numeric>

namespace ps {
namespace {

using Json = nlohmann::ordered_json;

const RecordSpec &kHttpBegin = *findSpec(4);
const RecordSpec &kSqlBegin = *findSpec(9);
const RecordSpec &kDropped = *findSpec(11);
const std::size_t kUrlField = fieldIndex(kHttpBegin, "url");
const std::size_t kSqlField = fieldIndex(kSqlBegin, "sql");
const std::size_t kFirstDropped = fieldIndex(kDropped, "otherStarts");
constexpr std::size_t kTextColumns = 76;

std::string pad(std::string text, std::size_t columns) {
    // Bytes that continue a character take no column of their own.
    std::size_t width = 0;
    for (const char c : text) {
        width += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    }
    return width < columns ? text.append(columns - width, ' ') : text;
}

template <class... Args>
std::string format(const char *pattern, Args... args) {
    char text[512];
    std::snprintf(text, sizeof text, pattern, args...);
    return text;
}

std::string heading(const char *title, const char *columns) {
    return pad(title, kTextColumns + 3) + columns + "\n";
}

std::string more(const LatencyTable &table, std::size_t rows) {
    return table.size() > rows ? format("... and %zu more\n", table.size() - rows) : std::string();
}

Json latencyJson(const LatencyTable &table, const char *keyName) {
    Json list = Json::array();
    for (const Latency *entry : table.top(table.size())) {
        list.push_back({{keyName, toUtf8(entry->key())},
                        {"count", entry->begins()},
                        {"ended", entry->ends()},
                        {"failures", entry->failures()},
                        {"meanMs", entry->meanMs()},
                        {"p95Ms", entry->quantileMs(0.95)}});
    }
    return list;
}

} // namespace

Json countsJson(const RecordCounts &counts) {
    Json json = Json::object();
    for (const RecordSpec &spec : recordSpecs()) {
        if (counts[specIndex(spec)] > 0) {
            json[spec.name] = counts[specIndex(spec)];
        }
    }
    return json;
}

void Totals::add(const Record &record, PairMatcher &pairs) {
    ++counts_[specIndex(*record.spec)];
    switch (record.spec->role) {
    case Role::Begin:
        begin(record, pairs);
        break;
    case Role::End:
    case Role::Failed:
        end(record, pairs);
        break;
    case Role::Single:
        if (record.spec == &kDropped) {
            dropped(record);
        }
        break;
    }
}

void Totals::begin(const Record &record, PairMatcher &pairs) {
    Latency *latency = nullptr;
    if (record.spec == &kHttpBegin) {
        latency = &urls_.at(record.values[kUrlField].text);
    } else if (record.spec == &kSqlBegin) {
        latency = &statements_.at(record.values[kSqlField].text);
    }
    if (latency != nullptr) {
        latency->begin();
    }
    pairs.begin(record, latency);
}

void Totals::end(const Record &record, PairMatcher &pairs) {
    const auto match = pairs.end(record);
    if (match && match->latency != nullptr) {
        match->latency->end(match->microseconds, record.spec->role == Role::Failed);
    }
}

// A record whose counters are all 0 only marks that events are missing at this place, nobody knows how many.
void Totals::dropped(const Record &record) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < kDroppedCounters; ++i) {
        const std::uint64_t count = record.values[kFirstDropped + i].number;
        dropped_[i] += count;
        sum += count;
    }
    droppedMarkers_ += sum == 0 ? 1 : 0;
}

std::uint64_t Totals::droppedSum() const {
    return std::accumulate(dropped_.begin(), dropped_.end(), std::uint64_t{0});
}

void Totals::settle(PairMatcher &pairs, bool closing) {
    const PairMatcher::Unmatched left = pairs.takeUnmatched(closing);
    unmatched_.begins += left.begins;
    unmatched_.ends += left.ends;
}

Json Totals::json() const {
    Json types = Json::object();
    for (const RecordSpec &spec : recordSpecs()) {
        if (counts_[specIndex(spec)] > 0) {
            types[std::to_string(spec.type)] = counts_[specIndex(spec)];
        }
    }
    Json drops = {{"sum", droppedSum()}, {"markers", droppedMarkers_}};
    for (std::size_t i = 0; i < kDroppedCounters; ++i) {
        drops[kDropped.fields[kFirstDropped + i].name] = dropped_[i];
    }
    return {{"connections", connections},
            {"open", open},
            {"refused", refused},
            {"errors", errors},
            {"capturesLost", capturesLost},
            {"bytes", bytes},
            {"packets", packets},
            {"records", records},
            {"counts", countsJson(counts_)},
            {"types", types},
            {"dropped", drops},
            {"unmatchedBegins", unmatched_.begins},
            {"unmatchedEnds", unmatched_.ends},
            {"urls", latencyJson(urls_, "url")},
            {"sql", latencyJson(statements_, "sql")}};
}

std::string Totals::table(std::size_t rows) const {
    std::string out = heading("URL", " requests  failures   mean ms    p95 ms");
    for (const Latency *url : urls_.top(rows)) {
        out += pad(toLine(url->key(), kTextColumns), kTextColumns + 3) +
               format("%9llu %9llu %9.1f %9.1f\n", static_cast<unsigned long long>(url->begins()),
                      static_cast<unsigned long long>(url->failures()), url->meanMs(), url->quantileMs(0.95));
    }
    out += more(urls_, rows) + "\n" + heading("SQL", "    count   mean ms");
    for (const Latency *sql : statements_.top(rows)) {
        out += pad(toLine(sql->key(), kTextColumns), kTextColumns + 3) +
               format("%9llu %9.1f\n", static_cast<unsigned long long>(sql->begins()), sql->meanMs());
    }
    out += more(statements_, rows);
    const std::uint64_t totals[] = {
        connections,     open,         packets,         records, unmatched_.begins,
        unmatched_.ends, droppedSum(), droppedMarkers_, errors};
    static const char *const names[] = {
        "connections",    "open",    "packets",    "records", "unmatched begins",
        "unmatched ends", "dropped", "drop marks", "errors"};
    out += "\n";
    for (std::size_t i = 0; i < std::size(totals); ++i) {
        out += (i == 0 ? "" : ", ") + std::to_string(totals[i]) + " " + names[i];
    }
    return out + "\n";
}

} // namespace ps
