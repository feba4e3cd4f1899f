// The guardian: waits for the end of the process that started it, and puts back what that could
// not.
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>

#include "orvelle/PutRight.h"
#include "orvelle/platform/linux/UndoJournal.h"
#include "orvelle/platform/pipewire/PipeWireHardware.h"

namespace {

/// More than the records of a process ever take.
constexpr std::size_t kLongestRecord = 65536;

/// Nothing here listens to the hardware.
class NoQueue final : public orvelle::MainQueue {
 public:
  void post(Job /*job*/) override {}
  orvelle::TimerID postAfter(double /*seconds*/, Job /*job*/) override { return 0; }
  orvelle::TimerID repeat(double /*first*/, double /*interval*/, Job /*job*/) override { return 0; }
  void cancel(orvelle::TimerID /*timer*/) override {}
  void onSignal(int /*signal*/, Job /*job*/) override {}
  int run() override { return 0; }
  void quit(int /*status*/) override {}
};

/// What ends a session's or a terminal's processes must not end this one first.
void outliveSessionSignals() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) {
    std::signal(signal, SIG_IGN);
  }
}

/// Sound is loud until this one has been given the processor, which may take a tenth of a second
/// where others are compiling. Without the right to it, it waits like everybody. Inherited by the
/// connection's thread, if asked for before that begins.
void goBeforeOthers() {
  const sched_param lowest{.sched_priority = sched_get_priority_min(SCHED_RR)};
  sched_setscheduler(0, SCHED_RR, &lowest);
}

/// The other process changes nothing before.
void sayReady() {
  const char ready = 0;
  send(STDIN_FILENO, &ready, sizeof ready, MSG_NOSIGNAL);
}

/// Sleeps until the other process is gone, or has nothing left to undo. Returns what it told last.
std::string lastRecords() {
  std::string last;
  static std::array<char, kLongestRecord> buffer;
  for (;;) {
    const ssize_t size = recv(STDIN_FILENO, buffer.data(), buffer.size(), 0);
    if (size > 0) {
      last.assign(buffer.data(), static_cast<std::size_t>(size));
    } else if (size == 0 || errno != EINTR) {
      return last;
    }
  }
}

/// Its socket closes shortly before its end, and until then what it has made counts as its own.
void waitForEndOf(pid_t parent) {
  constexpr int attempts = 500;
  for (int attempt = 0; attempt < attempts && getppid() == parent; ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    return 2;
  }
  const std::filesystem::path journal = argv[1];
  const pid_t parent = getppid();
  outliveSessionSignals();
  goBeforeOthers();
  NoQueue queue;
  std::string problem;
  // Connected before it is needed: a raised output is heard until it is lowered.
  auto hardware =
      orvelle::PipeWireHardware::connect(queue, problem, orvelle::VolumeStorage::written);
  sayReady();
  const auto told = orvelle::decodeUndo(lastRecords());
  // The journal is written first, where it can be written at all.
  const auto written = orvelle::UndoJournal::read(journal);
  const orvelle::UndoRecords records = written ? *written : told.value_or(orvelle::UndoRecords{});
  if (records.empty()) {
    orvelle::UndoJournal::write(journal, records);
    return 0;
  }
  if (!hardware) {
    hardware = orvelle::PipeWireHardware::connect(queue, problem, orvelle::VolumeStorage::written);
  }
  if (hardware) {
    orvelle::lowerOutputs(*hardware, records);
    waitForEndOf(parent);
    // What it asked for last may have been done only now, and an output have been raised by it.
    hardware->awaitPending();
    const orvelle::UndoRecords loud = orvelle::lowerOutputs(*hardware, records);
    orvelle::UndoJournal::write(journal, orvelle::restoreRouting(*hardware, records, loud));
  }
  return 0;
}
