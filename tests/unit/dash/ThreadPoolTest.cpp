#include "dash/ThreadPool.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <system_error>
#include <thread>
#include <vector>

#include "winhost/core/Gate.h"

namespace {

struct Recorder {
    std::vector<int> steps;  // touched by the pool's one worker, read after a future
    void Note(int step) { steps.push_back(step); }
};

// A task that holds the worker until the test lets it go.
struct Blocker {
    std::promise<void> started, release;
    void Run() {
        started.set_value();
        release.get_future().wait();
    }
};

}  // namespace

TEST(ThreadPool, AWorkerThatCannotStartEndsThoseBeforeIt) {
    winhost::Gate::Instance().FailNth("std::thread", 2, ERROR_NOT_ENOUGH_MEMORY);
    try {
        ThreadPool pool(3);
        ADD_FAILURE() << "a pool of one worker";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
    }
    winhost::Gate::Instance().Reset();
}

TEST(ThreadPool, RunsTheTasksOfOneWorkerInTheOrderTheyCame) {
    Recorder recorder;
    ThreadPool pool(1);
    for (int step = 0; step < 99; ++step)
        pool.enqueue(&Recorder::Note, &recorder, step);
    pool.enqueue(&Recorder::Note, &recorder, 99).wait();

    ASSERT_EQ(recorder.steps.size(), 100u);
    for (int step = 0; step < 100; ++step)
        EXPECT_EQ(recorder.steps[step], step);
}

TEST(ThreadPool, ATaskBlocksAllTasksBehindIt) {
    Blocker blocker;
    std::atomic<bool> ran{false};
    ThreadPool pool(1);
    pool.enqueue(&Blocker::Run, &blocker);
    auto behind = pool.enqueue([&] { ran = true; });
    blocker.started.get_future().wait();
    EXPECT_FALSE(ran);

    blocker.release.set_value();
    behind.wait();
    EXPECT_TRUE(ran);
}

TEST(ThreadPool, TellsHowManyTasksHaveNotBegun) {
    Blocker blocker;
    ThreadPool pool(1);
    pool.enqueue(&Blocker::Run, &blocker);
    blocker.started.get_future().wait();
    EXPECT_EQ(pool.Waiting(), 0u);
    pool.enqueue([] {});
    pool.enqueue([] {});
    EXPECT_EQ(pool.Waiting(), 2u);
    blocker.release.set_value();
}

TEST(ThreadPool, SeveralWorkersRunSideBySide) {
    Blocker first, second;
    ThreadPool pool(2);
    pool.enqueue(&Blocker::Run, &first);
    pool.enqueue(&Blocker::Run, &second);
    first.started.get_future().wait();
    second.started.get_future().wait();
    first.release.set_value();
    second.release.set_value();
}

TEST(ThreadPool, ATaskThatThrowsLeavesThePoolWorking) {
    ThreadPool pool(1);
    auto failed = pool.enqueue([] { throw std::logic_error("lost with the future"); });
    auto next = pool.enqueue([] {});
    next.get();
    pool.Stop();
    EXPECT_THROW(failed.get(), std::logic_error);
}

TEST(ThreadPool, EnqueueAfterStopThrowsAndTheTaskNeverRuns) {
    ThreadPool pool(1);
    pool.Stop();
    std::atomic<bool> ran{false};
    try {
        pool.enqueue([&] { ran = true; });
        FAIL() << "the stopped pool took a task";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "enqueue on stopped ThreadPool");
    }
    EXPECT_FALSE(ran);
}

TEST(ThreadPool, TasksThatHaveNotBegunWhenItStopsNeverRun) {
    Blocker blocker;
    std::atomic<bool> ran{false};
    ThreadPool pool(1);
    pool.enqueue(&Blocker::Run, &blocker);
    auto behind = pool.enqueue([&] { ran = true; });
    blocker.started.get_future().wait();

    std::thread stopper([&] { pool.Stop(); });
    // Once the pool refuses tasks, the stop has begun; only then may the running task end.
    for (bool refused = false; !refused; std::this_thread::yield()) {
        try {
            pool.enqueue([] {});
        } catch (const std::runtime_error&) {
            refused = true;
        }
    }
    blocker.release.set_value();
    stopper.join();

    EXPECT_FALSE(ran);
    EXPECT_THROW(behind.get(), std::future_error);
}

TEST(ThreadPool, StopWaitsForTheRunningTask) {
    Blocker blocker;
    std::atomic<bool> finished{false};
    ThreadPool pool(1);
    pool.enqueue([&] {
        blocker.Run();
        finished = true;
    });
    blocker.started.get_future().wait();
    std::thread releaser([&] { blocker.release.set_value(); });
    pool.Stop();
    EXPECT_TRUE(finished);
    releaser.join();
}

TEST(ThreadPool, StopOfAWorkersOwnPoolThrowsInsteadOfWaitingForItself) {
    ThreadPool pool(1);
    auto stopping = pool.enqueue(&ThreadPool::Stop, &pool);
    stopping.wait();
    pool.Stop();
    try {
        stopping.get();
        FAIL() << "the worker joined itself";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::resource_deadlock_would_occur);
    }
}

TEST(ThreadPool, StopMayBeCalledAgainAndBySeveralThreadsAtOnce) {
    ThreadPool pool(1);
    std::thread other([&] { pool.Stop(); });
    pool.Stop();
    other.join();
    pool.Stop();
}

TEST(ThreadPool, TheWorkersTakeTheirTasksWithThem) {
    auto owned = std::make_shared<int>(1);
    ThreadPool pool(1);
    pool.enqueue([owned] {}).wait();
    pool.enqueue([] {}).wait();  // the worker has destroyed the first task by now
    EXPECT_EQ(owned.use_count(), 1);
}
