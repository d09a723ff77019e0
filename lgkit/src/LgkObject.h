// A named object of the toolkit: its properties, and for a logger the level that every call site asks for.
// Thread-safe: properties under the object's own lock, the level a relaxed atomic. Objects belong to the
// object store and are never destroyed, so a handle stays good whatever happens.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace lgkit {

constexpr const char *loggerType = "lgk_logger";
constexpr const char *fileHandlerType = "lgk_filehandler";
constexpr const char *ffdcHandlerType = "lgk_ffdchandler";
constexpr size_t maxValueBytes = 4095;

// The whole text as an integer; nothing if it is anything else or does not fit.
std::optional<long> parseInteger(const std::string &text);

} // namespace lgkit

struct LgkObject {
    LgkObject(std::string objectName, std::string typeName);
    LgkObject(const LgkObject &) = delete;
    LgkObject &operator=(const LgkObject &) = delete;

    const std::string name;
    const std::string type;

    bool isLogger() const { return type == lgkit::loggerType; }
    bool lets(int level) const { return level >= level_.load(std::memory_order_relaxed); }

    // False, and nothing changed, for a value that is too long or a "level" that is no integer.
    bool set(const std::string &property, const std::string &value);

    std::optional<std::string> get(const std::string &property) const;

    // A whole number held to the range; `otherwise` if the property is missing or malformed.
    long number(const std::string &property, long otherwise, long lowest, long highest) const;

    // Grows with every change, so that a reader who keeps what it read can tell that it is stale.
    unsigned version() const { return version_.load(std::memory_order_acquire); }

private:
    std::atomic<int> level_;
    std::atomic<unsigned> version_{0};
    mutable std::mutex lock_; // guards properties_
    std::map<std::string, std::string> properties_;
};
