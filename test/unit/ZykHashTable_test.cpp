#include "ZykHashTable.h"

#include "FakeVm.h"
#include "Threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using PointerTable = ZykHashTable<void *, void *>;
using NumberTable = ZykHashTable<uint32_t, uint32_t>;
using TextTable = ZykHashTable<const char *, const char *>;

void *pointer(uintptr_t value) {
    return reinterpret_cast<void *>(value);
}

// A snapshot up to its terminating 0.
template <typename T>
std::vector<T> drained(T *snapshot) {
    std::vector<T> result;
    for (const T *at = snapshot; *at != T(); ++at) {
        result.push_back(*at);
    }
    delete[] snapshot;
    return result;
}

// Above 0x7F characters count as negative numbers; the top four bits are folded back and cleared.
TEST(ZykHashTable, HashOfATextIsNeverNegative) {
    EXPECT_EQ(0x672U, hashString("ab"));
    EXPECT_EQ(0x0FFFFF19U, hashString("\xE9"));
    EXPECT_EQ(0x08888F01U, hashString("qqqqqqqq"));
}

TEST(ZykHashTable, PutReplacesAndCounts) {
    NumberTable table(10, false, false);
    EXPECT_FALSE(table.put(0, 5)); // no key
    EXPECT_FALSE(table.contains(0));
    EXPECT_FALSE(table.remove(0));
    EXPECT_TRUE(table.put(8, 1));
    EXPECT_TRUE(table.put(8, 2));
    EXPECT_THAT(drained(table.keys()), ElementsAre(8));
    EXPECT_TRUE(table.put(16, 0));
    EXPECT_EQ(0U, table.get(16)); // as if absent
    EXPECT_TRUE(table.contains(16));
    table.clear();
    EXPECT_EQ(0, table.entryCount());
    EXPECT_FALSE(table.contains(8));
    EXPECT_THAT(drained(table.keys()), IsEmpty());
    EXPECT_THAT(drained(table.values()), IsEmpty());
}

TEST(ZykHashTable, TextKeysAreComparedByContentAndNotCopied) {
    TextTable table(21, true, false);
    const std::string key = "a.key";
    const std::string sameKey = "a.key";
    table.put(key.c_str(), "one");
    EXPECT_STREQ("one", table.get(sameKey.c_str()));
    table.put(sameKey.c_str(), "two");
    EXPECT_EQ(1, table.entryCount());
    EXPECT_EQ(key.c_str(), drained(table.keys()).front()); // the first pointer stays
    EXPECT_TRUE(table.put("", "empty"));                   // an empty text is no null key
    const char nothing[4] = "";
    EXPECT_STREQ("empty", table.get(nothing));

    TextTable byPointer(21, false, false);
    byPointer.put(key.c_str(), "one");
    EXPECT_EQ(nullptr, byPointer.get(sameKey.c_str()));
}

TEST(ZykHashTable, WorksBeforeTheInterfaceAndAfterwards) {
    JVMPIWrapper *old = eventInterface;
    eventInterface = nullptr;
    auto table = std::make_unique<PointerTable>(64, false, true);
    EXPECT_TRUE(table->put(pointer(8), pointer(1)));
    eventInterface = old;
    const FakeVm vm;
    const int before = vm.monitorsAlive();
    table->prepareLocks();
    EXPECT_EQ(before + 67, vm.monitorsAlive());
    EXPECT_EQ(pointer(1), table->get(pointer(8)));
    table.reset();
    EXPECT_EQ(before, vm.monitorsAlive());
}

// Each thread owns its keys, which share buckets with those of the others; a reader takes snapshots
// meanwhile.
TEST(ZykHashTable, ManyThreads) {
    constexpr int THREADS = 4;
    constexpr int KEYS = 40;
    constexpr int STEPS = 4000;
    const FakeVm vm;
    PointerTable table(64, false, true);
    table.prepareLocks();
    std::atomic<bool> done{false};
    std::map<void *, void *> kept[THREADS];
    const auto work = [&](int number) {
        std::mt19937 random(static_cast<unsigned>(number));
        std::map<void *, void *> &own = kept[number];
        for (int step = 0; step < STEPS; ++step) {
            void *key = pointer(8U * (1 + random() % KEYS * THREADS + static_cast<unsigned>(number)));
            void *value = pointer(1 + random() % 1000);
            switch (random() % 3) {
            case 0:
                table.put(key, value);
                own[key] = value;
                break;
            case 1:
                ASSERT_EQ(own.erase(key) == 1, table.remove(key));
                break;
            default:
                ASSERT_EQ(own.count(key) != 0 ? own[key] : nullptr, table.get(key));
            }
        }
    };
    std::thread reader([&] {
        while (!done) {
            for (const void *value : drained(table.values())) {
                ASSERT_LE(value, pointer(1000));
            }
        }
    });
    onThreads(THREADS, work);
    done = true;
    reader.join();
    for (const auto &own : kept) {
        for (const auto &[key, value] : own) {
            EXPECT_EQ(value, table.get(key));
        }
    }
}

} // namespace
