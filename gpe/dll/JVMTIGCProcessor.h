// Collections as the JVM's own events tell them, kept until Java asks. Dormant: nobody plugs one in.
#pragma once

#include "JVMTIUtils.h"
#include "ZykLock.h"

#include <cstdint>

// The last collections: start and finish, each in milliseconds since the epoch.
struct GCRing {
    static constexpr uint32_t ENTRIES = 10;

    int64_t times[ENTRIES][2] = {};
    uint32_t head = 0;
    uint32_t count = 0;
};

class JVMTIGCProcessor : public GCProcessor {
public:
    // By the JVM, which stands still meanwhile.
    void gcStart() override;
    void gcFinish() override;

    void startNative() override;
    // Whoever waits comes out.
    void stopNative() override;
    // Waits for the next collection. False once it is stopped.
    bool getGCEvent(int64_t (&times)[2]) override;

private:
    GCRing ring;
    ZykLock lock; // guards all; what waits, waits on it
    uint32_t dropped = 0;
    bool running = false;
    int64_t started = 0;
};
