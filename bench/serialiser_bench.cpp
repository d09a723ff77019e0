// What it costs to turn one event into its record: records per second and bytes per second of the
// serialiser alone, into a packet that is rewound when it is full.
#include "EventDraft.h"
#include "ProtocolVisitor.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <vector>

namespace {

constexpr size_t PACKET_BYTES = 2000 * 1024;
constexpr char URL[] = "/shop/catalogue/search?category=books&sort=price&page=3";
constexpr char SQL[] =
    "SELECT p.id, p.name, p.price, s.amount FROM product p JOIN stock s ON s.product_id = p.id "
    "WHERE p.category = ? AND p.price < ? ORDER BY p.price";

void put(EventDraft &draft, Text &field, const char *text) {
    draft.put(field, text, strlen(text));
}

void nameHttp(Draft<HttpEvent> &draft) {
    put(draft, draft->requestName, "/shop/catalogue/search");
    put(draft, draft->applicationName, "shop");
    put(draft, draft->url, URL);
    put(draft, draft->userId, "");
}

void nameSql(Draft<SQLEvent> &draft) {
    put(draft, draft->dataSourceName, "jdbc/shop");
    put(draft, draft->sql, SQL);
}

template <typename E>
void serialise(benchmark::State &state, Event::EventSubType subType, void (*name)(Draft<E> &)) {
    Draft<E> event(subType);
    event->threadId = 17;
    event->cpuTime = 123456789;
    event->timeSec = 1700000000;
    event->timeUSec = 123000;
    event->requestDepth = 1;
    if (name != nullptr) {
        name(event);
    }
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

constexpr auto http = serialise<HttpEvent>;
constexpr auto sql = serialise<SQLEvent>;
BENCHMARK_CAPTURE(http, begin, Event::SUB_START, nameHttp);
BENCHMARK_CAPTURE(http, end, Event::SUB_END, nullptr);
BENCHMARK_CAPTURE(sql, begin, Event::SUB_START, nameSql);
BENCHMARK_CAPTURE(sql, end, Event::SUB_END, nullptr);

} // namespace

BENCHMARK_MAIN();
