#include "VirtualThreadTable.h"

#include "ThreadData.h"
#include "VirtualThreads.h"

#include <mutex>

// The link that points to the record, or the null link at the end of its chain.
template <typename Wanted>
ThreadData **VirtualThreadTable::find(uint32_t number, Wanted wanted) {
    ThreadData **link = &buckets[number % BUCKETS];
    while (*link != nullptr && !wanted(**link)) {
        link = &(*link)->nextInBucket;
    }
    return link;
}

void VirtualThreadTable::put(ThreadData *data) {
    const uint32_t number = numberOfVirtual(data->envId);
    const std::lock_guard<PlainLock> guard(lockOf(number));
    ThreadData *&head = buckets[number % BUCKETS];
    data->nextInBucket = head;
    head = data;
    count.fetch_add(1, std::memory_order_relaxed);
}

ThreadData *VirtualThreadTable::get(const JNIEnv *key) {
    const uint32_t number = numberOfVirtual(key);
    const std::lock_guard<PlainLock> guard(lockOf(number));
    return *find(number, [key](const ThreadData &data) { return data.envId == key; });
}

JNIEnv *VirtualThreadTable::keyOf(uint32_t number) {
    const std::lock_guard<PlainLock> guard(lockOf(number));
    const ThreadData *data =
        *find(number, [number](const ThreadData &each) { return numberOfVirtual(each.envId) == number; });
    return data != nullptr ? data->envId : nullptr;
}

bool VirtualThreadTable::remove(const JNIEnv *key) {
    const uint32_t number = numberOfVirtual(key);
    const std::lock_guard<PlainLock> guard(lockOf(number));
    ThreadData **link = find(number, [key](const ThreadData &data) { return data.envId == key; });
    ThreadData *data = *link;
    if (data == nullptr) {
        return false;
    }
    *link = data->nextInBucket;
    count.fetch_sub(1, std::memory_order_relaxed);
    return true;
}

void VirtualThreadTable::clear() {
    for (uint32_t i = 0; i < BUCKETS; ++i) {
        const std::lock_guard<PlainLock> guard(lockOf(i));
        for (; buckets[i] != nullptr; buckets[i] = buckets[i]->nextInBucket) {
            count.fetch_sub(1, std::memory_order_relaxed);
        }
    }
}
