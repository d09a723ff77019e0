// Fuzz target of the settings: any bytes as lines of a properties file, each twice (values allowed to be
// missing or not), then every typed reading of what was stored.
#include "PropertyMgr.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    PropertyMgr manager;
    std::istringstream lines(std::string(reinterpret_cast<const char *>(data), size));
    for (std::string line; std::getline(lines, line);) {
        const std::string key = line.substr(0, line.find('='));
        for (const bool nullValsOK : {false, true}) {
            std::string copy = line;
            manager.parseProperty(strtrim(copy.data()), nullValsOK);
        }
        const float fraction = manager.getFloatProperty(key.c_str(), 0.5F);
        manager.getIntProperty(key.c_str(), 1);
        manager.getBoolProperty(key.c_str(), true);
        if (!(fraction >= 0.0F && fraction <= 1.0F)) {
            abort();
        }
    }
    return 0;
}
