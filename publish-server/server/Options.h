// The command line of publish-server.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ps {

struct Options {
    std::string host = "127.0.0.1";
    std::uint16_t port = 16016; // 0: any free port
    bool print = false;
    bool json = false;
    bool table = false;
    double tableSeconds = 1;
    double seconds = 0; // 0: until a signal
    std::string captureDir;
    std::string decodeFile;
    std::string statsFile;
    std::size_t maxConnections = 10000;
    std::size_t maxPerAddress = 2000;
    double initSeconds = 30; // a connection that has not sent its initial block by then goes
    std::size_t maxRecordBytes = 4u << 20;
    std::size_t maxMemoryBytes = 1u << 30; // of all connections together
};

// "HOST:PORT", "[V6]:PORT", ":PORT" or "PORT" (the last two: loopback); false if it is none of these.
bool parseEndpoint(const std::string &text, Options &options);

// Empty when the program is to end at once (help asked for, or a wrong argument); `status` is then its exit
// status.
std::optional<Options> parseCommandLine(int argc, const char *const *argv, int &status);

} // namespace ps
