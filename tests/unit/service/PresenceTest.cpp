// The order of the reports "up" and "down", and the gate that goes with them.
#include <atomic>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "service/Presence.h"
#include "tests/support/PcFixture.h"

namespace {

using namespace std::chrono_literals;

class PresenceOrder : public PcFixture {
  protected:
    void Up(Presence::Epoch epoch) {
        m_presence.ReportUp(epoch, [this] { Report("up"); });
    }
    void Down(bool last = false) {
        m_presence.Farewell(last, [this] { Report("down"); });
    }
    // A report of "up" that is sent until the promise is kept.
    std::thread SlowUp(std::promise<void>& end) {
        std::promise<void> begun;
        std::thread thread([&, epoch = m_presence.Current()] {
            m_presence.ReportUp(epoch, [&] {
                Report("up");
                begun.set_value();
                end.get_future().wait();
                Report("up is sent");
            });
        });
        begun.get_future().wait();
        return thread;
    }
    bool GateIsOpen() const { return m_mailbox.m_bServiceUp; }
    void Report(const std::string& report) {
        std::lock_guard lock(m_mutex);
        m_reports.push_back(report);
    }
    std::vector<std::string> Reports() {
        std::lock_guard lock(m_mutex);
        return m_reports;
    }

    MailBoxDriverInterface m_mailbox;
    std::atomic<uint8_t> m_bBusy{0};
    Presence m_presence{m_mailbox, m_bBusy};

  private:
    std::mutex m_mutex;
    std::vector<std::string> m_reports;
};

}  // namespace

TEST_F(PresenceOrder, AReportOpensTheGateAndAFarewellClosesIt) {
    Up(m_presence.Current());
    EXPECT_TRUE(GateIsOpen());
    Down();
    EXPECT_FALSE(GateIsOpen());
    EXPECT_EQ(Reports(), (std::vector<std::string>{"up", "down"}));
}

TEST_F(PresenceOrder, TheGateIsOpenAlreadyDuringTheReportAndClosedDuringTheFarewell) {
    EXPECT_TRUE(m_presence.ReportUp(m_presence.Current(), [this] { EXPECT_TRUE(GateIsOpen()); }));
    m_presence.Farewell(false, [this] { EXPECT_FALSE(GateIsOpen()); });
}

TEST_F(PresenceOrder, WhatBeganBeforeAFarewellIsNotReportedAfterIt) {
    const Presence::Epoch before = m_presence.Current();
    Down();
    EXPECT_FALSE(m_presence.ReportUp(before, [] { ADD_FAILURE(); }));
    EXPECT_FALSE(GateIsOpen());
    EXPECT_FALSE(m_presence.IsCurrent(before));

    Up(m_presence.Current());
    EXPECT_TRUE(GateIsOpen());
}

TEST_F(PresenceOrder, NothingIsReportedAfterTheLastFarewell) {
    Down(true);
    EXPECT_FALSE(m_presence.ReportUp(m_presence.Current(), [] { ADD_FAILURE(); }));
    EXPECT_FALSE(GateIsOpen());
}

TEST_F(PresenceOrder, AFarewellFollowsTheReportThatIsBeingSentAndPrecedesTheNext) {
    std::promise<void> end;
    std::thread up = SlowUp(end);
    std::thread down([this] { Down(); });
    // The farewell has begun when its epoch has.
    ASSERT_TRUE(Eventually([this] { return m_presence.Current() == 1; }));
    EXPECT_FALSE(GateIsOpen());
    std::thread next([this] { Up(1); });
    EXPECT_FALSE(Eventually([this] { return Reports().size() > 1; }, 50ms));
    end.set_value();
    for (std::thread* thread : {&up, &down, &next})
        thread->join();
    EXPECT_EQ(Reports(), (std::vector<std::string>{"up", "up is sent", "down", "up"}));
    EXPECT_TRUE(GateIsOpen());
}

TEST_F(PresenceOrder, AReportThatWaitsForItsTurnIsDroppedByAFarewell) {
    std::promise<void> end;
    std::thread up = SlowUp(end);
    std::thread next([this] { EXPECT_FALSE(m_presence.ReportUp(0, [] { ADD_FAILURE(); })); });
    std::thread down([this] { Down(); });
    ASSERT_TRUE(Eventually([this] { return m_presence.Current() == 1; }));
    end.set_value();
    for (std::thread* thread : {&up, &next, &down})
        thread->join();
    EXPECT_EQ(Reports().back(), "down");
}

TEST_F(PresenceOrder, AnExceptionEndsTheTurn) {
    EXPECT_THROW(m_presence.ReportUp(0, [] { throw 1; }), int);
    EXPECT_THROW(m_presence.Farewell(false, [] { throw 1; }), int);
    Down();
    Up(m_presence.Current());
    EXPECT_EQ(Reports(), (std::vector<std::string>{"down", "up"}));
}

TEST_F(PresenceOrder, AnUpdateIsClaimedOnceInAnEpoch) {
    Presence::Epoch first = 7, second = 7, third = 7;
    EXPECT_TRUE(m_presence.BeginUpdate(first));
    EXPECT_EQ(first, 0u);
    EXPECT_FALSE(m_presence.BeginUpdate(second));
    Down();
    EXPECT_FALSE(m_bBusy);
    EXPECT_TRUE(m_presence.BeginUpdate(third));
    EXPECT_EQ(third, 1u);
    m_presence.EndUpdate(first);
    EXPECT_TRUE(m_bBusy) << "the end of an earlier update";
    m_presence.EndUpdate(third);
    EXPECT_FALSE(m_bBusy);
}

TEST_F(PresenceOrder, ManyThreadsNeverLeaveTheGateOpenBehindAFarewell) {
    for (int round = 0; round < 50; ++round) {
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([this] {
                Presence::Epoch epoch = 0;
                m_presence.BeginUpdate(epoch);
                Up(epoch);
                m_presence.EndUpdate(epoch);
            });
        threads.emplace_back([this] { Down(); });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(GateIsOpen(), Reports().back() == "up");
    }
    std::thread last([this] { Down(true); });
    Up(m_presence.Current());
    last.join();
    EXPECT_FALSE(GateIsOpen());
    EXPECT_EQ(Reports().back(), "down");
}
