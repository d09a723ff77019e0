#include "lgkit_test_support.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

using namespace lgkitTest;
using Clock = std::chrono::steady_clock;

class LgkitFiles : public LogTest {
protected:
    // Runs a disabled test of this program in a process of its own, with the directory as its argument.
    int runChild(const char *test, const std::vector<std::string> &more = {}) const {
        const std::string filter = std::string("--gtest_filter=") + test;
        std::vector<std::string> variables = {"LGKIT_CHILD_DIRECTORY=" + directory.string()};
        variables.insert(variables.end(), more.begin(), more.end());
        std::vector<char *> environment;
        for (std::string &variable : variables) {
            environment.push_back(variable.data());
        }
        environment.push_back(nullptr);
        const char *arguments[] = {"lgkit_test", filter.c_str(), "--gtest_also_run_disabled_tests",
                                   "--gtest_brief=1", nullptr};
        pid_t child = 0;
        EXPECT_EQ(0, posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, const_cast<char **>(arguments),
                                 environment.data()));
        int status = -1;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        return status;
    }
};

TEST_F(LgkitFiles, rotateBySizeAndKeepOnlySoMany) {
    LgkObject *logger = openLogger(handlerName() + ".maxFileSize=2000\n" + handlerName() + ".maxFiles=3\n");
    for (int i = 0; i < 200; ++i) {
        LgkLogInfo(logger, nullptr, 0, 0, "record %d", LGK_ARG_INT, i, 0);
    }
    settle(logger);
    for (const char *name : {"log.txt", "log.1.txt", "log.2.txt"}) {
        EXPECT_LE(fs::file_size(directory / name), 2000u) << name;
        EXPECT_GT(fs::file_size(directory / name), 100u) << name;
    }
    EXPECT_FALSE(fs::exists(directory / "log.3.txt"));
    EXPECT_NE(std::string::npos, (contentOf(directory / "log.1.txt") + contentOf(file)).find("record 199\n"));
}

TEST_F(LgkitFiles, recordsAreOneLineWhateverTheTextHolds) {
    LgkObject *logger = openLogger();
    LgkLogInfo(logger, nullptr, 0, 0, "[%.90s (%.90s@%d)] %.90s \n", LGK_ARG_STRING, "ProbeMgr",
               LGK_ARG_STRING, "start", LGK_ARG_INT, 12, LGK_ARG_STRING,
               "x\n[2026-01-01] ERROR forged\r\x1b[31m", 0);
    LgkLogText(logger, (std::string(10000, 'y')).c_str(), 0);
    settle(logger);
    const std::vector<std::string> lines = texts();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("INFO [ProbeMgr (start@12)] x [2026-01-01] ERROR forged  [31m", lines[0]);
    EXPECT_EQ(std::string(4096, 'y'), lines[1]);
}

