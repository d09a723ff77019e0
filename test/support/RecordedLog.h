// Stands in for the opened toolkit while it lives: keeps what is logged as finished text and fails the test
// if the arguments do not fit their format. Callable from any thread; one at a time.
#pragma once

#include "ProbeLgKit.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

class RecordedLog {
public:
    struct Line {
        int level;  // an `LgkLevel`; 0 for a line of plain text
        int number; // of a message; 0 for lines of the trace log
        std::string text;
        std::string format; // as it stands in the code
    };

    // Records from `traceLevel` up are let through.
    explicit RecordedLog(int traceLevel = LGK_DEBUG_MAX);
    ~RecordedLog();
    RecordedLog(const RecordedLog &) = delete;
    RecordedLog &operator=(const RecordedLog &) = delete;

    std::vector<Line> lines() const;
    std::vector<std::string> texts() const;
    std::vector<int> numbers() const; // of the messages
    bool has(const std::string &text) const;
    int count(const std::string &format) const; // lines of that format
    int messages(int number) const;
    void clear();

    void keep(Line line);

private:
    template <typename Wanted>
    int countIf(Wanted wanted) const {
        const std::lock_guard<std::mutex> guard(mutex);
        return static_cast<int>(std::count_if(kept.begin(), kept.end(), wanted));
    }

    mutable std::mutex mutex;
    std::vector<Line> kept;
    LgkApi oldApi;
    std::vector<LgkObject *> oldObjects;
};
