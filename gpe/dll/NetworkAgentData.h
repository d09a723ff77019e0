// One buffer in the queue of a network agent: an owned copy of bytes that are ready to be sent.
// Handed from the thread that made it to the agent's thread; not changed in between.
#pragma once

#include "LossAccount.h"
#include "NamedObject.h"

#include <cstdint>
#include <memory>

class NetworkAgentData : public virtual NamedObject {
public:
    // Copies `length` bytes. When memory is out the object keeps its size and has no data.
    NetworkAgentData(const char *bytes, int32_t length);
    ~NetworkAgentData() override;
    // Null, with nothing left behind, when there is no memory for the copy.
    static std::unique_ptr<NetworkAgentData> copyOf(const char *bytes, int32_t length);

    DropFigures figures; // what is lost with it

    int32_t getSize() const { return size; }
    const char *getData() const { return data.get(); } // null if nothing could be copied

private:
    int32_t size;
    std::unique_ptr<char[]> data;
};
