// The debts of running processes, as files that outlive them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "orvelle/UndoRecord.h"

namespace orvelle {

/// One file a process, named by its id and its beginning, so that a later process of the same id is
/// not taken for it. Files are replaced as a whole: each is one state or the next, never a mixture.
class UndoJournal {
 public:
  /// In the user's state folder.
  UndoJournal();
  explicit UndoJournal(std::filesystem::path folder) : folder_(std::move(folder)) {}

  /// A file whose process is gone, or lives.
  struct Entry {
    std::filesystem::path file;
    std::int32_t pid = 0;
    bool isAlive = false;
  };
  /// Of all processes but this one.
  [[nodiscard]] std::vector<Entry> entries() const;

  /// The file of this process, whether it is there or not. Empty where there is no folder for it.
  [[nodiscard]] std::filesystem::path ownFile() const;

  /// No records: removes the file. False when it cannot be written; the former one then stays.
  static bool write(const std::filesystem::path& file, const UndoRecords& records);
  /// Absent when the file is not there or is damaged.
  static std::optional<UndoRecords> read(const std::filesystem::path& file);

 private:
  std::filesystem::path folder_;
};

}  // namespace orvelle
