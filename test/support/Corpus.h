// The inputs kept for a fuzz target, each run as part of an ordinary test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline void runCorpus(const char *name, int (*target)(const std::uint8_t *, std::size_t)) {
    int files = 0;
    const auto kept = std::filesystem::path(__FILE__).parent_path() / "../fuzz/corpus" / name;
    for (const auto &file : std::filesystem::directory_iterator(kept)) {
        std::ifstream in(file.path(), std::ios::binary);
        const std::string input((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        SCOPED_TRACE(file.path().filename().string());
        EXPECT_EQ(target(reinterpret_cast<const std::uint8_t *>(input.data()), input.size()), 0);
        ++files;
    }
    EXPECT_GT(files, 3);
}
