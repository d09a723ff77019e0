// Fuzz target of the receiver: any bytes, in pieces of the size that the first byte gives, through decoder,
// matching and both renderers, the buffer taken and given back around each piece as the server does.
#include "server/Render.h"
#include "server/Session.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

struct RenderBoth : ps::RecordSink {
    void record(std::uint64_t connection, const ps::Record &record) override {
        bytes += ps::recordText(connection, record).size() + ps::recordJson(connection, record).dump().size();
    }
    std::size_t bytes = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    ps::Totals totals;
    RenderBoth sink;
    ps::Session session(1, "fuzz", totals, &sink, 1u << 16);
    std::vector<char> spare;
    const std::size_t piece = size > 0 ? data[0] + 1u : 1;
    bool good = true;
    for (std::size_t at = 1; good && at < size; at += piece) {
        const std::size_t count = std::min(piece, size - at);
        session.wake(spare);
        std::memcpy(session.prepare().data, data + at, count);
        good = session.commit(count);
        session.rest(spare);
    }
    session.finish("end");
    return 0;
}
