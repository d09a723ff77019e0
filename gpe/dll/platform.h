// What the agent asks of the operating system beside sockets: clocks, sleep, process facts.
// All functions may be called on any thread.
#pragma once

#include <cstdint>

// Wall clock since the epoch at millisecond resolution: `usec` is a multiple of 1000, below 1000000.
void getCurrentTime(uint32_t *sec, uint32_t *usec);

// Microseconds of a clock that nobody sets: for intervals.
int64_t monotonicMicros();
constexpr int64_t MICROS_PER_MS = 1000;

// Sleeps for `ms` milliseconds; returns at once for 0 or less. A signal does not cut it short.
void thread_sleep(int ms);

int getProcessId();

// Build platform as it stands in the init record: 1 is Windows, 2 is Linux.
int getPlatformId();
