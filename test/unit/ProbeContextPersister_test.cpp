#include "ProbeContextPersister.h"

#include "RecordedLog.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <functional>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Persister = ProbeContextPersister;
using Text = std::optional<std::string>; // a file's content, or no file

class ProbeContextPersisterTest : public testing::Test {
protected:
    ProbeContextPersisterTest() { fs::create_directories(runtime); }

    static void put(const fs::path &path, const Text &text) {
        fs::remove(path);
        if (text) {
            fs::create_directories(path.parent_path());
            std::ofstream(path, std::ios::binary) << *text;
        }
    }
    static Text get(const fs::path &path) {
        return fs::exists(path) ? Text(TempDir::read(path)) : std::nullopt;
    }

    // No file can be made where a file stands in the directory's place: true for root as well.
    void spoilRuntimeDir() const {
        fs::remove_all(runtime);
        put(runtime, "");
    }
    void mendRuntimeDir() const {
        fs::remove(runtime);
        fs::create_directories(runtime);
    }

    static std::vector<int32_t> values(const Persister &persister) {
        int32_t *elements = persister.ctx_getElems();
        std::vector<int32_t> copy(elements, elements + persister.ctx_getElemCount());
        delete[] elements;
        return copy;
    }

    TempDir directory;
    const fs::path home = directory.path / "home", runtime = directory.path / "runtime";
    const fs::path base = home / "etc/am.mod", bound = runtime / "am.mod";
};

TEST_F(ProbeContextPersisterTest, ReadsWhatTheFilesHold) {
    const struct {
        Text base, bound;
        std::vector<int32_t> expected;
        Text boundAfter;
    } cases[] = {
        {"1", "2", {2, 0, 0, 0}, "2"},
        {std::nullopt, "1D", {1, 1, 0, 0}, "1D"},
        {std::nullopt, "3S", {3, 0, 1, 0}, "3S"},
        {std::nullopt, "2SR", {2, 0, 1, 1}, "2SR"},
        {std::nullopt, "2D\n", {2, 1, 0, 0}, "2D\n"},
        // The line read sees three bytes: a fourth letter is lost.
        {std::nullopt, "2DSR", {2, 1, 1, 0}, "2DSR"},
        {"2DSR", std::nullopt, {2, 1, 1, 0}, "2DS"},
        // The base file makes the bound one, and mends a bad one.
        {"3", std::nullopt, {3, 0, 0, 0}, "3"},
        {"3D", "", {3, 1, 0, 0}, "3D"},
        {"2S", "1X", {2, 0, 1, 0}, "2S"},
        {"2", "1DD", {2, 0, 0, 0}, "2"},
        {"2", "1\r\n", {2, 0, 0, 0}, "2"},
        // What was taken before the error stays if there is no base file, or none that can be read.
        {std::nullopt, "3SX", {3, 0, 1, 0}, "3S"},
        {"2X", "3SX", {2, 0, 0, 0}, "2"},
        // Anything but 1 to 3 is the default level; letters are read all the same.
        {std::nullopt, "4D", {1, 1, 0, 0}, "4D"},
        {std::nullopt, "xS", {1, 0, 1, 0}, "xS"},
        {std::nullopt, "\xFF", {1, 0, 0, 0}, "\xFF"},
        {std::nullopt, std::nullopt, {1, 0, 0, 0}, "1"},
        {"", std::nullopt, {1, 0, 0, 0}, "1"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.base) + " " + testing::PrintToString(c.bound));
        put(base, c.base);
        put(bound, c.bound);
        Persister persister(home.c_str(), runtime.c_str());
        EXPECT_EQ(persister.getLastReadFilePath(), nullptr);
        EXPECT_TRUE(persister.ctx_direct(Persister::CTX_READ));
        EXPECT_EQ(values(persister), c.expected);
        EXPECT_EQ(get(bound), c.boundAfter);
        EXPECT_EQ(get(base), c.base);
        EXPECT_EQ(persister.getLastReadFilePath(), bound.string());
    }
}

// Nothing is waited for, nothing is read or written, one line says so.
TEST_F(ProbeContextPersisterTest, SparesWhatIsNoFile) {
    put(base, "3");
    const std::function<int()> kinds[] = {
        [this] { return mkfifo(bound.c_str(), 0600); },
        [this] { return symlink("/dev/zero", bound.c_str()); },
        [this] { return mkdir(bound.c_str(), 0700); },
    };
    for (const auto &make : kinds) {
        fs::remove(bound);
        ASSERT_EQ(0, make());
        const int reader = open(bound.c_str(), O_RDONLY | O_NONBLOCK); // the pipe could be written to
        const RecordedLog log(LGK_WARN);
        Persister persister(home.c_str(), runtime.c_str());
        EXPECT_FALSE(persister.ctx_direct(Persister::CTX_READ));
        EXPECT_EQ(values(persister), (std::vector<int32_t>{3, 0, 0, 0}));
        EXPECT_FALSE(persister.ctx_setEnum(Persister::ctx_api_ProbeLevel, 2));
        EXPECT_FALSE(fs::is_regular_file(bound));
        char written[8];
        EXPECT_LE(fs::is_fifo(bound) ? read(reader, written, sizeof(written)) : 0, 0);
        EXPECT_TRUE(log.has("Cannot read MOD file " + bound.string() + ": it is no regular file"));
        close(reader);
    }
}

