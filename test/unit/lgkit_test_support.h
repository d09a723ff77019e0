// A logger of its own for each test, with a file in a directory of its own: toolkit objects live as long as
// the process, so tests must not share them. What was logged is read back from the file. One thread.
#pragma once

#include "lgkit/lgkit.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

namespace lgkitTest {

namespace fs = std::filesystem;

inline std::string contentOf(const fs::path &file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

inline bool waitUntil(const std::function<bool()> &condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

inline bool waitForText(const fs::path &file, const std::string &text) {
    return waitUntil([&] { return contentOf(file).find(text) != std::string::npos; });
}

class LogTest : public testing::Test {
protected:
    void SetUp() override {
        static int count = 0;
        id = "t" + std::to_string(getpid()) + "x" + std::to_string(++count);
        directory = fs::temp_directory_path() / ("lgkit-" + id);
        fs::create_directories(directory);
        file = directory / "log.txt";
    }
    void TearDown() override { fs::remove_all(directory); }

    fs::path writeFile(const std::string &name, const std::string &text) const {
        std::ofstream(directory / name) << text;
        return directory / name;
    }

    int open(const std::string &properties) const {
        return LgkOpenToolkit(writeFile("lgkit.properties", properties).c_str());
    }

    std::string loggerName() const { return "logger." + id; }
    std::string handlerName() const { return "handler.file." + id; }

    // A logger with level 4000 and a file handler, both with the given further properties.
    LgkObject *openLogger(const std::string &more = "") {
        const std::string handler = handlerName();
        EXPECT_EQ(1,
                  open(loggerName() + ".level=4000\n" + loggerName() + ".handlers=" + handler +
                       " handler.ffdc." + id + "\n" + handler + ".fileName=" + file.string() + "\n" + more));
        return LgkGetObject(loggerName().c_str(), "lgk_logger");
    }

    // Logs an error and waits for it, so that all that was logged before is on disk.
    void settle(LgkObject *logger) const {
        const auto lines = [this] {
            const std::vector<std::string> all = texts();
            return std::count(all.begin(), all.end(), "ERROR settled");
        };
        const auto before = lines();
        LgkLogError(logger, nullptr, 0, 0, "settled", 0);
        ASSERT_TRUE(waitUntil([&] { return lines() > before; }));
    }

    // The texts of the log, without time stamp and thread id.
    std::vector<std::string> texts() const {
        std::vector<std::string> found;
        std::istringstream lines(contentOf(file));
        for (std::string line; std::getline(lines, line);) {
            found.push_back(line.substr(line.find("] ", line.find("] ") + 2) + 2));
        }
        return found;
    }

    std::string id;
    fs::path directory;
    fs::path file;
};

} // namespace lgkitTest
