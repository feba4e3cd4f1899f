#include "orvelle/platform/pipewire/DisplayText.h"

#include <algorithm>

namespace orvelle::pipewire {

std::string displayText(std::string_view text) {
  std::string shown(text);
  std::ranges::replace_if(
      shown,
      [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte < 0x20 || byte == 0x7F;
      },
      ' ');
  return shown;
}

}  // namespace orvelle::pipewire
