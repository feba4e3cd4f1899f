// The platform's store for a program's settings: preferences on macOS, a file under the user's
// configuration folder elsewhere.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "orvelle/platform/Console.h"

namespace orvelle {

/// Values by key, kept from run to run. A value that is set outlives the process.
/// Nothing fails loudly: a store that cannot be read is empty, one that cannot be written keeps
/// what it held. Main thread.
class UserDefaults {
 public:
  UserDefaults() = default;
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;
  virtual ~UserDefaults() = default;

  /// Absent when nothing is stored under `key`, or something else than data.
  [[nodiscard]] virtual std::optional<std::string> data(const std::string& key) = 0;
  virtual void setData(const std::string& key, const std::string& bytes) = 0;

  /// False when nothing is stored under `key`, or something else than a boolean.
  [[nodiscard]] virtual bool boolean(const std::string& key) = 0;
  virtual void setBoolean(const std::string& key, bool value) = 0;

  /// The caller cannot make sense of the data under `key`: with the next write the store puts all
  /// it holds aside, where the user finds it, and forgets that entry.
  virtual void keepDamagedCopy(const std::string& key) = 0;
};

/// The store of the platform that this build is for, whose folder defines it. `console` outlives
/// it.
std::unique_ptr<UserDefaults> openUserDefaults(Console& console);

}  // namespace orvelle
