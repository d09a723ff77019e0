// Text to a file descriptor, standard output as a rule. A reader that is slow makes write() wait, and so
// pauses the reading of all collectors: that is what bounds memory. While waiting it looks at `stop` a few
// times a second; when that is set and the reader still does not read, or once the descriptor is broken,
// output is thrown away, which is told in one line on standard error. One thread.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

namespace ps {

class Output {
public:
    // Does not own `descriptor`; `stop` must outlive the object.
    Output(int descriptor, const std::atomic<bool> &stop) : descriptor_(descriptor), stop_(stop) {}
    ~Output() { flush(); }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    // Kept until flush(), or until kBufferBytes have gathered.
    void write(std::string_view text);
    void flush();

    bool broken() const { return broken_; }
    bool isTerminal() const;

private:
    static constexpr std::size_t kBufferBytes = 64u << 10;
    static constexpr int kWaitMs = 200;
    static constexpr int kPatience = 10;
    bool waitForReader();
    void giveUp(const char *why);

    const int descriptor_;
    const std::atomic<bool> &stop_;
    std::string pending_;
    int patience_ = kPatience;
    bool broken_ = false;
};

} // namespace ps
