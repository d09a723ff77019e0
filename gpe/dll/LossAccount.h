// What never reached the receiver, by the six counters of a `DroppedEvent`. Whoever destroys an event or a
// packet unsent enters it in the account; an event agent takes the figures out again and tells them. Bounded
// and without a lock or an allocation: any thread, any moment, memory out or not.
#pragma once

#include "Event.h"

#include <atomic>
#include <cstdint>

// In the order of the record.
struct DropFigures {
    enum Kind { OTHER_START, OTHER_END, METHOD_START, METHOD_END, SQL_START, SQL_END, KINDS };

    // As the pump counts what it drops from a queue: begins and ends only.
    void count(const Event &evt);
    // All that is lost with the event: it knows the failed end and the generic begin and end too, and what a
    // `DroppedEvent` tells. Events that stand alone count nowhere.
    void countLoss(const Event &evt);
    void add(const DropFigures &other);
    uint64_t sum() const;
    void fill(DroppedEvent &evt) const; // the figures fit

    uint64_t counts[KINDS] = {};
};

// Where an event is counted when it is lost; `KINDS` is nowhere.
DropFigures::Kind lossKind(const Event &evt);

class LossAccount {
public:
    void enter(const DropFigures &figures);
    void enter(const Event &evt);
    bool isEmpty() const;
    // Takes out as much as one `DroppedEvent` can tell.
    DropFigures take();

private:
    std::atomic<uint64_t> counts[DropFigures::KINDS] = {};
};

extern LossAccount lossAccount;

// Whether losses are told to the event: the property `internal.probe.drops.exact`.
bool dropsAreExact();
