// Keeps debts in the journal and with a guardian.
#pragma once

#include <mutex>
#include <string>

#include "orvelle/UndoKeeper.h"
#include "orvelle/platform/Console.h"
#include "orvelle/platform/posix/Guardian.h"
#include "orvelle/platform/posix/UndoJournal.h"

namespace orvelle {

/// The guardian acts at once when this process ends; the journal is for the next start of any
/// command, when both are gone. Any thread.
class GuardedUndoKeeper final : public UndoKeeper {
 public:
  /// `console` is told once when the journal cannot be written or the guardian not be started: the
  /// program works on, with one net less under it.
  GuardedUndoKeeper(UndoJournal journal, Console& console);

  void keep(const std::string& owner, const UndoRecord& record) override;
  [[nodiscard]] std::optional<std::int32_t> boostingProcess() const override;

 private:
  void warnOnce(const std::string& problem);

  std::mutex mutex_;
  const UndoJournal journal_;
  const std::filesystem::path file_;
  Console& console_;
  UndoRecords records_;
  Guardian guardian_;
  bool hasWarned_ = false;
};

}  // namespace orvelle
