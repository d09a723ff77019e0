#include "server/Options.h"

#include <CLI/CLI.hpp>

namespace ps {
namespace {

constexpr int kUsageStatus = 2;

std::string checkEndpoint(const std::string &text) {
    Options ignored;
    return parseEndpoint(text, ignored) ? std::string()
                                        : "not HOST:PORT with a port from 0 to 65535: " + text;
}

bool parsePort(const std::string &text, std::uint16_t &port) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    const unsigned long value = std::stoul(text);
    port = static_cast<std::uint16_t>(value);
    return value <= 65535;
}

} // namespace

bool parseEndpoint(const std::string &text, Options &options) {
    const std::size_t colon = text.rfind(':');
    std::string host = colon == std::string::npos ? std::string() : text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string::npos) {
        return false; // a bare IPv6 address hides where the port begins
    }
    if (!parsePort(colon == std::string::npos ? text : text.substr(colon + 1), options.port)) {
        return false;
    }
    if (!host.empty()) {
        options.host = host;
    }
    return true;
}

std::optional<Options> parseCommandLine(int argc, const char *const *argv, int &status) {
    Options options;
    std::string endpoint = options.host + ":" + std::to_string(options.port);
    double tableSeconds = 0;
    CLI::App app(
        "Receives the TCP streams of data collectors, decodes every record and shows what they hold.\n"
        "Ends on SIGINT, SIGTERM or after --seconds; per connection a summary goes to standard error.",
        "publish-server");
    app.add_option("--listen", endpoint, "HOST:PORT to accept on; port 0 takes a free one")
        ->check(CLI::Validator(checkEndpoint, "HOST:PORT"))
        ->capture_default_str();
    auto *print = app.add_flag("--print", options.print, "one readable line a record on standard output");
    auto *json =
        app.add_flag("--json", options.json, "one JSON object a record and a connection on standard output");
    auto *table = app.add_option("--table", tableSeconds,
                                 "requests and statements as a table: live every SECONDS (1) on a terminal, "
                                 "and once at the end")
                      ->expected(0, 1)
                      ->check(CLI::Range(0.1, 3600.0))
                      ->type_name("[SECONDS]");
    print->excludes(json)->excludes(table);
    json->excludes(table);
    app.add_option("--capture", options.captureDir, "directory for the raw bytes, a file a connection");
    auto *decode =
        app.add_option("--decode", options.decodeFile, "decode this raw capture instead of listening");
    decode->check(CLI::ExistingFile);
    app.add_option("--stats-file", options.statsFile, "JSON totals of all connections, written at the end");
    app.add_option("--seconds", options.seconds, "end after so many seconds; 0: run until a signal")
        ->check(CLI::Range(0.0, 1e9));
    app.add_option("--max-connections", options.maxConnections, "open connections; more are closed at once")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    app.add_option("--max-per-address", options.maxPerAddress,
                   "open connections from one address; more are closed at once")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    app.add_option("--init-within", options.initSeconds,
                   "seconds within which a connection has to send its initial block")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
    app.add_option("--max-record", options.maxRecordBytes, "bytes of the longest record")
        ->check(CLI::Range(1 << 10, 1 << 30))
        ->capture_default_str();
    app.add_option("--max-memory", options.maxMemoryBytes,
                   "bytes that all connections together may hold; over it, one that holds more than "
                   "its share is closed")
        ->check(CLI::Range(std::size_t{1} << 20, std::size_t{1} << 40))
        ->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        status = app.exit(error) == 0 ? 0 : kUsageStatus;
        return std::nullopt;
    }
    parseEndpoint(endpoint, options);
    options.table = table->count() > 0;
    options.tableSeconds = tableSeconds > 0 ? tableSeconds : 1;
    return options;
}

} // namespace ps
