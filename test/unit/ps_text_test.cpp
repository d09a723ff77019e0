#include "decoder/Text.h"
#include "ps_bytes.h"

#include <gtest/gtest.h>

TEST(PsText, anyBytesBecomeWellFormedUtf8) {
    const std::string bad = "\xEF\xBF\xBD";
    const struct {
        const char *what;
        std::string in;
        std::string out;
    } cases[] = {
        {"plain", "abc", "abc"},
        {"two and three bytes", bytes("C3A9 E282AC"), "\u00e9\u20ac"},
        {"NUL in two bytes", bytes("61 C080 62"), std::string("a\0b", 3)},
        {"surrogate pair", bytes("EDA0BD EDB880"), "\U0001F600"},
        {"four bytes as they stand", bytes("F09F9880"), "\U0001F600"},
        {"high surrogate alone", bytes("EDA0BD 61"), bad + "a"},
        {"low surrogate alone", bytes("EDB880 61"), bad + "a"},
        {"two high surrogates, then a low", bytes("EDA0BD EDA0BD EDB880"), bad + "\U0001F600"},
        {"overlong", bytes("C1BF E080AF F0808080"), bad + bad + bad + bad + bad + bad + bad + bad + bad},
        {"beyond the last code point", bytes("F4908080"), bad + bad + bad + bad},
        {"cut inside a character", bytes("61 E282"), "a" + bad + bad},
        {"continuation alone", bytes("80 61"), bad + "a"},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(ps::toUtf8(test.in), test.out) << test.what;
    }
}

TEST(PsText, aLineStaysALineAndCannotCommandATerminal) {
    EXPECT_EQ(ps::toLine("a\nb\x1b[2J\"\\"), "a\\x0Ab\\x1B[2J\\\"\\\\");
    EXPECT_EQ(ps::toLine(bytes("C29B")), "\\x9B"); // the one-character form of the terminal's escape
    EXPECT_EQ(ps::toLine("\u20ac\u20ac\u20ac", 2), "\u20ac\u20ac...");
    EXPECT_EQ(ps::toLine("\u20ac\u20ac", 2), "\u20ac\u20ac");
}
