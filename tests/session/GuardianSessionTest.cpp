// The program is killed, at any moment and in any way: what is heard then, and how soon the system
// is again as it was.
//
// ORVELLE_KILLS: how many a phase; ORVELLE_KILL_SEED: other moments.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fstream>
#include <random>
#include <thread>

#include "tests/session/GuardedSession.h"

namespace orvelle::instruments {
namespace {

const std::vector<std::string> boostWords = {"boost", "--input", loopbackName, "--gain", "1.0"};

/// Where the default output is after a kill in the middle of this, and in between.
enum class Phase : std::uint8_t { start, running, follow, tap, stop };

const char* nameOf(Phase phase) {
  switch (phase) {
    case Phase::start:
      return "start";
    case Phase::running:
      return "running";
    case Phase::follow:
      return "follow";
    case Phase::tap:
      return "tap";
    default:
      return "stop";
  }
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values.at(values.size() / 2);
}

/// One session in which the program is killed again and again.
class KillRun {
 public:
  explicit KillRun(std::chrono::seconds capacity = std::chrono::seconds(60)) : session(capacity) {
    std::this_thread::sleep_for(milliseconds(300));
    before_ = {session.standing()};
  }

  /// What the user has chosen before.
  void configure(const std::string& sink, const std::string& target) {
    session.panel().configureSink(sink);
    EXPECT_TRUE(session.panel().waitForDefault(sink, patience));
    session.panel().sendStream("probe", target);
    std::this_thread::sleep_for(milliseconds(100));
    before_ = {session.standing()};
  }

  /// What the user has chosen since is as good: nobody takes it back.
  void choose(const std::string& sink) {
    before_.resize(1);
    for (const std::string& configured : {before_.front().configuredSink, sink}) {
      Standing chosen = before_.front();
      chosen.defaultSink = sink;
      chosen.configuredSink = configured;
      chosen.streamOutputs = {sink};
      before_.push_back(chosen);
    }
    session.panel().configureSink(sink);
  }

  void begin(const std::vector<std::string>& words) {
    session.usb().forget();
    session.speaker().forget();
    program = session.run(words);
  }

  void waitUntilItRuns() {
    EXPECT_TRUE(program->waitForLine("Ctrl-C to stop.", patience).has_value())
        << program->standardOutput() << program->standardError();
  }

  static void pause(double ms) {
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(ms));
  }

  /// Kills it and checks what remains.
  void end(int signal = SIGKILL) {
    guardian = guardianOf(program->pid());
    const bool wasRaised = isAnyRaised();
    killedNs = monotonicNanoseconds();
    program->signal(signal);
    expectAsBefore(wasRaised);
  }

  /// After something has ended the program.
  void expectAsBefore(bool wasRaised) {
    const bool isRaisedNow = isAnyRaised();
    const auto restored = session.millisecondsUntil(before_, killedNs);
    EXPECT_TRUE(restored.has_value())
        << "instead of " << before_.front() << ": " << session.standing();
    restoredMs.push_back(restored.value_or(2000.0));
    EXPECT_LT(restoredMs.back(), 200.0);
    EXPECT_TRUE(session.usb().waitFor(milliseconds(250)));
    const double louder = millisecondsAbove(formerPeak, session.usb().take()) +
                          millisecondsAbove(formerPeak, session.speaker().take());
    louderMs.push_back(louder);
    if (!wasRaised && !isRaisedNow) {
      ++killsBeforeTheRaise;
      EXPECT_EQ(louder, 0.0) << "killed before the raise";
    }
    EXPECT_TRUE(program->wait(patience).has_value());
    EXPECT_TRUE(SessionClient::waitFor([&] { return !isRunning(guardian); }, milliseconds(1000)));
    EXPECT_TRUE(journalsIn(session.session()).empty()) << journalsIn(session.session()).front();
  }

  bool isAnyRaised() {
    return std::ranges::any_of(session.standing().volumes,
                               [](float volume) { return volume > formerVolume + 0.01F; });
  }

  void reportAs(const std::string& name) const {
    report(name + ": louder than before, median", median(louderMs), "ms");
    report(name + ": louder than before, worst", *std::ranges::max_element(louderMs), "ms");
    EXPECT_LT(median(louderMs), 20.0);
    report(name + ": as before after, median", median(restoredMs), "ms");
    report(name + ": as before after, worst", *std::ranges::max_element(restoredMs), "ms");
    report(name + ": kills before the raise", killsBeforeTheRaise, "");
  }

