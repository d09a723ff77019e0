#include "server/Latency.h"

#include <algorithm>

namespace ps {

void Latency::end(std::uint64_t microseconds, bool failed) {
    ++ends_;
    failures_ += failed ? 1 : 0;
    totalMicroseconds_ += microseconds;
    ++histogram_[cellOf(microseconds)];
}

double Latency::meanMs() const {
    return ends_ == 0 ? 0 : static_cast<double>(totalMicroseconds_) / static_cast<double>(ends_) / 1000;
}

double Latency::quantileMs(double quantile) const {
    const double wanted = quantile * static_cast<double>(ends_);
    std::uint64_t seen = 0;
    for (unsigned cell = 0; cell < kCells; ++cell) {
        seen += histogram_[cell];
        if (seen > 0 && static_cast<double>(seen) >= wanted) {
            return static_cast<double>(upperEdge(cell)) / 1000;
        }
    }
    return 0;
}

unsigned Latency::cellOf(std::uint64_t microseconds) {
    if (microseconds < (1u << kFraction)) {
        return static_cast<unsigned>(microseconds);
    }
    const unsigned exponent = 63 - static_cast<unsigned>(__builtin_clzll(microseconds)) - kFraction;
    const unsigned cell = ((exponent + 1) << kFraction) +
                          static_cast<unsigned>(microseconds >> exponent & ((1u << kFraction) - 1));
    return std::min(cell, kCells - 1);
}

std::uint64_t Latency::upperEdge(unsigned cell) {
    if (cell < (1u << kFraction)) {
        return cell;
    }
    const unsigned exponent = (cell >> kFraction) - 1;
    const std::uint64_t mantissa = (1u << kFraction) + (cell & ((1u << kFraction) - 1));
    return ((mantissa + 1) << exponent) - 1;
}

Latency &LatencyTable::at(std::string_view key) {
    const auto found = byKey_.find(key);
    if (found != byKey_.end()) {
        return *found->second;
    }
    if (entries_.size() < kMaxKeys && keyBytes_ + key.size() <= kMaxKeyBytes) {
        Latency &added = add(std::string(key));
        byKey_.emplace(added.key(), &added);
        return added;
    }
    if (other_ == nullptr) {
        other_ = &add("(other)");
    }
    return *other_;
}

Latency &LatencyTable::add(std::string key) {
    Latency &added = entries_.emplace_back(std::move(key));
    keyBytes_ += added.key().size();
    return added;
}

std::vector<const Latency *> LatencyTable::top(std::size_t count) const {
    std::vector<const Latency *> sorted;
    for (const Latency &entry : entries_) {
        sorted.push_back(&entry);
    }
    count = std::min(count, sorted.size());
    std::partial_sort(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(count), sorted.end(),
                      [](const Latency *a, const Latency *b) {
                          return a->begins() != b->begins() ? a->begins() > b->begins() : a->key() < b->key();
                      });
    sorted.resize(count);
    return sorted;
}

} // namespace ps
