#include "server/Session.h"

#include <utility>

namespace ps {

Session::Session(std::uint64_t connection, std::string peer, Totals &totals, RecordSink *sink,
                 std::size_t maxRecordBytes)
    : decoder_(maxRecordBytes), totals_(totals), sink_(sink) {
    summary_.connection = connection;
    summary_.peer = std::move(peer);
    summary_.counts.resize(recordSpecs().size());
    ++totals_.connections;
    ++totals_.open;
}

bool Session::commit(std::size_t count) {
    decoder_.commit(count);
    const std::uint64_t packetsBefore = decoder_.packets();
    const std::uint64_t recordsBefore = decoder_.records();
    Outcome outcome;
    while ((outcome = decoder_.next(record_)) == Outcome::Record) {
        ++summary_.counts[specIndex(*record_.spec)];
        totals_.add(record_, pairs_);
        if (sink_ != nullptr) {
            sink_->record(summary_.connection, record_);
        }
    }
    totals_.bytes += count;
    totals_.packets += decoder_.packets() - packetsBefore;
    totals_.records += decoder_.records() - recordsBefore;
    totals_.settle(pairs_, false);
    failed_ = outcome == Outcome::Fatal;
    return !failed_;
}

void Session::close() noexcept {
    if (!std::exchange(closed_, true)) {
        --totals_.open;
        totals_.errors += failed_ ? 1 : 0;
        totals_.settle(pairs_, true);
    }
}

Summary Session::finish(const std::string &how) {
    close();
    summary_.bytes = decoder_.bytes();
    summary_.packets = decoder_.packets();
    summary_.records = decoder_.records();
    if (failed_) {
        summary_.ended = "stream error: " + decoder_.error().message;
        summary_.errorBytes = decoder_.error().bytes;
    } else {
        summary_.ended = how + (decoder_.atBoundary() ? "" : ", in the middle of a packet");
    }
    if (sink_ != nullptr) {
        sink_->summary(summary_);
    }
    return summary_;
}

} // namespace ps
