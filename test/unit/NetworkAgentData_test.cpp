#include "NetworkAgentData.h"

#include <gtest/gtest.h>

#include <string>

TEST(NetworkAgentData, KeepsACopyOfItsOwn) {
    std::string bytes("\0one\x7F", 5);
    const NetworkAgentData buffer(bytes.data(), 5);
    bytes.assign(5, 'x');
    EXPECT_EQ(5, buffer.getSize());
    EXPECT_EQ(std::string("\0one\x7F", 5), std::string(buffer.getData(), 5));
}

TEST(NetworkAgentData, WithoutBytesHasASizeAndNoData) {
    for (const int size : {-1, 0, 3}) {
        const NetworkAgentData buffer(nullptr, size);
        EXPECT_EQ(size, buffer.getSize());
        EXPECT_EQ(nullptr, buffer.getData());
    }
    EXPECT_EQ(nullptr, NetworkAgentData("abc", -3).getData());
    EXPECT_NE(nullptr, NetworkAgentData("", 0).getData());
    EXPECT_EQ(nullptr, NetworkAgentData::copyOf(nullptr, 3));
    EXPECT_EQ(3, NetworkAgentData::copyOf("abc", 3)->getSize());
}
