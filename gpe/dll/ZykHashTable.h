// Chained hash table with a fixed, prime bucket count that never grows. It owns its entries only: keys and
// values stay the caller's, string keys are not copied. Synchronised tables lock one bucket at a time, so
// `count` and the snapshots of `keys()` and `values()` are hints while others write. Null keys are logged
// no-ops; 0 means "absent" to `get`. A table that found no memory when it was built stays empty and takes
// nothing in.
#pragma once

#include "NamedObject.h"
#include "ProbeLgKit.h"
#include "Relaxed.h"
#include "ZykLock.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

// The first of the primes up to 1259 that is greater than `n`; `n` itself if there is none.
int nextPrime(int n);

// PJW hash over signed characters.
uint32_t hashString(const char *text);

template <typename K, typename V>
class ZykHashTable : public virtual NamedObject {
public:
    ZykHashTable(int requestedSize, bool stringKeys, bool isSynchronised)
        : NamedObject("ZykHashTable"), size(static_cast<uint32_t>(nextPrime(requestedSize))),
          buckets(new (std::nothrow) Entry *[size + 1]()), isStringKey(stringKeys),
          synchronised(isSynchronised), locks(isSynchronised ? new (std::nothrow) ZykLock[size] : nullptr) {}

    ~ZykHashTable() override {
        clear();
        delete[] buckets;
        delete[] locks;
    }

    // True; replaces the value if the key is there. False, with nothing changed, for a null key and when
    // memory is out.
    bool put(K key, V value) {
        if (refuses(key, "Inserting NULL Key into Hashtable, so ignoring")) {
            return false;
        }
        const Bucket bucket(*this, key);
        Entry *entry = *find(bucket.head(), key);
        if (entry != nullptr) {
            entry->value = value;
            return true;
        }
        entry = new (std::nothrow) Entry{key, value, bucket.head()};
        if (entry == nullptr) {
            return false;
        }
        bucket.head() = entry;
        count += 1;
        return true;
    }

    V get(K key) {
        if (refuses(key, "trying to get with NULL Key, so ignoring")) {
            return V();
        }
        const Bucket bucket(*this, key);
        const Entry *entry = *find(bucket.head(), key);
        return entry != nullptr ? entry->value : V();
    }

    bool contains(K key) {
        if (refuses(key, "checking contains with NULL Key, so ignoring")) {
            return false;
        }
        const Bucket bucket(*this, key);
        return *find(bucket.head(), key) != nullptr;
    }

    bool remove(K key) {
        if (refuses(key, "trying to remove with NULL Key, so ignoring")) {
            return false;
        }
        const Bucket bucket(*this, key);
        Entry **link = find(bucket.head(), key);
        Entry *entry = *link;
        if (entry == nullptr) {
            return false;
        }
        *link = entry->next;
        delete entry;
        count -= 1;
        return true;
    }

    // New arrays of `count + 1` slots, the last one 0, buckets ascending, newest first within a bucket.
    // The caller frees them with delete[]. Null when memory is out.
    K *keys() {
        return snapshot<K>([](const Entry &entry) { return entry.key; });
    }
    V *values() {
        return snapshot<V>([](const Entry &entry) { return entry.value; });
    }

    // Calls `visit(value)` for each, with the lock of its bucket held.
    template <typename Visit>
    void forEach(Visit visit) {
        for (uint32_t i = 0; usable() && i < size; ++i) {
            const ZykLockGuard guard(lockOf(i));
            for (const Entry *entry = buckets[i]; entry != nullptr; entry = entry->next) {
                visit(entry->value);
            }
        }
    }

    void clear() {
        count = 0;
        for (uint32_t i = 0; usable() && i < size; ++i) {
            freeChain(detach(i));
        }
    }

    int32_t entryCount() const { return count; }

    // Takes every bucket's lock once, so that its monitor exists before threads race for it.
    void prepareLocks() {
        for (uint32_t i = 0; locks != nullptr && i < size; ++i) {
            const ZykLockGuard guard(locks[i]);
        }
    }

private:
    struct Entry {
        K key;
        V value;
        Entry *next;
    };

    // The bucket of a key, locked while this object lives.
    class Bucket {
    public:
        Bucket(ZykHashTable &owner, K key)
            : table(owner), index(owner.hash(key) % owner.size), guard(owner.lockOf(index)) {
            if (table.isNullValue(key)) {
                table.complain("Internal error: Trying to lookup for bucket with NULL Key, so ignoring");
            }
        }
        Bucket(const Bucket &) = delete;
        Bucket &operator=(const Bucket &) = delete;
        Entry *&head() const { return table.buckets[index]; }

    private:
        ZykHashTable &table;
        const uint32_t index;
        const ZykLockGuard guard;
    };

    static bool isNullValue(K key) { return key == K(); }

    void complain(const char *text) const { AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ZykHashTable", "%s", text); }

    ZykLock *lockOf(uint32_t index) { return synchronised ? &locks[index] : nullptr; }
    bool usable() const { return buckets != nullptr && (!synchronised || locks != nullptr); }

    // For a null key, which is told, and for any where there is no table.
    bool refuses(K key, const char *nullText) const {
        if (isNullValue(key)) {
            complain(nullText);
            return true;
        }
        return !usable();
    }

    static constexpr bool keyIsText = std::is_same_v<K, const char *> || std::is_same_v<K, char *>;

    uint32_t hash(K key) const {
        if constexpr (keyIsText) {
            if (isStringKey) {
                return hashString(key);
            }
        } else if (isStringKey) {
            complain("Using strcmp for NON Char * data");
        }
        if constexpr (std::is_pointer_v<K>) {
            return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key) >> 3);
        } else {
            return static_cast<uint32_t>(key) >> 3;
        }
    }

    bool equal(K one, K other) const {
        if constexpr (keyIsText) {
            if (isStringKey) {
                return strcmp(one, other) == 0;
            }
        }
        return one == other;
    }

    // The link that points to the key's entry, or the null link at the end of the chain.
    Entry **find(Entry *&head, K key) const {
        Entry **link = &head;
        while (*link != nullptr && !equal((*link)->key, key)) {
            link = &(*link)->next;
        }
        return link;
    }

    Entry *detach(uint32_t index) {
        const ZykLockGuard guard(lockOf(index));
        Entry *chain = buckets[index];
        buckets[index] = nullptr;
        return chain;
    }

    static void freeChain(Entry *chain) {
        while (chain != nullptr) {
            Entry *next = chain->next;
            delete chain;
            chain = next;
        }
    }

    template <typename T, typename Pick>
    T *snapshot(Pick pick) {
        const int32_t counted = count; // once: racing writers may lower it, and even below 0
        const int32_t room = counted > 0 ? counted : 0;
        T *slots = usable() ? new (std::nothrow) T[static_cast<size_t>(room) + 1]() : nullptr;
        int32_t copied = 0;
        for (uint32_t i = 0; slots != nullptr && i < size && copied < room; ++i) {
            const ZykLockGuard guard(lockOf(i));
            for (const Entry *entry = buckets[i]; entry != nullptr && copied < room; entry = entry->next) {
                slots[copied++] = pick(*entry);
            }
        }
        return slots;
    }

    const uint32_t size;
    Relaxed<int32_t> count{0}; // changed under different bucket locks: a hint, not a trusted total
    Entry **buckets;           // one slot more than `size`, the last one unused
    const bool isStringKey;
    const bool synchronised;
    ZykLock *locks;
};