TEST_F(ProbeContextPersisterTest, EveryChangeIsWrittenAtOnceAndReadBack) {
    Persister persister(home.c_str(), runtime.c_str());
    ASSERT_TRUE(persister.ctx_direct(Persister::CTX_READ));
    const struct {
        int element;
        int32_t value;
        bool result;
        const char *file;
    } steps[] = {
        {Persister::ctx_api_ProbeLevel, 3, true, "3"},
        {Persister::ctx_api_ProbeLevel, 4, false, "3"},
        {Persister::ctx_api_ProbeLevel, 0, false, "3"},
        {Persister::ctx_api_SuppressGCEventCollection, 1, true, "3R"},
        {Persister::ctx_api_ProbeLevelIsDefault, -7, true, "3DR"},
        {Persister::ctx_api_SuppressL3Collection, 1, true, "3DSR"},
        {5, 1, false, "3DSR"},
        {0, 1, false, "3DSR"},
        {Persister::ctx_api_ProbeLevelIsDefault, 0, true, "3SR"},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(std::to_string(step.element) + "=" + std::to_string(step.value));
        EXPECT_EQ(persister.ctx_setEnum(step.element, step.value), step.result);
        EXPECT_EQ(get(bound), step.file);
    }
    Persister other(home.c_str(), runtime.c_str());
    EXPECT_TRUE(other.ctx_direct(Persister::CTX_READ));
    EXPECT_EQ(values(other), (std::vector<int32_t>{3, 0, 1, 1}));
    EXPECT_TRUE(other.ctx_set(Persister::ctx_api_ProbeLevel, true));
    EXPECT_TRUE(other.ctx_set(Persister::ctx_api_SuppressL3Collection, false));
    EXPECT_FALSE(other.ctx_set(9, true));
    EXPECT_EQ(get(bound), "1R");
    EXPECT_TRUE(persister.ctx_direct(Persister::CTX_READ_SYNCH));
    EXPECT_EQ(values(persister), (std::vector<int32_t>{1, 0, 0, 1}));
}

TEST_F(ProbeContextPersisterTest, FailureClosesTheWayUntilReadOrReset) {
    put(base, "2S");
    Persister persister(home.c_str(), runtime.c_str());
    EXPECT_FALSE(persister.ctx_direct(Persister::CTX_WRITE)) << "nothing was read yet";
    spoilRuntimeDir();
    EXPECT_FALSE(persister.ctx_direct(Persister::CTX_READ));
    EXPECT_EQ(values(persister), (std::vector<int32_t>{2, 0, 1, 0})) << "the base file's values hold";
    EXPECT_EQ(persister.getLastReadFilePath(), base.string());
    mendRuntimeDir();
    EXPECT_FALSE(persister.ctx_direct(Persister::CTX_WRITE));
    EXPECT_FALSE(persister.ctx_direct(Persister::CTX_READ_SYNCH));
    EXPECT_EQ(get(bound), std::nullopt) << "closed means no attempt";
    EXPECT_TRUE(persister.ctx_direct(Persister::CTX_RESET));
    EXPECT_TRUE(persister.ctx_direct(Persister::CTX_WRITE));
    EXPECT_EQ(get(bound), "2S");

    // A write by the gateway that fails closes it as well; a read opens it.
    spoilRuntimeDir();
    EXPECT_FALSE(persister.ctx_direct(Persister::CTX_WRITE));
    mendRuntimeDir();
    EXPECT_FALSE(persister.ctx_direct(Persister::CTX_WRITE));
    EXPECT_TRUE(persister.ctx_direct(Persister::CTX_READ));

    // A change that could not be written closes nothing once another could.
    spoilRuntimeDir();
    EXPECT_FALSE(persister.ctx_setEnum(Persister::ctx_api_ProbeLevel, 3));
    mendRuntimeDir();
    EXPECT_TRUE(persister.ctx_set(Persister::ctx_api_SuppressL3Collection, false));
    EXPECT_EQ(get(bound), "3");
    EXPECT_TRUE(persister.ctx_direct(Persister::CTX_WRITE));
    EXPECT_TRUE(persister.ctx_direct(Persister::CTX_READ_SYNCH));
    EXPECT_FALSE(persister.ctx_direct(4));
    EXPECT_FALSE(persister.ctx_direct(-1));
}

TEST_F(ProbeContextPersisterTest, UnknownDirectoriesAreNeverTheRootOfTheFileSystem) {
    Persister persister(nullptr, "");
    EXPECT_FALSE(persister.ctx_direct(Persister::CTX_READ));
    EXPECT_FALSE(persister.ctx_setEnum(Persister::ctx_api_ProbeLevel, 2));
    EXPECT_EQ(persister.ctx_getEnum(Persister::ctx_api_ProbeLevel), 2);
    EXPECT_EQ(persister.getLastReadFilePath(), nullptr);
    EXPECT_FALSE(fs::exists("/am.mod"));
    Persister withoutManager;
    EXPECT_FALSE(withoutManager.ctx_direct(Persister::CTX_READ));
}

} // namespace
