// Who remembers what has to be put back when the program ends before its time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "orvelle/UndoRecord.h"

namespace orvelle {

/// Engines tell their debts before they run them up, and again when they have paid.
class UndoKeeper {
 public:
  UndoKeeper() = default;
  UndoKeeper(const UndoKeeper&) = delete;
  UndoKeeper& operator=(const UndoKeeper&) = delete;
  virtual ~UndoKeeper() = default;

  /// From now on `record` is what the engine `owner` owes. When this has returned, it survives the
  /// death of the process. The thread that runs the engine.
  virtual void keep(const std::string& owner, const UndoRecord& record) = 0;

  /// The process of another instance that boosts now; absent when there is none.
  [[nodiscard]] virtual std::optional<std::int32_t> boostingProcess() const = 0;

  /// One that forgets, for all who need none.
  static UndoKeeper& none();
};

/// Where nothing outlives the process.
class ForgetfulUndoKeeper final : public UndoKeeper {
 public:
  void keep(const std::string& /*owner*/, const UndoRecord& /*record*/) override {}
  [[nodiscard]] std::optional<std::int32_t> boostingProcess() const override {
    return std::nullopt;
  }
};

}  // namespace orvelle
