#include "Catalogues.h"

#include "RegularFile.h"

#include <algorithm>
#include <cstdlib>

namespace nlsm {

namespace {

const nl_catd missing = reinterpret_cast<nl_catd>(-1);

struct Locale {
    std::string name;      // %L
    std::string language;  // %l
    std::string territory; // %t
    std::string codeset;   // %c
};

// "de_AT.UTF-8@euro" gives de, AT and UTF-8; the modifier plays no part.
Locale parseLocale(const std::string &text) {
    Locale locale;
    locale.name = text.substr(0, text.find('@'));
    const size_t dot = locale.name.find('.');
    const std::string place = locale.name.substr(0, dot);
    const size_t underscore = place.find('_');
    locale.language = place.substr(0, underscore);
    locale.territory = underscore == std::string::npos ? "" : place.substr(underscore + 1);
    locale.codeset = dot == std::string::npos ? "" : locale.name.substr(dot + 1);
    return locale;
}

// What %L stands for, most exact first.
std::vector<std::string> localeNames(const Locale &locale) {
    std::vector<std::string> names = {locale.name, locale.name.substr(0, locale.name.find('.')),
                                      locale.language};
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

std::string expand(const std::string &pattern, const Locale &locale, const std::string &catalog) {
    std::string out;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%' || i + 1 == pattern.size()) {
            out += pattern[i];
            continue;
        }
        switch (pattern[++i]) {
        case 'N':
            out += catalog;
            break;
        case 'L':
            out += locale.name;
            break;
        case 'l':
            out += locale.language;
            break;
        case 't':
            out += locale.territory;
            break;
        case 'c':
            out += locale.codeset;
            break;
        default:
            out += pattern[i];
            break;
        }
    }
    return out;
}

std::string environment(std::initializer_list<const char *> variables) {
    for (const char *variable : variables) {
        const char *value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return "";
}

} // namespace

std::vector<std::string> candidates(const std::string &path, const std::string &locale,
                                    const std::string &catalog) {
    const Locale parsed = parseLocale(locale);
    std::vector<std::string> files;
    for (size_t start = 0; start < path.size();) {
        const size_t end = std::min(path.find_first_of(":;", start), path.size());
        const std::string pattern = path.substr(start, end - start);
        start = end + 1;
        if (pattern.empty()) {
            continue;
        }
        for (const std::string &name : localeNames(parsed)) {
            Locale tried = parsed;
            tried.name = name;
            files.push_back(expand(pattern, tried, catalog));
        }
    }
    return files;
}

Catalogues &Catalogues::instance() {
    static Catalogues *catalogues = new Catalogues;
    return *catalogues;
}

void Catalogues::readEnvironment() {
    std::lock_guard<std::mutex> guard(lock_);
    takeEnvironment();
}

void Catalogues::takeEnvironment() {
    path_ = environment({"NLSPATH"});
    locale_ = environment({"LC_ALL", "LC_MESSAGES", "LANG"});
    byName_.clear();
    environmentTaken_ = true;
}

namespace {

// catopen would wait for the other end of a pipe.
bool isRegularFile(const std::string &file) {
    FILE *stream = openRegularFile(file.c_str(), nullptr);
    if (stream != nullptr) {
        fclose(stream);
    }
    return stream != nullptr;
}

} // namespace

// A file name with a slash keeps catopen from searching by rules of its own.
nl_catd Catalogues::open(const std::string &file) {
    const auto known = byFile_.find(file);
    if (known != byFile_.end()) {
        return known->second;
    }
    const auto place = byFile_.emplace(file, missing).first;
    if (file.find('/') != std::string::npos && isRegularFile(file)) {
        place->second = catopen(file.c_str(), 0);
    }
    const nl_catd opened = place->second;
    if (opened == missing) {
        byFile_.erase(place);
    }
    return opened;
}

nl_catd Catalogues::find(const std::string &catalog) {
    if (!environmentTaken_) {
        takeEnvironment();
    }
    const auto known = byName_.find(catalog);
    if (known != byName_.end()) {
        return known->second;
    }
    nl_catd found = missing;
    for (const std::string &file : candidates(path_, locale_, catalog)) {
        if ((found = open(file)) != missing) {
            break;
        }
    }
    byName_[catalog] = found;
    return found;
}

const char *Catalogues::message(const std::string &catalog, int set, int number, const char *defaultText) {
    std::lock_guard<std::mutex> guard(lock_);
    const nl_catd found = find(catalog);
    return found != missing ? catgets(found, set, number, defaultText) : defaultText;
}

} // namespace nlsm
