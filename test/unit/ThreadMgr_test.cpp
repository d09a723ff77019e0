#include "Threads.h"
#include "VirtualThreads.h"
#include "pump_test_support.h"

#include <gtest/gtest.h>

using namespace pump_test;

extern "C" {
JNIEXPORT jint JNICALL Java_com_zykora_probe_ThreadManager_getNativeThreadStatus(JNIEnv *, jclass, jint);
}

namespace {

jint statusOf(uint32_t threadId) {
    const auto id = static_cast<jint>(threadId);
    return Java_com_zykora_probe_ThreadManager_getNativeThreadStatus(nullptr, nullptr, id);
}

// Lists what it is given, as an event agent does, and destroys what has ended.
class RecordingTaker : public ThreadTaker {
public:
    bool canTakeThreads() override { return ready; }
    bool manageThreadData(ThreadData *thr) override {
        const std::lock_guard<std::mutex> guard(mutex);
        if (takes) {
            listed.push_back(thr);
        }
        return takes;
    }
    void destroyEnded() {
        const ZykLockGuard outer(threadMgr.get()->destructionLock());
        letGoOf(
            [](ThreadData *thr) { return !thr->acceptsEvents() && threadMgr.get()->deleteThreadData(thr); });
    }
    template <typename Predicate>
    void letGoOf(Predicate predicate) {
        const std::lock_guard<std::mutex> guard(mutex);
        listed.erase(std::remove_if(listed.begin(), listed.end(), predicate), listed.end());
    }
    size_t count() {
        const std::lock_guard<std::mutex> guard(mutex);
        return listed.size();
    }

    std::atomic<bool> ready{true};
    std::atomic<bool> takes{true};

private:
    std::mutex mutex;
    std::vector<ThreadData *> listed;
};

class ThreadMgrTest : public ::testing::Test {
protected:
    ThreadMgrTest() {
        ThreadMgr::create();
        ThreadMgr::setThreadTaker(&taker);
        threads()->start();
    }
    ~ThreadMgrTest() override {
        taker.destroyEnded();
        threads()->stop();
        ThreadMgr::setThreadTaker(nullptr);
    }

    static ThreadMgr *threads() { return threadMgr; }
    ThreadData *get(int number) { return threads()->getThreadData(fakeEnv(number)); }

    FakeVm vm;
    RecordedLog log;
    RecordingTaker taker;
};

} // namespace

TEST_F(ThreadMgrTest, GivesNothingUntilEverythingIsThere) {
    EXPECT_EQ(nullptr, threads()->getThreadData(nullptr));
    EXPECT_EQ(nullptr, threads()->findThreadData(fakeEnv(1))) << "finding makes nothing";
    taker.ready = false;
    EXPECT_EQ(nullptr, get(1));
    taker.ready = true;
    taker.takes = false;
    EXPECT_EQ(nullptr, get(1));
    EXPECT_EQ(0, threads()->getThreadCount()) << "a thread that nobody drains leaves no trace";
    ThreadMgr::setThreadTaker(nullptr);
    EXPECT_EQ(nullptr, get(1));
    ThreadMgr::setThreadTaker(&taker);
    taker.takes = true;
    threads()->stop();
    EXPECT_EQ(nullptr, get(1));
    threads()->start();
    ThreadData *td = get(1);
    ASSERT_NE(nullptr, td);
    EXPECT_EQ(1u, taker.count());
    EXPECT_EQ(0, log.count("Thread being deleted even before it died TID: %d"));
}

TEST_F(ThreadMgrTest, EachThreadHasOneRecordAndANumberOfItsOwn) {
    std::map<uint32_t, JNIEnv *> seen;
    for (int round = 0; round < 2; ++round) {
        for (int i = 1; i <= 300; ++i) {
            ThreadData *td = get(i);
            ASSERT_NE(nullptr, td);
            EXPECT_EQ(fakeEnv(i), td->envId);
            EXPECT_EQ(td, get(i));
            EXPECT_EQ(td->threadId, threads()->getThreadId(fakeEnv(i)));
            EXPECT_EQ(fakeEnv(i), threads()->getEnv(td->threadId));
            seen[td->threadId] = fakeEnv(i);
        }
    }
    EXPECT_EQ(300u, seen.size());
    EXPECT_EQ(300, threads()->getThreadCount());
    EXPECT_EQ(300u, taker.count());
}

