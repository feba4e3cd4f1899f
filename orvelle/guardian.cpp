// The guardian: waits for the end of the process that started it, and puts back what that could
// not.
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "orvelle/PutRight.h"
#include "orvelle/platform/GuardianHardware.h"
#include "orvelle/platform/Process.h"
#include "orvelle/platform/posix/RecordSocket.h"
#include "orvelle/platform/posix/UndoJournal.h"

namespace {

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
  // Sound is loud until this one has been given the processor, which may take a tenth of a second
  // where others are compiling. Asked for before the connection's thread begins, which inherits it.
  orvelle::goBeforeOthers();
  NoQueue queue;
  std::string problem;
  // Connected before it is needed: a raised output is heard until it is lowered.
  auto hardware = orvelle::openGuardianHardware(queue, problem);
  // The other process changes nothing before.
  orvelle::sendRecord(STDIN_FILENO, {});
  // Sleeps until that one is gone, or has nothing left to undo.
  const auto told =
      orvelle::decodeUndo(orvelle::lastRecord(STDIN_FILENO, [](std::string_view record) {
        return orvelle::decodeUndo(record).has_value();
      }));
  // The journal is written first, where it can be written at all.
  const auto written = orvelle::UndoJournal::read(journal);
  const orvelle::UndoRecords records = written ? *written : told.value_or(orvelle::UndoRecords{});
  if (records.empty()) {
    // A journal that cannot be read, of which nothing was told, is no proof that nothing is owed.
    if (written || told) {
      orvelle::UndoJournal::write(journal, records);
    }
    return 0;
  }
  if (!hardware) {
    hardware = orvelle::openGuardianHardware(queue, problem);
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
