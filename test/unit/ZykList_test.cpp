#include "ZykList.h"

#include "FakeVm.h"
#include "Threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <random>
#include <vector>

namespace {

using List = ZykList<int *>;
int items[10000];

std::vector<int *> contentOf(const List &list) {
    std::vector<int *> result;
    List::Iterator iterator(list);
    while (int *item = iterator.next()) {
        result.push_back(item);
    }
    return result;
}

// Calls in any order, with values that come more than once, beside the plainest of lists.
TEST(ZykList, DoesWhatAPlainListDoes) {
    using Plain = std::deque<int *>;
    std::mt19937 random(5);
    List list(true);
    List other(false);
    Plain plain, plainOther;
    EXPECT_FALSE(list.append(nullptr));
    for (int step = 0; step < 20000; ++step) {
        int *item = &items[1 + random() % 5];
        const int number = static_cast<int>(random() % 7) - 1;
        const auto found = std::find(plain.begin(), plain.end(), item);
        const auto isPicked = [number](const int *each) { return ((each - items) & number) != 0; };
        const Plain::difference_type some = std::clamp<int>(number, 0, static_cast<int>(plain.size()));
        int *room[6];
        switch (random() % 9) {
        case 0:
            EXPECT_TRUE(list.append(item));
            plain.push_back(item);
            break;
        case 1:
            list.prepend(item);
            plain.push_front(item);
            break;
        case 2:
            EXPECT_EQ(plain.empty() ? nullptr : plain.front(), list.removeFirst());
            plain.erase(plain.begin(), plain.begin() + (plain.empty() ? 0 : 1));
            break;
        case 3:
            EXPECT_EQ(found != plain.end(), list.remove(item));
            plain.erase(found, found != plain.end() ? found + 1 : found);
            break;
        case 4:
            list.removeIf(isPicked);
            plain.erase(std::remove_if(plain.begin(), plain.end(), isPicked), plain.end());
            break;
        case 5:
            list.prependAll(number < 0 ? nullptr : &other);
            if (number >= 0) {
                plain.insert(plain.begin(), plainOther.begin(), plainOther.end());
                plainOther.clear();
            }
            break;
        case 6:
            EXPECT_EQ(some, list.cutFirst(number, other));
            plainOther.insert(plainOther.end(), plain.begin(), plain.begin() + some);
            plain.erase(plain.begin(), plain.begin() + some);
            break;
        case 7:
            ASSERT_EQ(some, list.copyFirst(room, number));
            EXPECT_TRUE(std::equal(room, room + some, plain.begin()));
            break;
        default:
            if (random() % 20 == 0) {
                list.clear();
                plain.clear();
            }
        }
        ASSERT_EQ(static_cast<int32_t>(plain.size()), list.size()) << step;
        ASSERT_EQ(std::vector<int *>(plain.begin(), plain.end()), contentOf(list)) << step;
        ASSERT_EQ(std::vector<int *>(plainOther.begin(), plainOther.end()), contentOf(other)) << step;
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
    onThreads(5, [&](int number) {
        const std::function<void()> parts[] = {[&] { produce(0); }, [&] { produce(PER_PRODUCER); },
                                               takeSingly, takeBundles, lookOn};
        parts[number]();
    });
    takeSingly();
    EXPECT_EQ(0, list.size());
    for (int i = 0; i < 2 * PER_PRODUCER; ++i) {
        ASSERT_EQ(1, seen[i]) << i;
    }
}

} // namespace
