#include "ChildRun.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr char MARK[] = "AM_TEST_IN_CHILD";
constexpr unsigned LONGEST_LIFE_SECONDS = 120;

std::string ownTestName() {
    const testing::TestInfo *test = testing::UnitTest::GetInstance()->current_test_info();
    return std::string(test->test_suite_name()) + "." + test->name();
}

std::string contentOf(const fs::path &file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

std::string withoutFrameworkLines(std::string text) {
    if (text.rfind("Running main()", 0) == 0) {
        text.erase(0, text.find('\n') + 1);
    }
    return text.substr(0, text.find("[=========="));
}

std::vector<std::string> wholeCommandLine(const ChildRun &run) {
    std::vector<std::string> words = {run.programName.empty() ? fs::read_symlink("/proc/self/exe").string()
                                                              : run.programName,
                                      "--gtest_filter=" + ownTestName(), "--gtest_brief=1"};
    words.insert(words.end(), run.arguments.begin(), run.arguments.end());
    return words;
}

void redirect(int descriptor, const fs::path &file) {
    const int opened = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(opened, descriptor);
    close(opened);
}

[[noreturn]] void becomeChild(const ChildRun &run, const fs::path &directory) {
    redirect(STDOUT_FILENO, directory / "out");
    redirect(STDERR_FILENO, directory / "err");
    setenv(MARK, "1", 1);
    const char *options = getenv("TSAN_OPTIONS"); // its end would otherwise be delayed by a second
    setenv("TSAN_OPTIONS", ((options != nullptr ? options : "") + std::string(" atexit_sleep_ms=0")).c_str(),
           1);
    for (const auto &[name, value] : run.environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<std::string> words = wholeCommandLine(run);
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    alarm(LONGEST_LIFE_SECONDS);
    execv("/proc/self/exe", argv.data());
    _exit(127);
}

} // namespace

bool inChild() {
    return getenv(MARK) != nullptr;
}

ChildResult runInChild(const ChildRun &run) {
    std::string name = (fs::temp_directory_path() / "am-child-XXXXXX").string();
    const fs::path directory = mkdtemp(name.data());
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        becomeChild(run, directory);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ChildResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                       withoutFrameworkLines(contentOf(directory / "out")), contentOf(directory / "err")};
    fs::remove_all(directory);
    return result;
}

bool leftToChild(const ChildRun &run) {
    if (inChild()) {
        return false;
    }
    const ChildResult child = runInChild(run);
    EXPECT_EQ(0, child.status) << child.out << child.err;
    return true;
}

void endChild() {
    fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
}
