#include "NetworkAgentData.h"

#include "ProbeLgKit.h"

#include <cstring>
#include <new>
#include <utility>

NetworkAgentData::NetworkAgentData(const char *bytes, int32_t length)
    : NamedObject("NetworkAgentData"), size(length) {
    if (bytes == nullptr || length < 0) {
        return;
    }
    data.reset(new (std::nothrow) char[static_cast<size_t>(length)]);
    if (data != nullptr) {
        memcpy(data.get(), bytes, static_cast<size_t>(length));
        return;
    }
    traceError("new() failure at NetworkAgentData - out of memory for buffer size: %d", length);
    AM_TRACE(naTracer, LGK_DEBUG_MID, "NetworkAgentData::NetworkAgentData( const char* data, int size )",
             "new() failure - out of memory");
}

NetworkAgentData::~NetworkAgentData() = default;

std::unique_ptr<NetworkAgentData> NetworkAgentData::copyOf(const char *bytes, int32_t length) {
    std::unique_ptr<NetworkAgentData> copy(new (std::nothrow) NetworkAgentData(bytes, length));
    return copy != nullptr && copy->getData() != nullptr ? std::move(copy) : nullptr;
}
