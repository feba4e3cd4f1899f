// Why an engine could not start.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle {

/// The error of the engines. `what()` is the text that the user reads.
class EngineError : public std::runtime_error {
 public:
  static EngineError deviceNotFound(std::string_view uid);
  /// `step` names the operation that failed.
  static EngineError osStatus(std::string_view step, OSStatus status);
  /// Another instance has the default output; two would fight over it, and each take the other's
  /// state for the user's.
  static EngineError boostingAlready(std::int32_t process);
  /// The user has not let this program receive sound.
  static EngineError mayNotReceiveSound();
  /// The caller of the start has changed its mind meanwhile.
  static EngineError givenUp();

 private:
  using std::runtime_error::runtime_error;
};

}  // namespace orvelle
