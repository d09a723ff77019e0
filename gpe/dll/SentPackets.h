// The packets written to one connection whose receiver may not have read them yet, as far as TCP can tell.
// Acknowledged is not read: a packet is taken for read when more than a receiver's buffer can hold was
// acknowledged behind it, or when it is old and nothing is waiting for acknowledgement. Bounded: when there
// is no place for one more, the two oldest become one. For the thread of the connection.
#pragma once

#include "LossAccount.h"

#include <cstdint>

class SentPackets {
public:
    void restart(); // for a new connection

    // `bytes` were written; what is lost with them.
    void add(int64_t bytes, const DropFigures &figures, int64_t nowMillis);
    // `waiting` bytes of all that was written are not acknowledged.
    void acknowledged(int64_t waiting, int64_t nowMillis);
    // The receiver has read all that is acknowledged.
    void forgetAcknowledged() { forgetUpTo(acknowledgedTo); }
    bool allAcknowledged() const { return acknowledgedTo == written; }

    DropFigures unread() const;

    static constexpr int64_t RECEIVE_BUFFER = 8 << 20; // bytes; beyond what systems give unasked
    static constexpr int64_t READ_WITHIN_MS = 10000;
    static constexpr int CAPACITY = 64;

private:
    struct Packet {
        int64_t end; // offset in the stream
        int64_t writtenAt;
        DropFigures figures;
    };

    void forgetUpTo(int64_t offset);
    void forgetFirst(int number);

    int64_t written = 0;
    int64_t acknowledgedTo = 0;
    int count = 0;
    Packet packets[CAPACITY];
};
