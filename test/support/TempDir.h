// A directory of a test's own, removed with everything in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class TempDir {
public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "am-test-XXXXXX").string();
        path = mkdtemp(name.data());
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    // Makes the file and, where it lies deeper, its directories.
    std::filesystem::path write(const std::filesystem::path &name, const std::string &text) const {
        std::filesystem::create_directories((path / name).parent_path());
        std::ofstream(path / name, std::ios::binary) << text;
        return path / name;
    }
    static std::string read(const std::filesystem::path &file) {
        std::ostringstream text;
        text << std::ifstream(file, std::ios::binary).rdbuf();
        return text.str();
    }

    std::filesystem::path path;
};
