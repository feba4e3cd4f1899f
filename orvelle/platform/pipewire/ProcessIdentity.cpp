#include "orvelle/platform/pipewire/ProcessIdentity.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <string_view>

#include "orvelle/platform/pipewire/DisplayText.h"

namespace orvelle::pipewire {

namespace {

/// The server sets it for those that it knows to be sandboxed.
constexpr std::string_view kSandboxedID = "pipewire.access.portal.app_id";

/// 0 for anything but a positive number.
std::int32_t processNumber(std::string_view text) {
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size() ? std::max(number, 0) : 0;
}

/// The first of these keys that either has, the stream before its connection.
std::string_view told(const Properties& stream, const Properties& client,
                      std::initializer_list<std::string_view> keys) {
  for (const std::string_view key : keys) {
    for (const Properties* properties : {&stream, &client}) {
      if (const auto value = valueOf(*properties, key); !value.empty()) {
        return value;
      }
    }
  }
  return {};
}

}  // namespace

std::int32_t processID(const Properties& stream, const Properties& client) {
  // The PulseAudio server connects once for each of its clients: the other end is always itself.
  const bool isProxied = valueOf(client, "client.api") == "pipewire-pulse";
  const std::int32_t peer = isProxied ? 0 : processNumber(valueOf(client, "pipewire.sec.pid"));
  if (!valueOf(client, kSandboxedID).empty()) {
    return peer;
  }
  const std::int32_t said = processNumber(told(stream, client, {"application.process.id"}));
  return said != 0 ? said : peer;
}

ProcessIdentity identify(const Properties& stream, const Properties& client) {
  const std::string_view sandboxedID = valueOf(client, kSandboxedID);
  const std::string_view bundleID =
      sandboxedID.empty() ? told(stream, client, {"application.id", "application.process.binary"})
                          : sandboxedID;
  return {processID(stream, client), displayText(bundleID),
          displayText(told(stream, client, {"application.name"}))};
}

}  // namespace orvelle::pipewire
