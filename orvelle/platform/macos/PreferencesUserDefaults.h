// The user's settings among the preferences that macOS keeps for each application.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "orvelle/platform/Console.h"
#include "orvelle/platform/UserDefaults.h"

namespace orvelle {

/// The domain that NSUserDefaults calls the standard one: that of the bundle, under its identifier.
/// A value is with the system's own server for preferences when it has been set, and so outlives
/// this process.
///
/// Damaged data moves to a key beside its own (".damaged-1" to ".damaged-9") before it is
/// overwritten: `defaults read app.orvelle` shows it.
class PreferencesUserDefaults final : public UserDefaults {
 public:
  /// `console` outlives this, and is told once when values cannot be stored.
  explicit PreferencesUserDefaults(Console& console) : console_(console) {}

  std::optional<std::string> data(const std::string& key) override;
  void setData(const std::string& key, const std::string& bytes) override;
  bool boolean(const std::string& key) override;
  void setBoolean(const std::string& key, bool value) override;
  void keepDamagedCopy(const std::string& key) override;

 private:
  void putDamagedAside();
  void store();

  Console& console_;
  std::set<std::string> damagedKeys_;
  bool hasReported_ = false;
};

}  // namespace orvelle
