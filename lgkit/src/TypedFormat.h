// Fills a format with typed arguments. Formats may come from a translated catalogue, so nothing in them is
// trusted: each value is printed by its own type, whatever the conversion says, and no argument is read that
// was not passed. Stateless; may throw std::bad_alloc only. Conversions and limits are those of lgkit.h.
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

namespace lgkit {

constexpr size_t maxRecordBytes = 4096;

struct TypedArgument {
    int code = 0;
    long number = 0;            // LGK_ARG_INT, LGK_ARG_LONG
    const char *text = nullptr; // LGK_ARG_STRING, the caller's, null allowed
};

// Reads the pairs up to the 0, an unknown code or the 32nd pair.
std::vector<TypedArgument> collectArguments(va_list arguments);

// Appends at most as much as keeps `out` within maxRecordBytes.
void appendFormatted(std::string &out, const char *format, const std::vector<TypedArgument> &arguments);

} // namespace lgkit
