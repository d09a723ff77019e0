// A word that is written by one thread and read by others without a lock.
// Loads and stores are relaxed: the same instructions as for a plain word, but a defined behaviour.
// It orders nothing; whoever needs an order takes a lock.
#pragma once

#include <atomic>

template <typename T>
class Relaxed {
public:
    constexpr Relaxed(T initial = T()) : word(initial) {}
    Relaxed(const Relaxed &) = delete;
    Relaxed &operator=(const Relaxed &) = delete;

    operator T() const { return get(); }
    T operator->() const { return get(); } // for pointers
    T get() const { return word.load(std::memory_order_relaxed); }
    T operator=(T value) {
        word.store(value, std::memory_order_relaxed);
        return value;
    }
    // Not one atomic step: for counters with a single writer, or whose losses are accepted.
    T operator+=(T amount) { return *this = static_cast<T>(get() + amount); }
    T operator-=(T amount) { return *this = static_cast<T>(get() - amount); }

private:
    std::atomic<T> word;
};
