#include "orvelle/EngineError.h"

namespace orvelle {

EngineError EngineError::deviceNotFound(std::string_view uid) {
  return EngineError("Audio device not found: " + std::string(uid));
}

EngineError EngineError::osStatus(std::string_view step, OSStatus status) {
  return EngineError(std::string(step) + " failed (OSStatus " + std::to_string(status) + ")");
}

EngineError EngineError::givenUp() {
  return EngineError("Given up");
}

}  // namespace orvelle
