// The notation of the tests for bytes.
#pragma once

#include <cctype>
#include <cstdlib>
#include <string>

// "01 FF 'text'": pairs of hex digits, and ASCII text between single quotes; blanks between them mean
// nothing.
inline std::string bytes(const std::string &notation) {
    std::string out;
    for (std::size_t i = 0; i < notation.size();) {
        if (notation[i] == '\'') {
            const std::size_t close = notation.find('\'', i + 1);
            out += notation.substr(i + 1, close - i - 1);
            i = close + 1;
        } else if (std::isxdigit(static_cast<unsigned char>(notation[i]))) {
            out += static_cast<char>(std::strtoul(notation.substr(i, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            ++i;
        }
    }
    return out;
}
