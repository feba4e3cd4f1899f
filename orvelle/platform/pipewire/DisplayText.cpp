#include "orvelle/platform/pipewire/DisplayText.h"

namespace orvelle::pipewire {

std::string displayText(std::string_view text) {
  std::string shown;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    // In UTF-8 the second range of control characters is 0xC2 and a byte below 0xA0.
    const bool isSecondRange = !shown.empty() && shown.back() == '\xC2' && byte < 0xA0;
    if (isSecondRange) {
      shown.back() = ' ';
    } else {
      shown += byte < 0x20 || byte == 0x7F ? ' ' : character;
    }
  }
  return shown;
}

}  // namespace orvelle::pipewire
