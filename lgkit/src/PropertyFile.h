// Reads a property file: lines `object.property=value`, where object names may contain dots. A '#' opens a
// comment line. Stateless; the result belongs to the caller. Bounded by the size limit of the file.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lgkit {

struct Property {
    std::string object;
    std::string name;
    std::string value; // may be empty
    int line = 0;      // from 1
};

struct PropertyFile {
    std::vector<Property> properties;
    std::vector<int> brokenLines; // numbers of the lines that say nothing
};

// Nothing if the file cannot be read, is no regular file or is larger than 1,000,000 bytes.
std::optional<PropertyFile> readPropertyFile(const char *path);

} // namespace lgkit
