// What is known of the requests with one text (a URL, a statement): how many began and failed, and how long
// those that ended took. LatencyTable maps texts to them and is bounded: past kMaxKeys texts, or kMaxKeyBytes
// of text in all, new texts share the entry "(other)". Entries stay where they are for the life of the table.
// One thread.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace ps {

class Latency {
public:
    explicit Latency(std::string key) : key_(std::move(key)) {}

    void begin() { ++begins_; }
    void end(std::uint64_t microseconds, bool failed);

    const std::string &key() const { return key_; }
    std::uint64_t begins() const { return begins_; }
    std::uint64_t ends() const { return ends_; }
    std::uint64_t failures() const { return failures_; }
    double meanMs() const;
    // Upper edge of the histogram cell in which the quantile (0 to 1) lies: at most 1/16 too high.
    double quantileMs(double quantile) const;

private:
    static constexpr unsigned kFraction = 4; // bits: 16 cells for each power of two
    static constexpr unsigned kCells = (40 - kFraction + 1) << kFraction;
    static unsigned cellOf(std::uint64_t microseconds);
    static std::uint64_t upperEdge(unsigned cell);

    const std::string key_;
    std::uint64_t begins_ = 0;
    std::uint64_t ends_ = 0;
    std::uint64_t failures_ = 0;
    std::uint64_t totalMicroseconds_ = 0;
    std::array<std::uint64_t, kCells> histogram_{};
};

class LatencyTable {
public:
    static constexpr std::size_t kMaxKeys = 10000;
    static constexpr std::size_t kMaxKeyBytes = 32u << 20;

    Latency &at(std::string_view key);

    // The `count` most frequent, in falling order.
    std::vector<const Latency *> top(std::size_t count) const;
    std::size_t size() const { return entries_.size(); }

private:
    Latency &add(std::string key);

    std::deque<Latency> entries_;
    std::map<std::string_view, Latency *> byKey_; // views into the keys; ordered: a sender chooses them
    std::size_t keyBytes_ = 0;
    Latency *other_ = nullptr;
};

} // namespace ps
