#include "LossAccount.h"

#include "Event_types.h"
#include "PropertyMgr.h"

#include <algorithm>
#include <iterator>
#include <numeric>

LossAccount lossAccount;

namespace {

constexpr uint64_t MOST_IN_A_RECORD = INT32_MAX;

DropFigures::Kind kindOf(Loss loss, bool end) {
    const int base = loss == Loss::Method ? DropFigures::METHOD_START
                     : loss == Loss::Sql  ? DropFigures::SQL_START
                                          : DropFigures::OTHER_START;
    return static_cast<DropFigures::Kind>(base + (end ? 1 : 0));
}

} // namespace

bool dropsAreExact() {
    return boolProperty("internal.probe.drops.exact", false);
}

DropFigures::Kind lossKind(const Event &evt) {
    const Loss loss = factsOf(evt.type).loss;
    if (loss == Loss::OtherBegin || loss == Loss::OtherEnd) {
        return kindOf(loss, loss == Loss::OtherEnd);
    }
    if (loss == Loss::None) {
        return DropFigures::KINDS;
    }
    switch (evt.subType) {
    case Event::SUB_START:
        return kindOf(loss, false);
    case Event::SUB_END:
    case Event::SUB_FAILED:
        return kindOf(loss, true);
    default:
        return DropFigures::KINDS;
    }
}

void DropFigures::count(const Event &evt) {
    if (evt.subType == Event::SUB_START || evt.subType == Event::SUB_END) {
        ++counts[kindOf(factsOf(evt.type).loss, evt.subType == Event::SUB_END)];
    }
}

void DropFigures::countLoss(const Event &evt) {
    if (evt.type == Event::TYPE_DROPPED) {
        const auto &told = static_cast<const DroppedEvent &>(evt);
        const int32_t figures[KINDS] = {told.otherStarts, told.otherEnds, told.methodStarts,
                                        told.methodEnds,  told.sqlStarts, told.sqlEnds};
        for (int kind = 0; kind < KINDS; ++kind) {
            counts[kind] += static_cast<uint32_t>(figures[kind]);
        }
        return;
    }
    const Kind kind = lossKind(evt);
    if (kind != KINDS) {
        ++counts[kind];
    }
}

void DropFigures::add(const DropFigures &other) {
    for (int kind = 0; kind < KINDS; ++kind) {
        counts[kind] += other.counts[kind];
    }
}

uint64_t DropFigures::sum() const {
    return std::accumulate(std::begin(counts), std::end(counts), uint64_t{0});
}

void DropFigures::fill(DroppedEvent &evt) const {
    int32_t *const fields[KINDS] = {&evt.otherStarts, &evt.otherEnds, &evt.methodStarts,
                                    &evt.methodEnds,  &evt.sqlStarts, &evt.sqlEnds};
    for (int kind = 0; kind < KINDS; ++kind) {
        *fields[kind] = static_cast<int32_t>(counts[kind]);
    }
}

void LossAccount::enter(const DropFigures &figures) {
    for (int kind = 0; kind < DropFigures::KINDS; ++kind) {
        if (figures.counts[kind] != 0) {
            counts[kind].fetch_add(figures.counts[kind], std::memory_order_relaxed);
        }
    }
}

void LossAccount::enter(const Event &evt) {
    DropFigures figures;
    figures.countLoss(evt);
    enter(figures);
}

bool LossAccount::isEmpty() const {
    return std::all_of(std::begin(counts), std::end(counts),
                       [](const auto &count) { return count.load(std::memory_order_relaxed) == 0; });
}

DropFigures LossAccount::take() {
    DropFigures taken;
    DropFigures rest;
    for (int kind = 0; kind < DropFigures::KINDS; ++kind) {
        const uint64_t all = counts[kind].exchange(0, std::memory_order_relaxed);
        taken.counts[kind] = std::min(all, MOST_IN_A_RECORD);
        rest.counts[kind] = all - taken.counts[kind];
    }
    enter(rest);
    return taken;
}
