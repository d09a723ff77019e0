// The inputs kept for the fuzz targets of settings and monitoring context, each run as an ordinary test.
#define LLVMFuzzerTestOneInput propertiesFuzz
#include "../fuzz/properties_fuzz.cpp"
#undef LLVMFuzzerTestOneInput
#define LLVMFuzzerTestOneInput contextFuzz
#include "../fuzz/context_fuzz.cpp"

#include <gtest/gtest.h>

#include <iterator>

namespace {

void runCorpus(const char *name, int (*target)(const std::uint8_t *, std::size_t)) {
    int files = 0;
    for (const auto &file :
         fs::directory_iterator(fs::path(__FILE__).parent_path() / "../fuzz/corpus" / name)) {
        std::ifstream in(file.path(), std::ios::binary);
        const std::string input((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        SCOPED_TRACE(file.path().filename().string());
        EXPECT_EQ(target(reinterpret_cast<const std::uint8_t *>(input.data()), input.size()), 0);
        ++files;
    }
    EXPECT_GT(files, 3);
}

TEST(ConfigurationCorpus, EveryKeptInputIsSurvived) {
    runCorpus("properties", propertiesFuzz);
    runCorpus("context", contextFuzz);
}

} // namespace
