// Finds the begin record of an end record, for one connection: a stack of open begins per thread, ordered by
// depth. Nothing that arrives is an error: ends without a begin and begins that never end are counted.
// Only threads with something open are kept. Bounded: at kMaxThreads of them or kMaxOpen open begins, the
// half that was silent longest is forgotten. Ordered by thread, because a sender chooses the ids and could
// make a hash table of them one long list. One thread.
#pragma once

#include "decoder/Record.h"

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace ps {

class Latency;

class PairMatcher {
public:
    static constexpr std::size_t kMaxThreads = 65536;
    static constexpr std::size_t kMaxOpen = 262144;

    struct Match {
        Latency *latency;           // as given with the begin, may be null
        std::uint64_t microseconds; // wall time between the two; 0 if the clock went back
    };

    void begin(const Record &record, Latency *latency);
    std::optional<Match> end(const Record &record);

    // Counts since the last call: what was left unmatched by the records seen, and, with `closing`, all that
    // is open.
    struct Unmatched {
        std::uint64_t begins;
        std::uint64_t ends;
    };
    Unmatched takeUnmatched(bool closing);
    std::size_t open() const { return open_; }
    // About what it holds; exact enough for a bound.
    std::size_t heldBytes() const { return threads_.size() * kThreadBytes + open_ * kOpenBytes; }

private:
    struct Open {
        Latency *latency;
        std::uint64_t since; // microseconds
        std::uint8_t depth;
        std::uint8_t pair;
    };
    static constexpr std::size_t kSpareOpen = 8;
    struct Thread {
        std::vector<Open> stack; // depth strictly rising, so never more than 256
        std::uint64_t lastSeen = 0;
    };

    // With the allocator's own need, and the room that a stack may keep unused.
    static constexpr std::size_t kThreadBytes = sizeof(Thread) + 64 + kSpareOpen * sizeof(Open);
    static constexpr std::size_t kOpenBytes = 4 * sizeof(Open);

    void cutTo(Thread &thread, std::size_t size);
    void forgetSilentHalf();

    std::map<std::uint32_t, Thread> threads_;
    std::uint64_t clock_ = 0;
    std::size_t open_ = 0;
    Unmatched unmatched_{0, 0};
};

} // namespace ps
