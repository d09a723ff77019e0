// The agents of a pool and the threads in them, as both pools have it: who may come in, who holds which
// agent, how all are ended, and what becomes of one whose thread does not come back. Any thread may call at
// any time; `fill`, `end` and `drop` are for the one who starts and stops the pool, while the gate is closed.
#pragma once

#include "CallGate.h"
#include "MemoryMonitor.h"
#include "Relaxed.h"
#include "platform.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <new>

// An agent's owners: its pool is the first, each thread that runs or ends it another. The last to leave
// destroys it.
class SharedAgent {
public:
    void hold() { ++owners; }
    void release() {
        if (--owners == 0) {
            delete this;
        }
    }
    bool isShared() const { return owners > 1; }
    // In place of the pool's `release`: it stays in memory, for whoever looks there linked to the others.
    void abandon() {
        static SharedAgent *last = nullptr;
        abandonedBefore = last;
        last = this;
    }

protected:
    virtual ~SharedAgent() = default;

private:
    std::atomic<int32_t> owners{1};
    SharedAgent *abandonedBefore = nullptr;
};

// Looks until the condition holds; false if it does not by `deadline`, in microseconds of the monotonic
// clock.
template <typename Condition>
bool awaitUntil(int64_t deadline, Condition condition) {
    while (!condition()) {
        if (monotonicMicros() >= deadline) {
            return false;
        }
        thread_sleep(1);
    }
    return true;
}

template <typename Agent>
class AgentSlots {
public:
    CallGate gate; // open from start to stop: who is let in finds the agents, for as long as he stays

    // Makes those that are missing of `count` agents, at most `MAX_POOL_SIZE`, as far as memory goes.
    void fill(int32_t count) {
        size = count;
        for (int32_t id = 0; id < count; ++id) {
            if (agents[id] == nullptr) {
                agents[id] = new (std::nothrow) Agent(id);
            }
        }
    }

    // Null if there is none.
    Agent *at(int32_t id) const { return id >= 0 && id < size ? agents[id].get() : nullptr; }

    // For those inside the gate.
    template <typename Visit>
    void forEach(Visit visit) const {
        for (int32_t id = 0; id < size; ++id) {
            if (Agent *agent = agents[id]) {
                visit(*agent);
            }
        }
    }

    // The next two are for callers from outside: nothing, and 0, while the pool is closed.
    template <typename Visit>
    void call(Visit visit) {
        const CallGate::Pass pass(gate);
        if (pass) {
            forEach(visit);
        }
    }
    template <typename Figure>
    int32_t sum(Figure figure) {
        int32_t total = 0;
        call([&](Agent &agent) { total += figure(agent); });
        return total;
    }

    // The index of the first agent that fits, from `start` on and round; -1 if there is none.
    template <typename Fits>
    int32_t firstFrom(int32_t start, Fits fits) const {
        for (int32_t step = 0; step < size; ++step) {
            const int32_t index = (start + step) % size;
            const Agent *agent = agents[index];
            if (agent != nullptr && fits(*agent)) {
                return index;
            }
        }
        return -1;
    }

    // Runs or ends one: calls `use` with the agent of that id, which stays in memory meanwhile, though the
    // pool may be closed. Nothing if it is closed already or there is no such agent.
    template <typename Use>
    void with(int32_t id, Use use) {
        Agent *agent = holdAgent(id);
        if (agent != nullptr) {
            use(*agent);
            agent->release();
            --holders;
        }
    }
    // Whether nobody is inside the gate or `with`, be it for an agent that was dropped.
    bool isLeft() const { return gate.isEmpty() && holders == 0; }

    // Ends all, told before the first is waited for. A thread may have been let in before the gate closed and
    // start its agent only after it was told to stop: after `waiting(agent)` that one is told again. False if
    // at `deadline` a thread still holds one, or is inside the gate.
    template <typename Waiting>
    bool end(int64_t deadline, Waiting waiting) {
        const auto rest = [deadline] { return (deadline - monotonicMicros()) / MICROS_PER_MS; };
        forEach([](Agent &agent) { agent.requestStop(); });
        forEach([&](Agent &agent) { agent.stopThread(rest()); });
        return awaitUntil(deadline, [&] {
            const bool noneComes = gate.isEmpty(); // first: who is inside may be about to hold one
            Agent *shared = firstShared();
            if (shared != nullptr && shared->isAlive() && rest() > 0) {
                waiting(*shared);
                shared->stopThread(rest());
            }
            return noneComes && shared == nullptr;
        });
    }
    Agent *firstShared() const {
        return at(firstFrom(0, [](const Agent &agent) { return agent.isShared(); }));
    }

    // Empties the slots; no thread is let into these agents any more. They go with their last owner, or stay
    // in memory for threads that may still come upon them.
    void drop(bool mayGo) {
        for (int32_t id = 0; id < size; ++id) {
            if (Agent *agent = agents[id]) {
                agents[id] = nullptr;
                agent->forget();
                mayGo ? agent->release() : agent->abandon();
            }
        }
    }

private:
    Agent *holdAgent(int32_t id) {
        const CallGate::Pass pass(gate);
        Agent *agent = pass ? at(id) : nullptr;
        if (agent != nullptr) {
            ++holders;
            agent->hold();
        }
        return agent;
    }

    Relaxed<Agent *> agents[MAX_POOL_SIZE]; // owned; null where memory was out
    Relaxed<int32_t> size{0};
    std::atomic<int32_t> holders{0}; // threads in `with`
};
