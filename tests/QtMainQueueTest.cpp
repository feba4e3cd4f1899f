// The main queue on the real clock and with real threads and signals.
#include <gtest/gtest.h>

#include <QEventLoop>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "orvelle/platform/qt/ConsoleApplication.h"
#include "orvelle/platform/qt/QtMainQueue.h"

namespace orvelle {
namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Would notice: jobs from other threads that get lost, run elsewhere, or overtake one another.
TEST(QtMainQueue, RunsJobsOfOtherThreadsOnTheMainThreadInTheirOrder) {
  constexpr int jobsPerThread = 2000;
  QtMainQueue queue;
  std::vector<int> firstThreadsJobs;
  int jobs = 0;
  bool isAlwaysOnMainThread = true;
  const auto mainThread = std::this_thread::get_id();
  const auto finish = [&] {
    isAlwaysOnMainThread = isAlwaysOnMainThread && std::this_thread::get_id() == mainThread;
    if (++jobs == 2 * jobsPerThread) {
      queue.quit(0);
    }
  };
  std::thread first([&] {
    for (int i = 0; i < jobsPerThread; ++i) {
      queue.post([&, i] {
        firstThreadsJobs.push_back(i);
        finish();
      });
    }
  });
  std::thread second([&] {
    for (int i = 0; i < jobsPerThread; ++i) {
      queue.post(finish);
    }
  });
  EXPECT_EQ(queue.run(), 0);
  first.join();
  second.join();
  EXPECT_TRUE(isAlwaysOnMainThread);
  EXPECT_TRUE(std::is_sorted(firstThreadsJobs.begin(), firstThreadsJobs.end()));
  EXPECT_EQ(firstThreadsJobs.size(), jobsPerThread);
}

// Would notice: a shorter delay that waits behind a longer one, or a timer that fires early.
TEST(QtMainQueue, RunsDelayedJobsWhenTheyAreDue) {
  QtMainQueue queue;
  std::string order;
  const auto start = std::chrono::steady_clock::now();
  double secondsUntilLast = 0.0;
  queue.postAfter(0.06, [&] {
    order += 'c';
    secondsUntilLast = secondsSince(start);
    queue.quit(0);
  });
  queue.postAfter(0.02, [&] { order += 'b'; });
  queue.post([&] { order += 'a'; });
  queue.run();
  EXPECT_EQ(order, "abc");
  EXPECT_GE(secondsUntilLast, 0.06);
  EXPECT_LT(secondsUntilLast, 0.3);
}

// Would notice: a repeating timer that drifts, or that makes up for lost time in a burst.
TEST(QtMainQueue, RepeatingJobKeepsItsRhythmAndSkipsMissedTurns) {
  constexpr double interval = 0.2;
  QtMainQueue queue;
  const auto start = std::chrono::steady_clock::now();
  std::vector<double> turns;
  queue.repeat(0.02, interval, [&] {
    turns.push_back(secondsSince(start));
    if (turns.size() == 1) {
      std::this_thread::sleep_for(std::chrono::milliseconds(560));  // over two turns
    }
    if (turns.size() == 3) {
      queue.quit(0);
    }
  });
  queue.run();
  EXPECT_GE(turns[0], 0.02);
  EXPECT_GE(turns[1], 0.02 + 3 * interval);
  EXPECT_LT(turns[1], 0.02 + 3 * interval + 0.12);
  EXPECT_GE(turns[2], 0.02 + 4 * interval);
}

// Would notice: a cancelled job that runs, one that cannot cancel itself, and captures (an engine's
// life token, say) that outlive their timer.
TEST(QtMainQueue, CancelledJobsDoNotRunAndAreReleased) {
  QtMainQueue queue;
  const auto capture = std::make_shared<int>(0);
  const TimerID never = queue.postAfter(0.01, [capture] { ++*capture; });
  TimerID repeating = 0;
  int turns = 0;
  repeating = queue.repeat(0.0, 0.005, [&queue, &repeating, &turns, capture] {
    ++turns;
    queue.cancel(repeating);
  });
  queue.cancel(never);
  queue.cancel(never);
  queue.cancel(0);
  queue.postAfter(0.05, [&queue] { queue.quit(0); });
  queue.run();
  EXPECT_EQ(turns, 1);
  EXPECT_EQ(*capture, 0);
  EXPECT_EQ(capture.use_count(), 1);
}

// Would notice: a lock that is held while a job's captures die, as a capture's destructor may post.
TEST(QtMainQueue, DyingCaptureMayPost) {
  QtMainQueue queue;
  std::shared_ptr<void> capture(nullptr,
                                [&queue](void*) { queue.post([&queue] { queue.quit(5); }); });
  const TimerID timer = queue.postAfter(10.0, [capture = std::move(capture)] {});
  queue.cancel(timer);
  EXPECT_EQ(queue.run(), 5);
}

// Would notice: jobs that still run after the engine's frame has gone.
TEST(QtMainQueue, NothingRunsAfterQuit) {
  QtMainQueue queue;
  int jobsAfterQuit = 0;
  queue.post([&] { queue.quit(7); });
  queue.post([&] { ++jobsAfterQuit; });
  queue.repeat(0.0, 0.001, [&] { ++jobsAfterQuit; });
  EXPECT_EQ(queue.run(), 7);
  EXPECT_EQ(queue.run(), 7);
  QEventLoop().processEvents();
  EXPECT_EQ(jobsAfterQuit, 0);
}

// Would notice: a job interrupted by another while it waits in an event loop of its own.
TEST(QtMainQueue, NeverNestsJobs) {
  QtMainQueue queue;
  std::string order;
  queue.post([&] {
    order += '(';
    queue.post([&] {
      order += 'b';
      queue.quit(0);
    });
    QEventLoop().processEvents();
    order += ')';
  });
  queue.run();
  EXPECT_EQ(order, "()b");
}

// Would notice: jobs that keep posting jobs and so shut out timers and signals.
TEST(QtMainQueue, BusyQueueStillHearsSignals) {
  QtMainQueue queue;
  std::function<void()> repost = [&] { queue.post(repost); };
  queue.onSignal(SIGUSR1, [&] { queue.quit(3); });
  queue.post(repost);
  queue.postAfter(0.01, [] { std::raise(SIGUSR1); });
  EXPECT_EQ(queue.run(), 3);
}

// Would notice: a signal lost, confused with another, or handled on the thread that it hit; and a
// process that stays deaf to Ctrl-C when the queue is gone.
TEST(QtMainQueue, TellsSignalsApartAndGivesThemBack) {
  std::signal(SIGUSR2, SIG_IGN);
  std::string order;
  {
    QtMainQueue queue;
    const auto mainThread = std::this_thread::get_id();
    queue.onSignal(SIGUSR1, [&] { order += std::this_thread::get_id() == mainThread ? '1' : '!'; });
    queue.onSignal(SIGUSR2, [&] {
      order += '2';
      queue.quit(0);
    });
    std::thread other([] {
      std::raise(SIGUSR1);
      std::raise(SIGUSR1);
      std::raise(SIGUSR2);
    });
    queue.run();
    other.join();
  }
  EXPECT_EQ(order, "112");
  EXPECT_EQ(std::signal(SIGUSR2, SIG_DFL), SIG_IGN);
}

// Would notice: numbers read and written with a decimal comma, as Qt brings in the user's locale.
TEST(ConsoleApplication, KeepsNumbersInTheCLocale) {
  EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
  EXPECT_STRNE(std::setlocale(LC_CTYPE, nullptr), "C");
}

}  // namespace
}  // namespace orvelle

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const orvelle::ConsoleApplication application(argc, argv);
  return RUN_ALL_TESTS();
}
