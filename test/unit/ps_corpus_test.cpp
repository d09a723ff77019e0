// The inputs kept for the decoder's fuzz target, each run as an ordinary test.
#define LLVMFuzzerTestOneInput decoderFuzz
#include "../fuzz/decoder_fuzz.cpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

TEST(PsCorpus, everyKeptInputIsSurvived) {
    const auto corpus = std::filesystem::path(AM_FUZZ_CORPUS) / "decoder";
    int files = 0;
    for (const auto &file : std::filesystem::directory_iterator(corpus)) {
        std::ifstream in(file.path(), std::ios::binary);
        const std::string input((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        SCOPED_TRACE(file.path().filename().string());
        EXPECT_EQ(decoderFuzz(reinterpret_cast<const std::uint8_t *>(input.data()), input.size()), 0);
        ++files;
    }
    EXPECT_GT(files, 5);
}
