#include "Incident.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lgffdc {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char *directoryPrefix = "incident-";

struct Settings {
    std::string baseDirectory;
    std::vector<fs::path> files;
    long maxIncidents;
    long long bytesLeft; // of this incident
    std::chrono::seconds minInterval;
};

std::string property(LgkObject *handler, const char *name) {
    char *value = LgkGetObjProp(handler, name, nullptr);
    std::string copy = value != nullptr ? value : "";
    LgkMemoryFree(value);
    return copy;
}

long number(LgkObject *handler, const char *name, long otherwise) {
    const std::string text = property(handler, name);
    char *end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    return text.empty() || *end != '\0' || value < 0 ? otherwise : value;
}

std::vector<fs::path> splitFiles(const std::string &list, const fs::path &logDirectory) {
    constexpr const char *separators = " \t,";
    std::vector<fs::path> files;
    for (size_t start = list.find_first_not_of(separators); start != std::string::npos;) {
        const size_t end = list.find_first_of(separators, start);
        const std::string name = list.substr(start, end - start);
        files.push_back(name.find('/') == std::string::npos ? logDirectory / name : fs::path(name));
        start = list.find_first_not_of(separators, end);
    }
    return files;
}

Settings readSettings(LgkObject *handler, const char *logDirectory) {
    return {property(handler, "baseDir"), splitFiles(property(handler, "files"), logDirectory),
            number(handler, "maxIncidents", 20), number(handler, "maxBytes", 50000000),
            std::chrono::seconds(number(handler, "minInterval", 60))};
}

// Counted on disk, so that a server that fails and restarts all night does not fill it.
long countIncidents(const std::string &baseDirectory) {
    std::error_code error;
    long count = 0;
    for (fs::directory_iterator at(baseDirectory, error), end; !error && at != end; at.increment(error)) {
        count += at->path().filename().string().rfind(directoryPrefix, 0) == 0 ? 1 : 0;
    }
    return count;
}

std::string incidentName() {
    static int sequence = 0;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "%Y%m%d-%H%M%S", &local);
    return std::string(directoryPrefix) + stamp + '-' + std::to_string(getpid()) + '-' +
           std::to_string(++sequence);
}

class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    operator int() const { return descriptor_; }

private:
    const int descriptor_;
};

bool writeAll(int file, const char *data, ssize_t size) {
    while (size > 0) {
        const ssize_t written = write(file, data, size);
        if (written <= 0) {
            return false;
        }
        data += written;
        size -= written;
    }
    return true;
}

// Two listed files may share a name.
fs::path freeName(const fs::path &directory, const fs::path &file) {
    fs::path name = directory / file.filename();
    std::error_code error;
    for (int copy = 2; fs::exists(name, error); ++copy) {
        name = directory / (file.filename().string() + "." + std::to_string(copy));
    }
    return name;
}

// Copies the last `limit` bytes of a regular file, the end of a log being the part that tells. Returns how
// many bytes were copied. Anything but a regular file is left alone: a pipe would block.
long long copyTail(const fs::path &from, const fs::path &directory, long long limit) {
    const Descriptor in(open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (in < 0 || fstat(in, &status) != 0 || !S_ISREG(status.st_mode)) {
        return 0;
    }
    const long long start = std::max<long long>(0, status.st_size - limit);
    const Descriptor out(
        open(freeName(directory, from).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    std::vector<char> block(65536);
    long long copied = 0;
    while (out >= 0 && copied < status.st_size - start) {
        const long long wanted = std::min<long long>(block.size(), status.st_size - start - copied);
        const ssize_t got = pread(in, block.data(), wanted, start + copied);
        if (got <= 0 || !writeAll(out, block.data(), got)) {
            break;
        }
        copied += got;
    }
    return copied;
}

void writeIncident(Settings settings, const char *record) {
    const fs::path directory = fs::path(settings.baseDirectory) / incidentName();
    fs::create_directories(directory);
    std::ofstream(directory / "incident.txt") << record << '\n';
    for (const fs::path &file : settings.files) {
        settings.bytesLeft -= copyTail(file, directory, settings.bytesLeft);
    }
}

} // namespace

void recordIncident(LgkObject *handler, const char *record, const char *logDirectory) noexcept {
    static Clock::time_point lastIncident = Clock::time_point::min();
    try {
        const Settings settings = readSettings(handler, logDirectory);
        const Clock::time_point now = Clock::now();
        const bool first = lastIncident == Clock::time_point::min();
        if (settings.baseDirectory.empty() || settings.files.empty() ||
            (!first && now - lastIncident < settings.minInterval) ||
            countIncidents(settings.baseDirectory) >= settings.maxIncidents) {
            return;
        }
        lastIncident = now;
        writeIncident(settings, record);
    } catch (...) {
        // The copy is lost; the record that told of the failure is not.
    }
}

} // namespace lgffdc
