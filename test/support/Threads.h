// Runs `body(number)` on so many threads at a time and waits for all of them.
#pragma once

#include <thread>
#include <vector>

template <typename Body>
void onThreads(int count, Body body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(body, i);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}
