#include "ps_bytes.h"
#include "server/Session.h"

#include <gtest/gtest.h>

using namespace pstest;

namespace {

class PsTotals : public testing::Test {
protected:
    // Puts the records through a session of their own.
    void play(const std::vector<std::string> &records) {
        ps::Session session(1, "test", totals, nullptr, 1u << 20);
        const std::string stream = kInitBlock + packet(records);
        for (std::size_t at = 0; at < stream.size();) {
            const auto space = session.prepare();
            const std::size_t count = std::min(space.size, stream.size() - at);
            stream.copy(space.data, count, at);
            ASSERT_TRUE(session.commit(count));
            at += count;
        }
        const ps::Summary summary = session.finish("closed");
        ASSERT_EQ(summary.ended, "closed");
    }

    std::string begin(int depth, std::uint64_t micros, const char *url = "/a", std::uint32_t thread = 1) {
        return record(4, thread, depth, micros, httpPayload(url));
    }
    std::string end(int depth, std::uint64_t micros, std::uint32_t thread = 1) {
        return record(5, thread, depth, micros);
    }

    ps::Totals totals;
};

} // namespace

TEST_F(PsTotals, timesFailuresAndDropsAreToldByText) {
    const std::string sql =
        bytes("09 00000001 02 00000000 00003A98 0000000000000000 01 0000 0004'Q 1?' 7F7F");
    play({begin(1, 10000), sql, record(10, 1, 2, 18000), end(1, 30000), // 20 ms, 3 ms
          begin(1, 5000000, "/b"), record(50, 1, 1, 5040000),           // fails after 40 ms
          begin(1, 0, "/a", 2), end(1, 10000, 2),                       // 10 ms
          bytes("0B 00000001 00000001 00000002 00000003 00000004 00000005 00000006 7F7F"),   // 21 lost
          bytes("0B 00000001 00000000 00000000 00000000 00000000 00000000 00000000 7F7F")}); // a mark
    const auto json = totals.json();
    const auto expected = nlohmann::ordered_json::parse(R"([
        {"url": "/a", "count": 2, "ended": 2, "failures": 0, "meanMs": 15.0, "p95Ms": 20.479},
        {"url": "/b", "count": 1, "ended": 1, "failures": 1, "meanMs": 40.0, "p95Ms": 40.959}])");
    EXPECT_EQ(json["urls"], expected);
    EXPECT_EQ(json["sql"][0]["sql"], "Q 1?");
    EXPECT_EQ(json["sql"][0]["meanMs"], 3.0);
    EXPECT_EQ(json["dropped"]["sum"], 21);
    EXPECT_EQ(json["dropped"]["sqlEnds"], 6);
    EXPECT_EQ(json["dropped"]["markers"], 1);
    EXPECT_EQ(json["counts"]["HttpEvent.begin"], 3);
    EXPECT_EQ(json["types"]["50"], 1);
    EXPECT_EQ(json["records"], 12);
    EXPECT_EQ(json["unmatchedBegins"], 0);
    EXPECT_EQ(json["open"], 0);
}

TEST_F(PsTotals, endsFindTheirBeginOrAreCounted) {
    struct Case {
        const char *what;
        std::vector<std::string> records;
        int begins, ends, matched;
    };
    const Case cases[] = {
        {"end alone", {end(1, 5)}, 0, 1, 0},
        {"begin alone", {begin(1, 5)}, 1, 0, 0},
        {"other thread", {begin(1, 5), end(1, 6, 2)}, 1, 1, 0},
        {"other depth", {begin(2, 5), end(1, 6)}, 1, 1, 0},
        {"other kind at the same depth", {begin(1, 5), record(10, 1, 1, 6)}, 1, 1, 0},
        {"begin again, the first end lost", {begin(1, 5), begin(1, 6), end(1, 7)}, 1, 0, 1},
        {"cancelled with all inner levels", {begin(1, 5), begin(2, 6), begin(3, 7), end(1, 8)}, 2, 0, 1},
        {"threads interleaved", {begin(1, 5), begin(1, 5, "/b", 2), end(1, 6), end(1, 6, 2)}, 0, 0, 2},
        {"clock set back", {begin(1, 900), end(1, 6)}, 0, 0, 1},
        {"transaction monitor", {record(154, 1, 1, 5, bytes("0000 0000")), record(52, 1, 1, 6)}, 0, 0, 0},
    };
    for (const Case &test : cases) {
        totals = ps::Totals();
        play(test.records);
        const auto json = totals.json();
        int matched = 0;
        for (const auto &url : json["urls"]) {
            matched += url["ended"].get<int>();
            EXPECT_LT(url["meanMs"], 1.0) << test.what;
        }
        EXPECT_EQ(json["unmatchedBegins"], test.begins) << test.what;
        EXPECT_EQ(json["unmatchedEnds"], test.ends) << test.what;
        EXPECT_EQ(matched, test.matched) << test.what;
    }
}

