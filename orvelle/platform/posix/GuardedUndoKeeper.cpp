#include "orvelle/platform/posix/GuardedUndoKeeper.h"

#include <algorithm>
#include <utility>

namespace orvelle {

GuardedUndoKeeper::GuardedUndoKeeper(UndoJournal journal, Console& console)
    : journal_(std::move(journal)),
      file_(journal_.ownFile()),
      console_(console),
      guardian_(file_) {}

void GuardedUndoKeeper::keep(const std::string& owner, const UndoRecord& record) {
  const std::lock_guard lock(mutex_);
  const UndoRecords before = records_;
  if (record.isEmpty()) {
    records_.erase(owner);
  } else {
    records_[owner] = record;
  }
  if (records_ == before) {
    return;
  }
  if (!records_.empty() && !guardian_.attend()) {
    warnOnce(guardianProgram().native() + " cannot be started");
  }
  if (!file_.empty() && !UndoJournal::write(file_, records_)) {
    warnOnce("the journal " + file_.native() + " cannot be written");
  }
  if (records_.empty()) {
    guardian_.dismiss(encodeUndo(records_));
  } else {
    guardian_.tell(encodeUndo(records_));
  }
}

std::optional<std::int32_t> GuardedUndoKeeper::boostingProcess() const {
  for (const UndoJournal::Entry& entry : journal_.entries()) {
    const auto records = entry.isAlive ? UndoJournal::read(entry.file) : std::nullopt;
    const bool isBoosting = records && std::ranges::any_of(*records, [](const auto& record) {
                              return record.second.defaultOutput.has_value();
                            });
    if (isBoosting) {
      return entry.pid;
    }
  }
  return std::nullopt;
}

void GuardedUndoKeeper::warnOnce(const std::string& problem) {
  if (!std::exchange(hasWarned_, true)) {
    console_.printError("orvelle: " + problem +
                        ". If this process is killed, the volume may stay as it is then.\n");
  }
}

}  // namespace orvelle
