// Texts on the wire are 8-bit strings, in the JVM's modified UTF-8 as a rule. These functions turn any bytes
// into well-formed UTF-8: NUL written as C0 80 and surrogate pairs are resolved, what is no character becomes
// U+FFFD. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>

namespace ps {

std::string toUtf8(std::string_view text);

// As toUtf8, fit for one line on a terminal: control characters, backslash and quote are escaped, and after
// `columns` characters the text is cut and ends in "...".
std::string toLine(std::string_view text, std::size_t columns = static_cast<std::size_t>(-1));

// Two upper-case digits a byte, no blanks.
std::string toHex(std::string_view bytes);

} // namespace ps
