// What it costs to turn one event into its record: records per second and bytes per second of the
// serialiser alone, into a packet that is rewound when it is full.
#include "ProtocolVisitor.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr size_t PACKET_BYTES = 2000 * 1024;
constexpr char URL[] = "/shop/catalogue/search?category=books&sort=price&page=3";
constexpr char SQL[] =
    "SELECT p.id, p.name, p.price, s.amount FROM product p JOIN stock s ON s.product_id = p.id "
    "WHERE p.category = ? AND p.price < ? ORDER BY p.price";

template <typename E>
std::unique_ptr<Event> stamped(E *event) {
    event->threadId = 17;
    event->cpuTime = 123456789;
    event->timeSec = 1700000000;
    event->timeUSec = 123000;
    event->requestDepth = 1;
    return std::unique_ptr<Event>(event);
}

std::unique_ptr<Event> httpBegin() {
    auto *event = new HttpEvent(Event::SUB_START);
    event->requestName = strdup("/shop/catalogue/search");
    event->applicationName = strdup("shop");
    event->url = strdup(URL);
    event->userId = strdup("");
    return stamped(event);
}

std::unique_ptr<Event> httpEnd() {
    return stamped(new HttpEvent(Event::SUB_END));
}

std::unique_ptr<Event> sqlBegin() {
    auto *event = new SQLEvent(Event::SUB_START);
    event->dataSourceName = strdup("jdbc/shop");
    event->sql = strdup(SQL);
    return stamped(event);
}

std::unique_ptr<Event> sqlEnd() {
    return stamped(new SQLEvent(Event::SUB_END));
}

void serialise(benchmark::State &state, std::unique_ptr<Event> (*make)()) {
    const std::unique_ptr<Event> event = make();
    std::vector<char> packet(PACKET_BYTES);
    ProtocolVisitor visitor(packet.data(), packet.data(), packet.data() + packet.size(), nullptr);
    int64_t bytes = 0;
    for (auto _ : state) {
        char *mark = visitor.getCursor();
        event->addToBuffer(&visitor);
        bytes += visitor.getCursor() - mark;
        if (visitor.hasOverflowed()) {
            visitor.clearOverflow();
            visitor.setCursor(visitor.getStart());
        }
    }
    benchmark::ClobberMemory();
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(bytes);
}

BENCHMARK_CAPTURE(serialise, http_begin, httpBegin);
BENCHMARK_CAPTURE(serialise, http_end, httpEnd);
BENCHMARK_CAPTURE(serialise, sql_begin, sqlBegin);
BENCHMARK_CAPTURE(serialise, sql_end, sqlEnd);

} // namespace

BENCHMARK_MAIN();
