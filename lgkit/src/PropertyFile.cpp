#include "PropertyFile.h"

#include "LgkObject.h"
#include "RegularFile.h"

#include <memory>
#include <sstream>

namespace lgkit {

namespace {

constexpr size_t maxFileBytes = 1000000;

std::string trim(const std::string &text) {
    const char *blanks = " \t\r\n\f\v";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Nothing if it cannot be read or is too long.
std::optional<std::string> readFile(const char *path) {
    const std::unique_ptr<FILE, int (*)(FILE *)> file(openRegularFile(path, nullptr), fclose);
    if (!file) {
        return std::nullopt;
    }
    std::string content(maxFileBytes + 1, '\0');
    content.resize(fread(content.data(), 1, content.size(), file.get()));
    return content.size() <= maxFileBytes ? std::optional(std::move(content)) : std::nullopt;
}

std::optional<Property> parseLine(const std::string &text, int line) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        return std::nullopt;
    }
    const std::string key = trim(text.substr(0, equals));
    const size_t dot = key.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == key.size()) {
        return std::nullopt;
    }
    const std::string value = trim(text.substr(equals + 1));
    if (value.size() > maxValueBytes || text.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return Property{key.substr(0, dot), key.substr(dot + 1), value, line};
}

} // namespace

std::optional<PropertyFile> readPropertyFile(const char *path) {
    const std::optional<std::string> content = readFile(path);
    if (!content) {
        return std::nullopt;
    }
    std::istringstream in(*content);
    PropertyFile file;
    int line = 0;
    for (std::string raw; std::getline(in, raw);) {
        const std::string text = trim(raw);
        ++line;
        if (text.empty() || text[0] == '#') {
            continue;
        }
        if (std::optional<Property> property = parseLine(text, line)) {
            file.properties.push_back(std::move(*property));
        } else {
            file.brokenLines.push_back(line);
        }
    }
    // Out of memory or unreadable half way: better no settings than half of them.
    return in.bad() ? std::nullopt : std::optional<PropertyFile>(std::move(file));
}

} // namespace lgkit
