#include "instruments/SessionOptions.h"

#include <fstream>
#include <sstream>
#include <string_view>

namespace orvelle::instruments {
namespace {

void writeFile(const std::filesystem::path& path, std::string_view text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream stream(path);
  stream.exceptions(std::ios::failbit | std::ios::badbit);
  stream << text << std::flush;
}

std::string listOf(const std::vector<std::string>& items) {
  std::string text = "[";
  for (const std::string& item : items) {
    text += " " + item;
  }
  return text + " ]";
}

/// One property a line. Keys stand in brackets in Lua.
std::string listed(const StandIn& standIn, std::string_view beforeKey, std::string_view afterKey) {
  std::ostringstream text;
  for (const auto& [key, value] : standIn.properties()) {
    text << "    " << beforeKey << '"' << key << '"' << afterKey << " = \"" << value << "\",\n";
  }
  return text.str();
}

std::string serverConfiguration(const SessionOptions& options) {
  std::vector<std::string> rates;
  for (const int rate : options.allowedRates) {
    rates.push_back(std::to_string(rate));
  }
  if (rates.empty()) {
    rates.push_back(std::to_string(options.clockRate));
  }
  // In a virtual machine the server raises the smallest quantum by itself, older servers through
  // vm.overrides and newer ones through a rule; the last word is the one that counts.
  const std::string limits =
      "default.clock.min-quantum = " + std::to_string(options.minimumQuantum);
  std::ostringstream text;
  text << "context.properties = {\n"
       << "  default.clock.rate = " << options.clockRate << "\n"
       << "  default.clock.allowed-rates = " << listOf(rates) << "\n"
       << "  default.clock.quantum = " << options.quantum << "\n"
       << "  default.clock.max-quantum = " << options.maximumQuantum << "\n"
       << "  " << limits << "\n"
       << "  vm.overrides = { " << limits << " }\n"
       << "}\n"
       << "context.properties.rules = [ { matches = [ { cpu.vm.name = !null } ]\n"
       << "  actions = { update-props = { " << limits << " } } } ]\n"
       << "context.objects = [\n";
  for (const StandIn& standIn : options.standIns) {
    if (!options.areManagersOwn) {
      text << "  { factory = adapter args = {\n" << listed(standIn, "", "");
      text << "    object.linger = true\n  } }\n";
    }
  }
  text << "]\n";
  return text.str();
}

/// Makes the outputs in the session manager, as its own monitors make those of hardware.
std::string outputScript(const SessionOptions& options) {
  std::ostringstream text;
  text << "outputs = {}\n";
  for (const StandIn& standIn : options.standIns) {
    if (options.areManagersOwn) {
      text << "table.insert(outputs, Node(\"adapter\", {\n" << listed(standIn, "[", "]") << "}))\n";
    }
  }
  text << "for _, output in ipairs(outputs) do output:activate(Feature.Proxy.BOUND) end\n";
  return text.str();
}

/// Small requests of PulseAudio clients are granted, in virtual machines too.
constexpr std::string_view pulseConfiguration = R"(
pulse.properties = {
  vm.overrides = { pulse.min.quantum = 256/48000 }
}
)";

/// The session manager up to 0.4: configured in Lua. Everything that moves and remembers streams is
/// there; everything that looks for hardware or for D-Bus is not.
constexpr std::string_view luaDaemonConfiguration = R"(
context.properties = { log.level = 2 wireplumber.script-engine = lua-scripting }
context.spa-libs = {
  audio.convert.* = audioconvert/libspa-audioconvert
  support.* = support/libspa-support
}
context.modules = [
  { name = libpipewire-module-rt args = { nice.level = -11 } flags = [ ifexists nofail ] }
  { name = libpipewire-module-protocol-native }
  { name = libpipewire-module-client-node }
  { name = libpipewire-module-client-device }
  { name = libpipewire-module-adapter }
  { name = libpipewire-module-metadata }
  { name = libpipewire-module-session-manager }
]
wireplumber.components = [
  { name = libwireplumber-module-lua-scripting type = module }
  { name = session.lua type = config/lua }
]
)";

constexpr std::string_view luaComponents = R"(
components = {}
local function module(name, arguments)
  components[name] = { "libwireplumber-module-" .. name, type = "module", args = arguments }
end
local function script(name, arguments)
  components[name] = { name, type = "script/lua", args = arguments }
end

local policy = { ["move"] = true, ["follow"] = true, ["audio.no-dsp"] = false }
local remember = { ["use-persistent-storage"] = true }

module("metadata")
script("access/access-default.lua", { rules = {} })
module("default-nodes", remember)
script("policy-device-routes.lua", remember)
script("restore-stream.lua", {
  properties = { ["restore-props"] = true, ["restore-target"] = true },
  rules = {},
})
script("intended-roles.lua")
script("suspend-node.lua")
module("si-node")
module("si-audio-adapter")
module("si-standard-link")
module("si-audio-endpoint")
module("default-nodes-api")
module("mixer-api")
script("create-item.lua", policy)
script("policy-node.lua", policy)
script("outputs.lua")
)";

/// The session manager from 0.5: the stock configuration without what needs hardware or D-Bus.
constexpr std::string_view profileFragment = R"(
wireplumber.profiles = {
  main = {
    hardware.audio = disabled
    hardware.bluetooth = disabled
    hardware.video-capture = disabled
    support.dbus = disabled
    support.logind = disabled
    support.portal-permissionstore = disabled
    support.reserve-device = disabled
  }
}
)";

/// The outputs' script is a component like any other there.
constexpr std::string_view outputsFragment = R"(
wireplumber.components = [ { name = outputs.lua type = script/lua provides = session.outputs } ]
wireplumber.profiles = { main = { session.outputs = required } }
)";

}  // namespace

std::map<std::string, std::string> StandIn::properties() const {
  std::map<std::string, std::string> all = {
      {"factory.name", "support.null-audio-sink"},
      {"node.name", name},
      {"node.description", description},
      {"media.class", mediaClass},
      {"audio.position", listOf(positions)},
      {"priority.session", std::to_string(priority)},
      {"priority.driver", std::to_string(priority)},
      {"monitor.channel-volumes", "true"},
  };
  if (rate != 0) {
    all["audio.rate"] = std::to_string(rate);
  }
  if (!api.empty()) {
    all["device.api"] = api;
  }
  if (!bus.empty()) {
    all["device.bus"] = bus;
  }
  for (const auto& [key, value] : furtherProperties) {
    all[key] = value;
  }
  return all;
}

void writeSessionConfiguration(const std::filesystem::path& directory,
                               const std::filesystem::path& data, const SessionOptions& options) {
  writeFile(directory / "pipewire/pipewire.conf.d/session.conf", serverConfiguration(options));
  writeFile(directory / "pipewire/pipewire-pulse.conf.d/session.conf", pulseConfiguration);
  writeFile(directory / "wireplumber-lua/wireplumber.conf", luaDaemonConfiguration);
  writeFile(directory / "wireplumber-lua/session.lua", luaComponents);
  writeFile(directory / "wireplumber/wireplumber.conf.d/session.conf", profileFragment);
  writeFile(directory / "wireplumber/wireplumber.conf.d/outputs.conf", outputsFragment);
  // Scripts are looked for among the settings up to 0.4, among the data from 0.5 on.
  for (const auto& parent : {directory, data}) {
    writeFile(parent / "wireplumber/scripts/outputs.lua", outputScript(options));
  }
}

}  // namespace orvelle::instruments
