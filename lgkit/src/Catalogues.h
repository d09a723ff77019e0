// Opened message catalogues, by name, and where to look for them. Thread-safe. Catalogues are never closed,
// so texts stay valid for the process; one that was not found is not looked for again until the environment
// is re-read.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <nl_types.h>

namespace nlsm {

// Where a catalogue may lie, in the order of the search. `path` is a list of templates, `locale` a locale's
// name.
std::vector<std::string> candidates(const std::string &path, const std::string &locale,
                                    const std::string &catalog);

class Catalogues {
public:
    // Never destroyed.
    static Catalogues &instance();

    // Takes path and locale from the environment as it is now. Otherwise done once, by the first message.
    void readEnvironment();

    const char *message(const std::string &catalog, int set, int number, const char *defaultText);

private:
    nl_catd find(const std::string &catalog);
    nl_catd open(const std::string &file);
    void takeEnvironment();

    std::mutex lock_; // guards all below
    bool environmentTaken_ = false;
    std::string path_;
    std::string locale_;
    std::map<std::string, nl_catd> byName_; // missing ones too
    std::map<std::string, nl_catd> byFile_; // open ones only
};

} // namespace nlsm
