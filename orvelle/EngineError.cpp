#include "orvelle/EngineError.h"

namespace orvelle {

EngineError EngineError::deviceNotFound(std::string_view uid) {
  return EngineError("Audio device not found: " + std::string(uid));
}

EngineError EngineError::osStatus(std::string_view step, OSStatus status) {
  return EngineError(std::string(step) + " failed (OSStatus " + std::to_string(status) + ")");
}

EngineError EngineError::boostingAlready(std::int32_t process) {
  return EngineError("Orvelle is boosting already (process " + std::to_string(process) +
                     "). Stop that one first.");
}

EngineError EngineError::mayNotReceiveSound() {
  return EngineError(
      "Orvelle may not receive sound. Allow it in System Settings > Privacy & Security > "
      "Microphone, which is what the loopback device counts as, then start again.");
}

EngineError EngineError::givenUp() {
  return EngineError("Given up");
}

}  // namespace orvelle
