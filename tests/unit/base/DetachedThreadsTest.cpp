#include "base/DetachedThreads.h"

#include <atomic>
#include <latch>
#include <system_error>
#include <thread>

#include "tests/support/PcFixture.h"

using Threads = PcFixture;
using namespace std::chrono_literals;

TEST_F(Threads, TheEndIsReachedWhenTheLastHasReturned) {
    DetachedThreads threads;
    std::latch go(1);
    std::atomic<int> done{0};
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(threads.Start([&] {
            go.wait();
            ++done;
        }));
    go.count_down();
    EXPECT_TRUE(threads.AwaitEnd(INFINITE));
    EXPECT_EQ(done, 3);
}

TEST_F(Threads, AThreadThatStaysIsToldAfterTheTime) {
    DetachedThreads threads;
    std::latch go(1);
    threads.Start([&] { go.wait(); });
    std::thread awaiting([&] { EXPECT_FALSE(threads.AwaitEnd(3000)); });
    PassSleepOf(3s);
    awaiting.join();
    go.count_down();
    EXPECT_TRUE(threads.AwaitEnd(INFINITE));
}

TEST_F(Threads, NoneStartsOnceTheEndIsAwaited) {
    DetachedThreads threads;
    EXPECT_TRUE(threads.AwaitEnd(0));
    EXPECT_FALSE(threads.Start([] { FAIL() << "it ran"; }));
    EXPECT_EQ(threads.StartOwned([] { FAIL() << "it ran"; }), nullptr);
}

TEST_F(Threads, AnOwnedThreadIsAwaitedTooAndJoinedByItsOwner) {
    DetachedThreads threads;
    std::latch go(1);
    const auto owned = threads.StartOwned([&] { go.wait(); });
    EXPECT_FALSE(threads.AwaitEnd(0));
    go.count_down();
    EXPECT_TRUE(threads.AwaitEnd(INFINITE));
    owned->join();
}

TEST_F(Threads, AreAwaitedWithoutAnEventToo) {
    Gate().FailNth("CreateEventA", 1, ERROR_NOT_ENOUGH_MEMORY);
    DetachedThreads threads;
    EXPECT_EQ(Gate().Failures(), 1u);
    std::latch go(1);
    threads.Start([&] { go.wait(); });
    std::thread awaiting([&] { EXPECT_FALSE(threads.AwaitEnd(20)); });
    PassSleepOf(10ms);
    PassSleepOf(10ms);
    awaiting.join();
    go.count_down();
    std::atomic<bool> over{false};
    std::thread last([&] {
        EXPECT_TRUE(threads.AwaitEnd(INFINITE));
        over = true;
    });
    EXPECT_TRUE(Eventually([&] {
        if (Clock().AwaitSleepers(1, 1ms)) Advance(10ms);
        return over.load();
    }));
    last.join();
}

TEST_F(Threads, OneThatCannotBeStartedIsNotAwaited) {
    DetachedThreads threads;
    Gate().FailNth("std::thread", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_THROW(threads.Start([] { FAIL() << "it ran"; }), std::system_error);
    EXPECT_TRUE(threads.AwaitEnd(0));
}