TEST_F(PsTotals, manyThatWaitAndShortOnesBesideThemAreExact) {
    std::vector<std::string> records;
    for (std::uint32_t thread = 1; thread <= 10000; ++thread) {
        records.push_back(begin(1, 5, "/waits", thread));
    }
    for (std::uint32_t thread = 10001; thread <= 30000; ++thread) {
        records.insert(records.end(), {begin(1, 5, "/short", thread), end(1, 6, thread)});
    }
    for (std::uint32_t thread = 1; thread <= 10000; ++thread) {
        records.push_back(end(1, 9, thread));
    }
    play(records);
    const auto json = totals.json();
    EXPECT_EQ(json["unmatchedBegins"].get<int>() + json["unmatchedEnds"].get<int>(), 0);
    EXPECT_EQ(json["urls"][0]["ended"], 20000);
    EXPECT_EQ(json["urls"][1]["ended"], 10000);
}

TEST_F(PsTotals, openBeginsAreBounded) {
    ps::PairMatcher pairs;
    ps::Record record;
    record.spec = ps::findSpec(4);
    const std::uint32_t threads = 3 * ps::PairMatcher::kMaxThreads;
    for (record.threadId = 0; record.threadId < threads; ++record.threadId) {
        for (record.depth = 0; record.depth < 8; ++record.depth) {
            pairs.begin(record, nullptr);
        }
        ASSERT_LE(pairs.open(), ps::PairMatcher::kMaxOpen);
    }
    // The latest are the ones that are remembered, and none is lost from the count.
    record.threadId = threads - 1;
    record.depth = 7;
    record.spec = ps::findSpec(5);
    EXPECT_TRUE(pairs.end(record));
    EXPECT_EQ(pairs.takeUnmatched(true).begins, threads * 8ull - 1);
}

TEST(PsLatency, textsAreBoundedAndTheRestIsTogether) {
    ps::LatencyTable table;
    for (std::size_t i = 0; i < ps::LatencyTable::kMaxKeys + 500; ++i) {
        table.at("select " + std::to_string(i)).begin();
    }
    table.at("select 3").begin();
    EXPECT_EQ(table.size(), ps::LatencyTable::kMaxKeys + 1);
    const auto top = table.top(2);
    EXPECT_EQ(top[0]->key(), "(other)");
    EXPECT_EQ(top[0]->begins(), 500u);
    EXPECT_EQ(top[1]->key(), "select 3");
    EXPECT_EQ(top[1]->begins(), 2u);

    ps::LatencyTable large; // few but long
    for (char c = 'a'; c < 'k'; ++c) {
        large.at(std::string(ps::LatencyTable::kMaxKeyBytes / 4, c));
    }
    EXPECT_EQ(large.size(), 5u);
}

TEST(PsLatency, quantilesAreAtMostASixteenthTooHigh) {
    for (const std::uint64_t value : {0ull, 1ull, 15ull, 16ull, 999ull, 1000ull, 123456ull, 7200000000ull}) {
        ps::Latency latency("x");
        latency.end(value, false);
        EXPECT_GE(latency.quantileMs(0.95) * 1000, static_cast<double>(value) - 0.001);
        EXPECT_LE(latency.quantileMs(0.95) * 1000, static_cast<double>(value) * 17 / 16 + 0.001);
    }
    ps::Latency("x").end(~0ull >> 1, true); // longer than the histogram: kept in its last cell
}
