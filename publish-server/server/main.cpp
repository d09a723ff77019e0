#include "server/Options.h"
#include "server/Output.h"
#include "server/Render.h"
#include "server/Server.h"
#include "server/Session.h"
#include "server/Totals.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr std::size_t kFinalRows = 100;
std::atomic<bool> stopRequested{false}; // lock-free, so that a signal handler may set it

extern "C" void onSignal(int) {
    if (stopRequested.exchange(true)) {
        _exit(1); // asked twice: somebody does not want to wait
    }
}

// A standard descriptor that is closed would be given to a socket or a file, and output would go there.
void occupyStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            open("/dev/null", O_RDONLY); // takes the lowest; to write there fails, and is told
        }
    }
}

void installSignals() {
    struct sigaction action {};
    action.sa_handler = onSignal; // no SA_RESTART: a blocked write returns and sees the wish to stop
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

// As many descriptors as the connections may need, or as many as there are.
void raiseFileLimit(const ps::Options &options) {
    rlimit limit{};
    if (!options.decodeFile.empty() || getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return;
    }
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const std::size_t each = options.captureDir.empty() ? 1 : 2;
    const std::size_t places = limit.rlim_cur / each;
    if (places < options.maxConnections + 32) {
        std::fprintf(stderr, "only %zu files may be open: not all of %zu connections will find a place\n",
                     static_cast<std::size_t>(limit.rlim_cur), options.maxConnections);
    }
}

bool decodeFile(const ps::Options &options, ps::Totals &totals, ps::RecordSink *sink) {
    std::ifstream file(options.decodeFile, std::ios::binary);
    ps::Session session(1, options.decodeFile, totals, sink, options.maxRecordBytes);
    bool good = true;
    while (good && file && !stopRequested) {
        const ps::StreamDecoder::Space space = session.prepare();
        file.read(space.data, static_cast<std::streamsize>(space.size));
        good = session.commit(static_cast<std::size_t>(file.gcount()));
    }
    const std::string text = ps::summaryText(session.finish("end of the file"));
    std::fwrite(text.data(), 1, text.size(), stderr);
    return good;
}

void serve(const ps::Options &options, ps::Totals &totals, ps::Output &output, ps::RecordSink *sink) {
    ps::Server server(options, totals, output, sink, stopRequested);
    std::fprintf(stderr, "listening on %s\n", server.address().c_str());
    server.run();
}

// Whole or not at all: a script that waits for the file never sees half of it.
bool writeStats(const std::string &path, const ps::Totals &totals) {
    const std::string text = totals.json().dump(2) + "\n";
    std::error_code error;
    const auto target = std::filesystem::status(path, error);
    if (std::filesystem::exists(target) && !std::filesystem::is_regular_file(target)) {
        std::fprintf(stderr, "cannot write %s: no regular file\n", path.c_str());
        return false; // a rename would put a file in the place of a device
    }
    const std::string unfinished = path + ".tmp";
    std::ofstream file(unfinished, std::ios::trunc);
    const bool made = file.is_open();
    file << text;
    file.close();
    error.clear();
    if (file) {
        std::filesystem::rename(unfinished, path, error);
    }
    if (!file || error) {
        std::fprintf(stderr, "cannot write %s\n", path.c_str());
        if (made) {
            std::filesystem::remove(unfinished, error); // leaves nothing behind
        }
        return false;
    }
    return true;
}

int run(const ps::Options &options) {
    ps::Output output(STDOUT_FILENO, stopRequested);
    std::unique_ptr<ps::RecordSink> sink;
    if (options.print || options.json) {
        sink = options.print ? ps::makeTextSink(output) : ps::makeJsonSink(output);
    }
    ps::Totals totals;
    bool good = true;
    if (options.decodeFile.empty()) {
        serve(options, totals, output, sink.get());
    } else {
        good = decodeFile(options, totals, sink.get());
    }
    if (options.table) {
        output.write((output.isTerminal() ? "\x1b[H\x1b[J" : "") + totals.table(kFinalRows));
    }
    output.flush();
    good = good && !output.broken() && totals.capturesLost == 0;
    if (!options.statsFile.empty()) {
        good = writeStats(options.statsFile, totals) && good;
    }
    return good ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
    int status = 0;
    const auto options = ps::parseCommandLine(argc, argv, status);
    if (!options) {
        return status;
    }
    occupyStandardDescriptors();
    installSignals();
    raiseFileLimit(*options);
    try {
        return run(*options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "publish-server: %s\n", error.what());
        return 1;
    }
}
