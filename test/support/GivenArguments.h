// Puts a command line of its own in place of the process's while it lives.
#pragma once

#include "cmdline.h"

#include <string>
#include <utility>
#include <vector>

class GivenArguments {
public:
    explicit GivenArguments(std::vector<std::string> given) : words(std::move(given)) {
        for (std::string &word : words) {
            pointers.push_back(word.data());
        }
        pointers.push_back(nullptr);
        commandLineArgs = pointers.data();
        commandLineArgCount = static_cast<int>(words.size());
    }
    ~GivenArguments() {
        commandLineArgs = oldArgs;
        commandLineArgCount = oldCount;
    }
    GivenArguments(const GivenArguments &) = delete;
    GivenArguments &operator=(const GivenArguments &) = delete;

private:
    std::vector<std::string> words;
    std::vector<char *> pointers;
    char **oldArgs = commandLineArgs;
    int oldCount = commandLineArgCount;
};
