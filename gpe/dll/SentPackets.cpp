#include "SentPackets.h"

#include <algorithm>

void SentPackets::restart() {
    written = 0;
    acknowledgedTo = 0;
    count = 0;
}

void SentPackets::add(int64_t bytes, const DropFigures &figures, int64_t nowMillis) {
    written += bytes;
    if (figures.sum() == 0) {
        return;
    }
    if (count == CAPACITY) {
        packets[1].figures.add(packets[0].figures);
        forgetFirst(1);
    }
    packets[count++] = {written, nowMillis, figures};
}

void SentPackets::acknowledged(int64_t waiting, int64_t nowMillis) {
    acknowledgedTo = std::max(acknowledgedTo, written - waiting);
    forgetUpTo(acknowledgedTo - RECEIVE_BUFFER);
    if (waiting == 0) {
        const Packet *young = std::find_if(packets, packets + count, [nowMillis](const Packet &packet) {
            return packet.writtenAt + READ_WITHIN_MS > nowMillis;
        });
        forgetFirst(static_cast<int>(young - packets));
    }
}

void SentPackets::forgetUpTo(int64_t offset) {
    const Packet *behind = std::find_if(packets, packets + count,
                                        [offset](const Packet &packet) { return packet.end > offset; });
    forgetFirst(static_cast<int>(behind - packets));
}

void SentPackets::forgetFirst(int number) {
    std::copy(packets + number, packets + count, packets);
    count -= number;
}

DropFigures SentPackets::unread() const {
    DropFigures all;
    for (int i = 0; i < count; ++i) {
        all.add(packets[i].figures);
    }
    return all;
}
