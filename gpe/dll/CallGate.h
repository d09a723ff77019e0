// Lets calls into an object that has a start and a stop: while the gate is open callers pass, and whoever
// closes it can tell when the last of them has left. A gate that outlives its object guards the deletion too.
// Any thread. Nobody waits in here.
#pragma once

#include <atomic>
#include <cstdint>

class CallGate {
public:
    void open() { opened = true; }
    void close() { opened = false; }
    bool isOpen() const { return opened; }
    // After `close`: true once nobody is inside. A caller that is being refused counts for a moment.
    bool isEmpty() const { return inside == 0; }

    // One call. It counts itself in first and looks at the gate afterwards, `close` and `isEmpty` go the
    // other way round: that needs the one total order which relaxed words do not give.
    class Pass {
    public:
        explicit Pass(CallGate &entered) : gate(entered) {
            ++gate.inside;
            admitted = gate.opened;
            if (!admitted) {
                --gate.inside;
            }
        }
        ~Pass() {
            if (admitted) {
                --gate.inside;
            }
        }
        Pass(const Pass &) = delete;
        Pass &operator=(const Pass &) = delete;
        explicit operator bool() const { return admitted; }

    private:
        CallGate &gate;
        bool admitted;
    };

private:
    std::atomic<bool> opened{false};
    std::atomic<int32_t> inside{0};
};
