#include "class.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace {

class ClassRegistry : public testing::Test {
protected:
    ClassRegistry() {
        initMethodLocks();
        initClassTableLock();
        initClassSequenceLock();
    }
    ~ClassRegistry() override { replaceClassFilter(nullptr, nullptr); }

    // Held by the tables alone.
    static jclass_t *registered(const std::string &name, uint32_t firstId = 0, int methods = 0) {
        auto *cls = new jclass_t;
        cls->name = strdup(name.c_str());
        cls->methods = new jmethod_t[static_cast<size_t>(methods)];
        cls->methodCount = methods;
        for (int i = 0; i < methods; ++i) {
            cls->methods[i].id = firstId + static_cast<uint32_t>(i);
        }
        cls->doRegister();
        return cls;
    }

    static char **list(const std::vector<const char *> &texts) {
        auto **copy = static_cast<char **>(calloc(texts.size() + 1, sizeof(char *)));
        for (size_t i = 0; i < texts.size(); ++i) {
            copy[i] = strdup(texts[i]);
        }
        return copy;
    }
};

TEST_F(ClassRegistry, FindsByNameButTheOldestAndGivesEachAwayOnce) {
    registered("a/Oldest"); // stays, so that later tests find theirs
    jclass_t *first = registered("a/Twice");
    jclass_t *second = registered("a/Twice");
    EXPECT_EQ(getClassForName(nullptr), nullptr);
    EXPECT_EQ(getClassForName("a/Oldest"), nullptr);
    EXPECT_EQ(getClassForName("a/None"), nullptr);
    EXPECT_EQ(takeClassForUnload("a/Twice"), second);
    EXPECT_EQ(takeClassForUnload("a/Twice"), nullptr) << "it is under way";
    jclass_t::release(second);
    EXPECT_EQ(takeClassForUnload("a/Twice"), first);
    jclass_t::release(first);
    EXPECT_EQ(getClassForName("a/Twice"), nullptr);
}

TEST_F(ClassRegistry, TracesWhatTheListsSay) {
    replaceClassFilter(list({"org/foo/*", ""}), list({"org/*", "com/qel/br/*", "*"}));
    const struct {
        const char *name;
        int expected;
    } cases[] = {{nullptr, 0},       {"com/zykora/x", 1},
                 {"com/zykora", 1},  {"com/qel/br/runtime/Server", 2},
                 {"org/foo/Bar", 0}, {"org/foo/", 0},
                 {"org/Foo", 1},     {"com/qel/br/runtime/Servers", 1},
                 {"net/Bar", 1},     {"", 1}}; // nothing is left of "*" to compare
    jclass_t *cls = registered("org/Foo");
    for (const auto &c : cases) {
        EXPECT_EQ(isClassFiltered(c.name), c.expected) << c.name;
    }
    reapplyFilter();
    EXPECT_EQ(cls->filtered, 1);
    replaceClassFilter(nullptr, nullptr);
    reapplyFilter();
    EXPECT_EQ(cls->filtered, 0);
    jclass_t::release(takeClassForUnload("org/Foo"));
    char name[] = "a.b.c";
    EXPECT_STREQ(dotToSlash(name), "a/b/c");
    EXPECT_STREQ(slashToDot(name), "a.b.c");
    EXPECT_EQ(dotToSlash(nullptr), nullptr);
}

// Ids collide over all threads: each method leaves with its own class.
TEST_F(ClassRegistry, ManyThreads) {
    resetClassSequence();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 300; ++i) {
                const std::string name = "t" + std::to_string(t) + "/C" + std::to_string(i);
                jclass_t *cls = registered(name, static_cast<uint32_t>(i), 5);
                cls->sequence = getNextClassSequence();
                reapplyFilter();
                cls->hold(); // as by its event, which may outlive the unload
                jclass_t::release(takeClassForUnload(name.c_str()));
                jclass_t::release(cls);
                EXPECT_EQ(getClassForName(name.c_str()), nullptr);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(getNextClassSequence(), 1201U);
}

} // namespace
