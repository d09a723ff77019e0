#include "LgkObject.h"

#include <algorithm>
#include <charconv>
#include <climits>

namespace {

// Loggers with no level of their own are quiet for debug; what is no logger lets nothing through.
int initialLevel(const std::string &type) {
    return type == lgkit::loggerType ? 4000 : INT_MAX;
}

} // namespace

std::optional<long> lgkit::parseInteger(const std::string &text) {
    long value = 0;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        return std::nullopt;
    }
    return value;
}

LgkObject::LgkObject(std::string objectName, std::string typeName)
    : name(std::move(objectName)), type(std::move(typeName)), level_(initialLevel(type)) {}

bool LgkObject::set(const std::string &property, const std::string &value) {
    if (value.size() > lgkit::maxValueBytes) {
        return false;
    }
    const bool isLevel = isLogger() && property == "level";
    const std::optional<long> level = isLevel ? lgkit::parseInteger(value) : std::nullopt;
    if (isLevel && (!level || *level < INT_MIN || *level > INT_MAX)) {
        return false;
    }
    std::lock_guard<std::mutex> guard(lock_);
    properties_[property] = value;
    if (isLevel) {
        level_.store(static_cast<int>(*level), std::memory_order_relaxed);
    }
    version_.fetch_add(1, std::memory_order_release);
    return true;
}

std::optional<std::string> LgkObject::get(const std::string &property) const {
    std::lock_guard<std::mutex> guard(lock_);
    const auto found = properties_.find(property);
    return found == properties_.end() ? std::nullopt : std::optional<std::string>(found->second);
}

long LgkObject::number(const std::string &property, long otherwise, long lowest, long highest) const {
    const std::optional<long> value = lgkit::parseInteger(get(property).value_or(""));
    return std::clamp(value.value_or(otherwise), lowest, highest);
}
