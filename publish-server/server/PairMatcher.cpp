#include "server/PairMatcher.h"

#include <algorithm>

namespace ps {
namespace {

std::uint64_t microsecondsOf(const Record &record) {
    return record.timeSec * 1000000ull + record.timeUSec;
}

} // namespace

void PairMatcher::begin(const Record &record, Latency *latency) {
    if (open_ >= kMaxOpen || (threads_.size() >= kMaxThreads && threads_.count(record.threadId) == 0)) {
        forgetSilentHalf();
    }
    Thread &thread = threads_[record.threadId];
    thread.lastSeen = ++clock_;
    // A begin at a depth proves that whatever was open there or deeper is over, its end lost.
    std::size_t keep = thread.stack.size();
    while (keep > 0 && thread.stack[keep - 1].depth >= record.depth) {
        --keep;
    }
    unmatched_.begins += thread.stack.size() - keep;
    cutTo(thread, keep);
    thread.stack.push_back({latency, microsecondsOf(record), record.depth, record.spec->pair});
    ++open_;
}

std::optional<PairMatcher::Match> PairMatcher::end(const Record &record) {
    const auto found = threads_.find(record.threadId);
    if (found != threads_.end()) {
        Thread &thread = found->second;
        thread.lastSeen = ++clock_;
        for (std::size_t i = thread.stack.size(); i-- > 0;) {
            const Open open = thread.stack[i];
            if (open.depth == record.depth && open.pair == record.spec->pair) {
                unmatched_.begins += thread.stack.size() - i - 1;
                cutTo(thread, i);
                if (i == 0) {
                    threads_.erase(found);
                }
                const std::uint64_t now = microsecondsOf(record);
                return Match{open.latency, now > open.since ? now - open.since : 0};
            }
        }
    }
    ++unmatched_.ends;
    return std::nullopt;
}

PairMatcher::Unmatched PairMatcher::takeUnmatched(bool closing) {
    Unmatched taken = unmatched_;
    unmatched_ = {0, 0};
    if (closing) {
        taken.begins += open_;
        open_ = 0;
        threads_.clear();
    }
    return taken;
}

void PairMatcher::cutTo(Thread &thread, std::size_t size) {
    open_ -= thread.stack.size() - size;
    thread.stack.resize(size);
    if (thread.stack.capacity() > std::max(kSpareOpen, 4 * size)) {
        thread.stack.shrink_to_fit(); // or each thread would keep its deepest stack
    }
}

void PairMatcher::forgetSilentHalf() {
    std::vector<std::uint64_t> seen;
    for (const auto &[id, thread] : threads_) {
        seen.push_back(thread.lastSeen);
    }
    const auto middle = seen.begin() + static_cast<std::ptrdiff_t>(seen.size() / 2);
    std::nth_element(seen.begin(), middle, seen.end());
    for (auto at = threads_.begin(); at != threads_.end();) {
        if (at->second.lastSeen > *middle) {
            ++at;
            continue;
        }
        unmatched_.begins += at->second.stack.size();
        cutTo(at->second, 0);
        at = threads_.erase(at);
    }
}

} // namespace ps
