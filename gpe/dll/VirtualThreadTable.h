// The virtual threads by key that have a record and live, in chains through the records themselves: it
// allocates nothing. Any thread.
#pragma once

#include "PlainLock.h"

#include <atomic>
#include <cstdint>
#include <jni.h>

class ThreadData;

class VirtualThreadTable {
public:
    void put(ThreadData *data);
    ThreadData *get(const JNIEnv *key);
    JNIEnv *keyOf(uint32_t number); // null if there is none
    bool remove(const JNIEnv *key);
    void clear();
    int32_t entryCount() const { return count.load(std::memory_order_relaxed); }

private:
    static constexpr uint32_t BUCKETS = 4096;
    static constexpr uint32_t LOCKS = 64;

    template <typename Wanted>
    ThreadData **find(uint32_t number, Wanted wanted);
    PlainLock &lockOf(uint32_t number) { return locks[number % LOCKS]; }

    ThreadData *buckets[BUCKETS] = {};
    PlainLock locks[LOCKS];
    std::atomic<int32_t> count{0};
};
