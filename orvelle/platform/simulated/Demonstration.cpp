#include "orvelle/platform/simulated/Demonstration.h"

#include <cmath>
#include <numbers>

namespace orvelle {

namespace {

constexpr double kSampleRate = 48000.0;
constexpr std::uint32_t kFramesPerCycle = 480;

/// Swells and fades every four seconds, so that a meter has something to show.
float tone(std::int64_t frame, std::uint32_t /*channel*/) {
  constexpr double toneFrequency = 440.0;  // Hz
  constexpr double swellFrequency = 0.25;  // Hz
  const double radiansPerHertz = 2.0 * std::numbers::pi * static_cast<double>(frame) / kSampleRate;
  const double amplitude = 0.3 - 0.25 * std::cos(swellFrequency * radiansPerHertz);
  return static_cast<float>(amplitude * std::sin(toneFrequency * radiansPerHertz));
}

DeviceDescription named(DeviceDescription device, const char* name) {
  device.name = name;
  return device;
}

}  // namespace

Demonstration::Demonstration(MainQueue& queue) : SimulatedHardware(queue), queue_(queue) {
  // Plugged in first, so the default output.
  plug(named(stereoOutput("Demonstration_Speakers", kAudioDeviceTransportTypeBuiltIn, 0.9F),
             "Built-in Speakers"));
  plug(named(stereoOutput("Demonstration_Headphones", kAudioDeviceTransportTypeUSB),
             "USB Headphones"));
  plug(named(stereoOutput("Demonstration_Display", kAudioDeviceTransportTypeHDMI), "HDMI Display"));
  plug(named(headset("Demonstration_Headset"), "Headset with Microphone"));
  plug(named(loopbackDevice(), "Orvelle Loopback"));
  ProcessDescription player;
  player.pid = 1000;
  player.bundleID = "demonstration.player";
  player.signal = tone;
  launch(player);
  constexpr double cycleSeconds = kFramesPerCycle / kSampleRate;
  cycles_ = queue.repeat(cycleSeconds, cycleSeconds, [this] { runCycle(kFramesPerCycle); });
}

Demonstration::~Demonstration() {
  queue_.cancel(cycles_);
}

}  // namespace orvelle