// The JVM gives the environment of an ended thread to a new one: no old answer may come back.
TEST_F(ThreadMgrTest, AnEndedThreadIsForgottenByEveryThread) {
    ThreadData *first = get(7);
    append<SQLEvent>(first, Event::SUB_START);
    const uint32_t firstId = first->threadId;
    std::thread([&] { first->resetOnThreadEnd(); }).join();
    EXPECT_EQ(nullptr, threads()->findThreadData(fakeEnv(7)));
    EXPECT_EQ(nullptr, threads()->getEnv(firstId));
    ThreadData *second = get(7);
    ASSERT_NE(nullptr, second);
    EXPECT_NE(first, second);
    EXPECT_EQ(1, first->queueSize());
    EXPECT_TRUE(second->acceptsEvents());
    taker.letGoOf([](const ThreadData *thr) { return thr->acceptsEvents(); }); // as an agent that ends
    threads()->stop(); // destroys the second; the first is its agent's
    threads()->start();
    EXPECT_EQ(0, get(7)->queueSize());
    EXPECT_EQ(1, threads()->getThreadCount());
    EXPECT_FALSE(threads()->updateOnThreadEnd(fakeEnv(8)));
    EXPECT_EQ(1, log.count("[%.90s (%.90s@%d)] %.90s \n")) << "no number to erase";
    const uint32_t refused = threads()->getThreadId(fakeEnv(9)); // of one that has no record
    EXPECT_EQ(fakeEnv(9), threads()->getEnv(refused));
    threads()->endThread(fakeEnv(9));
    EXPECT_EQ(nullptr, threads()->getEnv(refused));
}

TEST_F(ThreadMgrTest, TheSpecialQueueIsOnePerEnvironmentAndNotHandedOut) {
    ThreadData *special = threads()->createSpecialEventQueue(fakeEnv(3));
    ASSERT_NE(nullptr, special);
    EXPECT_EQ(special, threads()->createSpecialEventQueue(fakeEnv(3)));
    EXPECT_EQ(special, get(3));
    EXPECT_EQ(fakeEnv(3), threads()->getEnv(special->threadId));
    EXPECT_EQ(0u, taker.count());
    EXPECT_EQ(nullptr, threads()->createSpecialEventQueue(nullptr));
}

// Keys of virtual threads: threads of one bucket, numbers beyond 32 bits, none of them a platform thread's.
TEST(VirtualThreadTable, FindsByKeyAndByNumberAndLosesAny) {
    VirtualThreadTable table;
    std::vector<std::unique_ptr<ThreadData>> all;
    for (const uint64_t number : {7ULL, 8ULL, 7ULL + 4096, 7ULL + 8192, 7ULL + (1ULL << 31), 9ULL << 40}) {
        all.push_back(std::make_unique<ThreadData>(reinterpret_cast<JNIEnv *>(number << 1 | 1)));
        all.back()->isAlive = false; // nobody complains of its deletion
        EXPECT_TRUE(isVirtualKey(all.back()->envId));
        EXPECT_LE(FIRST_VIRTUAL_NUMBER, numberOfVirtual(all.back()->envId));
        table.put(all.back().get());
    }
    for (size_t gone = 0; gone <= all.size(); ++gone) {
        EXPECT_EQ(static_cast<int32_t>(all.size() - gone), table.entryCount());
        for (size_t i = 0; i < all.size(); ++i) {
            EXPECT_EQ(i < gone ? nullptr : all[i].get(), table.get(all[i]->envId)) << i;
        }
        EXPECT_EQ(gone < 2 ? all[1]->envId : nullptr, table.keyOf(FIRST_VIRTUAL_NUMBER | 8));
        EXPECT_EQ(gone < all.size(), table.remove(all[std::min(gone, all.size() - 1)]->envId));
    }
    table.put(all[2].get());
    table.clear();
    EXPECT_EQ(nullptr, table.get(all[2]->envId));
    EXPECT_EQ(0, table.entryCount());
}

// Threads come, work and go in a crowd; ended ones are destroyed while others look at all of them.
TEST_F(ThreadMgrTest, HoldsUnderACrowdThatComesAndGoes) {
    constexpr int WORKERS = 6;
    constexpr int LIVES = 60;
    std::atomic<bool> done{false};
    std::thread destroyer([&] {
        while (!done) {
            taker.destroyEnded();
        }
    });
    std::thread observer([&] {
        char name[] = "somebody";
        while (!done) {
            EXPECT_EQ(nullptr, threads()->getThreadData(name, name));
            EXPECT_GE(WORKERS, threads()->getThreadCount());
            for (int i = 0; i < WORKERS; ++i) {
                const jint status = statusOf(threads()->getThreadId(fakeEnv(100 + i)));
                EXPECT_TRUE(status == 0 || status == 5);
            }
        }
    });
    onThreads(WORKERS, [&](int number) {
        for (int life = 0; life < LIVES; ++life) {
            ThreadData *td = get(100 + number);
            ASSERT_NE(nullptr, td);
            for (int n = 0; n < 20; ++n) {
                ASSERT_EQ(td, get(100 + number));
                EXPECT_TRUE(append<SQLEvent>(td, Event::SUB_START));
            }
            td->requestDepth = life;
            td->resetOnThreadEnd();
        }
    });
    done = true;
    destroyer.join();
    observer.join();
    taker.destroyEnded();
    EXPECT_EQ(0u, taker.count());
    EXPECT_EQ(0, threads()->getThreadCount());
}
