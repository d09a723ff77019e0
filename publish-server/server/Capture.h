// The raw bytes of one connection in a file of their own. The file's name is new, no file is ever
// overwritten. When the file cannot be made or written, the capture ends with one line on standard error and
// the connection goes on. One thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace ps {

class Capture {
public:
    // An empty directory name: capture nothing. The directory is made if it is missing.
    Capture(const std::string &directory, std::uint64_t connection);

    void write(std::string_view bytes);
    const std::string &path() const { return path_; }
    bool lost() const { return lost_; } // some bytes are missing

private:
    struct Closer {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };
    void giveUp(const char *what);

    std::string path_;
    bool lost_ = false;
    std::unique_ptr<std::FILE, Closer> file_;
};

} // namespace ps
