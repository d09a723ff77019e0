#define LLVMFuzzerTestOneInput decoderFuzz
#include "../fuzz/decoder_fuzz.cpp"

#include "../support/Corpus.h"

TEST(PsCorpus, everyKeptInputIsSurvived) {
    runCorpus("decoder", decoderFuzz);
}
