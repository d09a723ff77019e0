#include "ZykList.h"

#include "FakeVm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using testing::ElementsAre;

namespace {

using List = ZykList<int *>;
int items[10000];

std::vector<int> contentOf(const List &list) {
    std::vector<int> result;
    List::Iterator iterator(list);
    while (const int *item = iterator.next()) {
        result.push_back(static_cast<int>(item - items));
    }
    return result;
}

void fill(List &list, std::initializer_list<int> numbers) {
    for (const int number : numbers) {
        list.append(&items[number]);
    }
}

// The list goes on working at both ends: head, tail and count belong together.
void expectUsable(List &list, std::vector<int> content) {
    EXPECT_EQ(static_cast<int32_t>(content.size()), list.size());
    EXPECT_EQ(content, contentOf(list));
    list.append(&items[90]);
    list.prepend(&items[80]);
    content.push_back(90);
    content.insert(content.begin(), 80);
    EXPECT_EQ(content, contentOf(list));
}

TEST(ZykList, QueuesAtBothEnds) {
    List list(false);
    EXPECT_FALSE(list.append(nullptr));
    EXPECT_EQ(nullptr, list.removeFirst());
    list.prepend(&items[1]); // the first node is the tail, too
    fill(list, {2, 3});
    EXPECT_EQ(&items[1], list.removeFirst());
    list.prepend(&items[1]);
    EXPECT_THAT(contentOf(list), ElementsAre(1, 2, 3));
    while (list.removeFirst() != nullptr) {
    }
    expectUsable(list, {});
    list.clear();
    expectUsable(list, {});
}

TEST(ZykList, RemovesOneValueAnywhere) {
    struct Case {
        std::initializer_list<int> own;
        int removed;
        std::vector<int> rest;
    };
    const Case cases[] = {{{1, 2, 3, 2}, 1, {2, 3, 2}},
                          {{1, 2, 3, 2}, 2, {1, 3, 2}},
                          {{1, 2, 3, 2}, 4, {1, 2, 3, 2}},
                          {{1, 2}, 2, {1}},
                          {{1}, 1, {}}};
    for (const Case &c : cases) {
        List list(false);
        fill(list, c.own);
        EXPECT_EQ(c.rest.size() < c.own.size(), list.remove(&items[c.removed])) << c.removed;
        expectUsable(list, c.rest);
    }
}

TEST(ZykList, RemovesAnySetOfValues) {
    for (int picked = 0; picked < 16; ++picked) {
        List list(true);
        fill(list, {0, 1, 2, 3});
        list.removeIf([picked](const int *item) { return (picked >> (item - items) & 1) != 0; });
        std::vector<int> rest;
        for (int number = 0; number < 4; ++number) {
            if ((picked >> number & 1) == 0) {
                rest.push_back(number);
            }
        }
        expectUsable(list, rest);
    }
}

TEST(ZykList, PrependsAWholeList) {
    struct Case {
        std::initializer_list<int> own, other;
        std::vector<int> result;
    };
    const Case cases[] = {{{}, {}, {}}, {{1, 2}, {}, {1, 2}}, {{}, {3, 4}, {3, 4}}, {{1}, {3, 4}, {3, 4, 1}}};
    for (const Case &c : cases) {
        List list(false);
        List other(false);
        fill(list, c.own);
        fill(other, c.other);
        list.prependAll(nullptr);
        list.prependAll(&other);
        expectUsable(list, c.result);
        expectUsable(other, {});
    }
}

TEST(ZykList, CutsFromTheFront) {
    struct Case {
        int most;
        std::vector<int> rest, moved;
    };
    const Case cases[] = {{0, {1, 2, 3}, {9}},
                          {-1, {1, 2, 3}, {9}},
                          {2, {3}, {9, 1, 2}},
                          {3, {}, {9, 1, 2, 3}},
                          {8, {}, {9, 1, 2, 3}}};
    for (const Case &c : cases) {
        List list(true);
        List other(false);
        fill(list, {1, 2, 3});
        fill(other, {9});
        EXPECT_EQ(static_cast<int32_t>(c.moved.size()) - 1, list.cutFirst(c.most, other)) << c.most;
        expectUsable(list, c.rest);
        expectUsable(other, c.moved);
    }
}

// Two threads append, one takes single items, one takes bundles and puts some back, one looks on: each item
// comes out once.
TEST(ZykList, ManyThreads) {
    constexpr int PER_PRODUCER = 5000;
    const FakeVm vm;
    List list(true);
    list.prepareLock();
    std::atomic<int> producing{2};
    std::atomic<int> seen[2 * PER_PRODUCER] = {};
    const auto produce = [&](int first) {
        for (int i = first; i < first + PER_PRODUCER; ++i) {
            list.append(&items[i]);
        }
        --producing;
    };
    const auto count = [&](const int *item) { ++seen[item - items]; };
    const auto takeSingly = [&] {
        for (int *item = nullptr; (item = list.removeFirst()) != nullptr || producing > 0;) {
            if (item != nullptr) {
                count(item);
            }
        }
    };
    const auto takeBundles = [&] {
        List bundle(false);
        while (list.cutFirst(7, bundle) > 0 || producing > 0) {
            if (bundle.size() > 3) {
                count(bundle.removeFirst());
                list.prependAll(&bundle);
            }
            while (const int *item = bundle.removeFirst()) {
                count(item);
            }
        }
    };
    const auto lookOn = [&] {
        while (producing > 0) {
            int *room[50];
            for (int32_t i = list.copyFirst(room, 50) - 1; i >= 0; --i) {
                ASSERT_NE(nullptr, room[i]);
            }
        }
    };
    std::vector<std::thread> threads;
    threads.emplace_back(produce, 0);
    threads.emplace_back(produce, PER_PRODUCER);
    threads.emplace_back(takeSingly);
    threads.emplace_back(takeBundles);
    threads.emplace_back(lookOn);
    for (std::thread &thread : threads) {
        thread.join();
    }
    takeSingly();
    EXPECT_EQ(0, list.size());
    for (int i = 0; i < 2 * PER_PRODUCER; ++i) {
        ASSERT_EQ(1, seen[i]) << i;
    }
}

} // namespace
