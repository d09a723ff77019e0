#define LLVMFuzzerTestOneInput propertiesFuzz
#include "../fuzz/properties_fuzz.cpp"
#undef LLVMFuzzerTestOneInput
#define LLVMFuzzerTestOneInput contextFuzz
#include "../fuzz/context_fuzz.cpp"

#include "Corpus.h"

TEST(ConfigurationCorpus, EveryKeptInputIsSurvived) {
    runCorpus("properties", propertiesFuzz);
    runCorpus("context", contextFuzz);
}
