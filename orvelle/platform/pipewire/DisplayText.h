// Names that other programs and devices give themselves, before they are shown.
#pragma once

#include <string>
#include <string_view>

namespace orvelle::pipewire {

/// With a blank for every control character: a name must not begin a line of its own, or steer the
/// terminal that it is printed on.
std::string displayText(std::string_view text);

}  // namespace orvelle::pipewire