TEST_F(LgkitFiles, unusableTargetCostsItsRecordsOnly) {
    LgkObject *logger = openLogger();
    LgkObject *handler = LgkGetObject(handlerName().c_str(), nullptr);
    writeFile("occupied", "");
    ASSERT_EQ(0, mkfifo((directory / "unread").c_str(), 0600));
    testing::internal::CaptureStderr();
    for (const fs::path &target : {directory / "occupied" / "log.txt", directory, directory / "unread",
                                   fs::path("/dev/full"), fs::path("")}) {
        LgkSetObjProp(handler, "fileName", target.c_str());
        LgkLogError(logger, nullptr, 0, 0, "lost", 0);
        LgkLogError(logger, nullptr, 0, 0, "lost too", 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(80)); // the worker has seen this target
    }
    LgkSetObjProp(handler, "fileName", file.c_str()); // no need to wait for the next try
    settle(logger);
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

// A pipe that is open but not read stands for a disk that hangs: the worker sticks in it, the callers must
// not.
TEST_F(LgkitFiles, stuckDiskNeverHoldsACallerAndLossIsTold) {
    LgkObject *logger = openLogger();
    LgkObject *handler = LgkGetObject(handlerName().c_str(), nullptr);
    const fs::path pipe = directory / "pipe";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    LgkSetObjProp(handler, "fileName", pipe.c_str());
    constexpr int records = 100000;
    std::chrono::nanoseconds slowest{0};
    for (int i = 0; i < records; ++i) {
        const auto before = Clock::now();
        LgkLogError(logger, nullptr, 0, 0, "record %d", LGK_ARG_INT, i, 0);
        slowest = std::max<std::chrono::nanoseconds>(slowest, Clock::now() - before);
    }
    EXPECT_LT(slowest, std::chrono::seconds(2));

    std::string seen;
    EXPECT_TRUE(waitUntil([&] {
        char block[65536];
        for (ssize_t got; (got = read(reader, block, sizeof(block))) > 0;) {
            seen.append(block, got);
        }
        return seen.find("were lost") != std::string::npos &&
               seen.find("record 99999\n") != std::string::npos;
    }));
    LgkSetObjProp(handler, "fileName", file.c_str()); // before the pipe loses its reader
    settle(logger);
    close(reader);
    long lost = 0;
    for (size_t at = 0; (at = seen.find("] WARN ", at)) != std::string::npos; ++at) {
        lost += std::strtol(seen.c_str() + at + 7, nullptr, 10);
    }
    size_t written = 0;
    for (size_t at = 0; (at = seen.find("] ERROR record ", at)) != std::string::npos; ++at) {
        ++written;
    }
    EXPECT_EQ(records, static_cast<long>(written) + lost) << "every record is written or counted";
}

TEST_F(LgkitFiles, exitWritesWhatWasLogged) {
    EXPECT_EQ(0, runChild("LgkitChild.DISABLED_logsAndExits"));
    const std::string content = contentOf(file);
    EXPECT_NE(std::string::npos, content.find("record 0\n"));
    EXPECT_NE(std::string::npos, content.find("record 4999\n"));
}

TEST_F(LgkitFiles, stuckDiskHoldsTheExitForTwoSecondsAtMost) {
    ASSERT_EQ(0, mkfifo(file.c_str(), 0600));
    const auto before = Clock::now();
    EXPECT_EQ(0, runChild("LgkitChild.DISABLED_logsAndExits"));
    EXPECT_LT(Clock::now() - before, std::chrono::seconds(6));
}

TEST_F(LgkitFiles, forkedProcessExitsWithoutTheWorker) {
    EXPECT_EQ(0, runChild("LgkitChild.DISABLED_forksAndExits"));
}

TEST_F(LgkitFiles, workerTakesNoSignalOfTheServer) {
    settle(openLogger());
    int workers = 0;
    for (const auto &task : fs::directory_iterator("/proc/self/task")) {
        if (contentOf(task.path() / "comm") != "lgkit\n") {
            continue;
        }
        ++workers;
        const std::string status = contentOf(task.path() / "status");
        const size_t at = status.find("SigBlk:\t") + 8;
        const unsigned long long blocked = std::strtoull(status.c_str() + at, nullptr, 16);
        for (int signal : {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2, SIGCHLD, SIGPIPE}) {
            EXPECT_TRUE(blocked & (1ull << (signal - 1))) << signal;
        }
    }
    EXPECT_EQ(1, workers);
}

// What the tests above run in processes of their own.
class LgkitChild : public LogTest {
protected:
    LgkObject *openInParentsDirectory() {
        file = fs::path(getenv("LGKIT_CHILD_DIRECTORY")) / "log.txt";
        return openLogger();
    }
};

TEST_F(LgkitChild, DISABLED_logsAndExits) {
    LgkObject *logger = openInParentsDirectory();
    for (int i = 0; i < 5000; ++i) {
        LgkLogInfo(logger, nullptr, 0, 0, "record %d", LGK_ARG_INT, i, 0);
    }
}

TEST_F(LgkitChild, DISABLED_forksAndExits) {
    LgkObject *logger = openInParentsDirectory();
    settle(logger);
    const auto before = Clock::now();
    const pid_t forked = fork();
    if (forked == 0) {
        exit(0);
    }
    int status = -1;
    EXPECT_EQ(forked, waitpid(forked, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_LT(Clock::now() - before, std::chrono::milliseconds(1900)); // the limit was not waited for
}