  GuardedSession session;
  std::unique_ptr<Subprocess> program;
  pid_t guardian = 0;
  std::int64_t killedNs = 0;
  std::vector<double> restoredMs;
  std::vector<double> louderMs;
  int killsBeforeTheRaise = 0;

 private:
  std::vector<Standing> before_;
};

class GuardianSession : public testing::TestWithParam<Phase> {};

/// Brings the program to some moment of this phase.
void enter(Phase phase, KillRun& run, std::mt19937& random) {
  const auto within = [&](double ms) {
    KillRun::pause(std::uniform_real_distribution(0.0, ms)(random));
  };
  if (phase == Phase::tap) {
    run.begin({"appvol", "--pid", std::to_string(getpid()), "--vol", "1.0"});
    within(400.0);
    return;
  }
  run.begin(boostWords);
  if (phase == Phase::start) {
    within(300.0);
    return;
  }
  run.waitUntilItRuns();
  if (phase == Phase::running) {
    within(300.0);
  } else if (phase == Phase::follow) {
    KillRun::pause(100.0);
    run.choose("hw_speaker");
    within(100.0);
  } else {
    KillRun::pause(100.0);
    run.program->signal(SIGINT);
    within(8.0);
  }
}

// Would catch a kill after which an output stays at full volume, the default on nothing, or a
// stream at a tap that is gone; a way back that takes long; a guardian or a journal that stays.
TEST_P(GuardianSession, PutsRightAfterAKill) {
  const int kills = numberFrom("ORVELLE_KILLS", 6);
  std::mt19937 random(static_cast<unsigned>(numberFrom("ORVELLE_KILL_SEED", 1)));
  KillRun run(std::chrono::seconds(20 + 4 * kills));
  std::string target;
  for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
    SCOPED_TRACE(testing::Message() << nameOf(GetParam()) << ", kill " << kill);
    // From the second half on, the user has chosen: the output, and for a tap the stream's.
    if (kill == kills / 2 || GetParam() == Phase::follow) {
      target = GetParam() == Phase::tap ? "hw_usb" : "";
      run.configure("hw_usb", target);
    }
    enter(GetParam(), run, random);
    run.end();
    if (GetParam() == Phase::tap) {
      EXPECT_EQ(run.session.panel().streamTarget("probe"), target);
    }
  }
  run.reportAs(nameOf(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Phases, GuardianSession,
                         testing::Values(Phase::start, Phase::running, Phase::follow, Phase::tap,
                                         Phase::stop),
                         [](const auto& phase) { return nameOf(phase.param); });

// Would catch a guardian that dies of what kills the program, and a signal that is served by half.
TEST(Guardian, PutsRightAfterAnySignal) {
  KillRun run;
  for (const int signal : {SIGTERM, SIGHUP, SIGSEGV, SIGABRT}) {
    SCOPED_TRACE(strsignal(signal));
    run.begin(boostWords);
    run.waitUntilItRuns();
    KillRun::pause(100.0);
    if (signal == SIGTERM || signal == SIGHUP) {
      // A session's end reaches every process of the user's.
      signalGuardianOf(run.program->pid(), signal);
    }
    run.end(signal);
    EXPECT_EQ(run.program->wait(patience), 128 + signal);
  }
  run.reportAs("signals");
}

// Would catch an output that stays loud when there is no guardian any more either, and a volume of
// the user's that is overruled.
TEST(Guardian, LeavesAJournalWhenItIsKilledToo) {
  GuardedSession session;
  const Standing before = session.standing();
  for (const bool isChangedByHand : {false, true}) {
    SCOPED_TRACE(isChangedByHand);
    session.usb().forget();
    const auto boost = session.boost("1.0");
    signalGuardianOf(boost->pid(), SIGKILL);
    boost->signal(SIGKILL);
    ASSERT_TRUE(boost->wait(patience).has_value());
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_EQ(session.panel().volume("hw_usb").cubic(), 1.0F) << "nobody is there to lower it";
    EXPECT_GT(millisecondsAbove(formerPeak, session.usb().take()), 100.0) << "and that is heard";
    EXPECT_EQ(journalsIn(session.session()).size(), 1U);
    Standing expected = before;
    if (isChangedByHand) {
      session.panel().setVolume("hw_usb", 0.5F);
      expected.volumes[0] = 0.5F;
    }
    const std::int64_t begin = monotonicNanoseconds();
    const auto list = session.run({"list"});
    EXPECT_EQ(list->wait(patience), 0);
    EXPECT_EQ(list->standardError(), "");
    const auto restored = session.millisecondsUntil({expected}, begin);
    ASSERT_TRUE(restored.has_value()) << session.panel().defaultSink();
    report("as before after the start of list", *restored, "ms");
    EXPECT_TRUE(journalsIn(session.session()).empty());
  }
}

/// Sum over some lines of a file of /proc.
long sumOf(const std::string& file, const std::vector<std::string>& names) {
  std::ifstream stream(file);
  long sum = 0;
  for (std::string line; std::getline(stream, line);) {
    for (const std::string& name : names) {
      if (line.starts_with(name + ":")) {
        sum += std::stol(line.substr(name.size() + 1));
      }
    }
  }
  return sum;
}

long contextSwitches(pid_t process) {
  long switches = 0;
  for (const auto& task :
       std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    switches +=
        sumOf(task.path() / "status", {"voluntary_ctxt_switches", "nonvoluntary_ctxt_switches"});
  }
  return switches;
}

// Would catch a guardian that polls, that grows, or that stays when there is nothing to guard.
TEST(Guardian, CostsNextToNothing) {
  GuardedSession session;
  const auto boost = session.boost("1.0");
  std::this_thread::sleep_for(milliseconds(500));
  const pid_t guardian = guardianOf(boost->pid());
  ASSERT_GT(guardian, 0);
  const long before = contextSwitches(guardian);
  std::this_thread::sleep_for(milliseconds(3000));
  report("context switches of the guardian in 3 s",
         static_cast<double>(contextSwitches(guardian) - before), "");
  EXPECT_EQ(contextSwitches(guardian), before);
  const long ownKiB = sumOf("/proc/" + std::to_string(guardian) + "/smaps_rollup",
                            {"Private_Clean", "Private_Dirty"});
  report("guardian's own memory", static_cast<double>(ownKiB), "KiB");
  EXPECT_LT(ownKiB, 3 * 1024);
  BoostSession::interrupt(*boost);
  EXPECT_TRUE(SessionClient::waitFor([&] { return !isRunning(guardian); }, milliseconds(500)));
  EXPECT_TRUE(journalsIn(session.session()).empty());
}

// Would catch a boost that fails, or is not guarded, because no journal can be written.
TEST(Guardian, WorksWithoutAJournal) {
  KillRun run;
  Environment environment = run.session.session().environment();
  environment["XDG_STATE_HOME"] = "/dev/null/state";
  std::vector<std::string> command = boostWords;
  command.insert(command.begin(), ORVELLE_PROGRAM);
  run.program = std::make_unique<Subprocess>(command, environment);
  run.waitUntilItRuns();
  const std::string warning = run.program->standardError();
  EXPECT_TRUE(warning.starts_with("orvelle: the journal /dev/null/state/orvelle/undo-")) << warning;
  EXPECT_EQ(std::ranges::count(warning, '\n'), 1) << warning;
  run.end();
}

// Would catch a damaged journal that is acted upon, or that is complained about for ever.
TEST(Guardian, SetsADamagedJournalAside) {
  GuardedSession session;
  const std::filesystem::path folder =
      session.session().environment().at("XDG_STATE_HOME") + "/orvelle";
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "undo-99999999-1") << "orvelle-undo 1\nboost raised hw_usb 1 -\n";
  const Standing before = session.standing();
  const auto first = session.run({"list"});
  EXPECT_EQ(first->wait(patience), 0);
  EXPECT_EQ(first->standardError(),
            "orvelle: the journal of a killed process is damaged, and is "
            "now " +
                (folder / "undo-99999999-1.damaged").native() +
                ". Check the volume of your outputs.\n");
  const auto second = session.run({"list"});
  EXPECT_EQ(second->wait(patience), 0);
  EXPECT_EQ(second->standardError(), "");
  EXPECT_TRUE(session.standing() == before);
}

}  // namespace
}  // namespace orvelle::instruments
