#include "lgkit_test_support.h"

#include <climits>
#include <cstring>

using namespace lgkitTest;

class LgkitFormat : public LogTest {};

// Every case is logged with the same arguments: int -7, long 5000000000, string "text", null string.
TEST_F(LgkitFormat, argumentsAreReadByTheirOwnType) {
    const struct {
        const char *format;
        std::string expected;
    } cases[] = {
        {"plain", "plain"},
        {"%d|%ld|%s|%s", "-7|5000000000|text|(null)"},
        {"%i %li %5s", "-7 5000000000  text"},
        {"%5d|%-5ld|%-6s|%.2s", "   -7|5000000000|text  |(n"},
        {"%05d|%+ld|%.2s", "-0007|+5000000000|te"},
        {"%x %lx", "fffffff9 12a05f200"},
        {"%u %lu", "4294967289 5000000000"},
        {"%#X", "0XFFFFFFF9"},
        {"%2$s %0$d %1$ld %2$.1s", "text -7 5000000000 t"},
        {"(%0$d) to (%1$d)", "(-7) to (5000000000)"},
        {"100%% %d%%", "100% -7%"},
        // Mistyped: the value in its natural form.
        {"%s %.90s", "-7 5000000000"},
        {"%2$d %2$x %2$c %2$f", "text text text text"},
        {"%lf %.0f", "-7.000000 5000000000"},
        // Missing arguments.
        {"%d %d %s %s %s %d", "-7 5000000000 text (null) (missing) (missing)"},
        {"%4$s %99999999999$d", "(missing) (missing)"},
        // What is no conversion is text; nothing is ever written through an argument.
        {"%n%n %p %*d", "%n%n %p %*d"},
        {"end %", "end %"},
        {"%5", "%5"},
        {"%-+ #0", "%-+ #0"},
        {"%$d %q %\x01", "%$d %q %"},
        {"%3$.3s|%3$10s", "(nu|    (null)"},
    };
    LgkObject *logger = openLogger();
    std::vector<std::string> expected;
    for (const auto &c : cases) {
        LgkLogInfo(logger, nullptr, 0, 0, c.format, LGK_ARG_INT, -7, LGK_ARG_LONG, 5000000000L,
                   LGK_ARG_STRING, "text", LGK_ARG_STRING, static_cast<const char *>(nullptr), 0);
        expected.push_back("INFO " + c.expected);
    }
    settle(logger);
    expected.push_back("ERROR settled");
    EXPECT_EQ(expected, texts());
}

TEST_F(LgkitFormat, extremesStayBounded) {
    LgkObject *logger = openLogger();
    const std::string huge(100000, 'h');
    std::string many;
    for (int i = 0; i < 3000; ++i) {
        many += "%999999999d";
    }
    LgkLogInfo(logger, nullptr, 0, 0, "%s", LGK_ARG_STRING, huge.c_str(), 0);
    LgkLogInfo(logger, nullptr, 0, 0, huge.c_str(), 0);
    LgkLogInfo(logger, nullptr, 0, 0, many.c_str(), LGK_ARG_INT, 1, 0);
    LgkLogInfo(logger, nullptr, 0, 0, "%999999999.999999999d|", LGK_ARG_LONG, LONG_MIN, 0);
    LgkLogInfo(logger, nullptr, 0, 0, "%ld %lu %d", LGK_ARG_LONG, LONG_MIN, LGK_ARG_LONG, -1L, LGK_ARG_INT,
               INT_MIN, 0);
    LgkLogInfo(logger, nullptr, 0, 0, "%d %d", LGK_ARG_INT, 1, 999, 2, 0); // an unknown code ends the list
    settle(logger);
    const std::vector<std::string> lines = texts();
    ASSERT_EQ(7u, lines.size());
    EXPECT_EQ(4096u, lines[0].size());
    EXPECT_EQ(4096u, lines[1].size());
    EXPECT_LE(lines[2].size(), 4096u);
    EXPECT_EQ("INFO -" + std::string(981, '0') + "9223372036854775808|", lines[3]);
    EXPECT_EQ("INFO -9223372036854775808 18446744073709551615 -2147483648", lines[4]);
    EXPECT_EQ("INFO 1 (missing)", lines[5]);
}

// The string ends at an unreadable byte: a precision must keep the reader from going on to the NUL.
TEST_F(LgkitFormat, precisionBoundsTheReading) {
    LgkObject *logger = openLogger();
    const char unterminated[4] = {'a', 'b', 'c', 'd'};
    LgkLogInfo(logger, nullptr, 0, 0, "%.4s", LGK_ARG_STRING, unterminated, 0);
    settle(logger);
    EXPECT_EQ("INFO abcd", texts().front());
}
