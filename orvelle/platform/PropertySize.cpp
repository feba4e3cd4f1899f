#include "orvelle/platform/PropertySize.h"

#include <type_traits>

namespace orvelle {

std::uint32_t propertySize(const PropertyValue& value) {
  const auto size = [](const auto& held) -> std::size_t {
    using Held = std::decay_t<decltype(held)>;
    if constexpr (std::is_same_v<Held, std::monostate>) {
      return 0;
    } else if constexpr (std::is_same_v<Held, std::string>) {
      return sizeof(void*);
    } else if constexpr (std::is_same_v<Held, std::vector<AudioObjectID>>) {
      return held.size() * sizeof(AudioObjectID);
    } else if constexpr (std::is_same_v<Held, StreamConfiguration>) {
      constexpr std::size_t kHeader = 8;
      return kHeader + held.channelsPerBuffer.size() * sizeof(AudioBuffer);
    } else {
      return sizeof(Held);
    }
  };
  return static_cast<std::uint32_t>(std::visit(size, value));
}

}  // namespace orvelle
