#include "instruments/Probe.h"

#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numbers>
#include <stdexcept>
#include <utility>

namespace orvelle::instruments {
namespace {

constexpr std::uint32_t channelCount = 2;
constexpr std::uint64_t rampPeriod = 1U << 20U;
/// The largest value is 2^20 steps: a quarter of full scale.
constexpr float rampStep = 1.0F / (1U << 22U);
/// Among hundreds of devices, the session manager takes seconds to lead a stream somewhere.
constexpr std::chrono::milliseconds startLimit{20'000};

}  // namespace

Signal sineSignal(double frequency, float amplitude, double rate) {
  return [=](const PlayedFrame& frame) {
    const double turns = std::fmod(frequency * static_cast<double>(frame.index), rate) / rate;
    return amplitude * static_cast<float>(std::sin(2.0 * std::numbers::pi * turns));
  };
}

Signal constantSignal(float value) {
  return [value](const PlayedFrame&) { return value; };
}

Signal positionSignal() {
  // Begins at one step, so that silence tells nothing.
  return [](const PlayedFrame& frame) {
    return static_cast<float>(frame.graphPosition % rampPeriod + 1) * rampStep;
  };
}

std::optional<std::uint64_t> positionTold(float sample, float gain) {
  const float steps = sample / (gain * rampStep);
  if (!(steps >= 1.0F) || steps > static_cast<float>(rampPeriod) || steps != std::floor(steps)) {
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(steps) - 1;
}

Delay measureDelay(const Recording& recording, std::string_view channel, float gain) {
  const Samples samples = recording.channel(channel);
  std::map<std::uint64_t, std::size_t> counts;
  std::size_t sounding = 0;
  for (const Cycle& cycle : recording.cycles) {
    for (std::uint64_t frame = 0; frame < cycle.frames; ++frame) {
      const float sample = samples[cycle.firstFrame + frame];
      sounding += sample != 0.0F ? 1U : 0U;
      if (const auto told = positionTold(sample, gain)) {
        ++counts[(cycle.position + frame + rampPeriod - *told) % rampPeriod];
      }
    }
  }
  if (counts.empty()) {
    throw std::runtime_error("no sample tells its position");
  }
  const auto commonest =
      std::max_element(counts.begin(), counts.end(),
                       [](const auto& a, const auto& b) { return a.second < b.second; });
  return {commonest->first, static_cast<double>(commonest->second) / static_cast<double>(sounding)};
}

struct Probe::Events {
  static void ioChanged(void* data, std::uint32_t id, void* area, std::uint32_t /*size*/) {
    if (id == SPA_IO_Position) {
      static_cast<Probe*>(data)->position_.store(static_cast<const spa_io_position*>(area));
    }
  }

  static void process(void* data) { static_cast<Probe*>(data)->process(); }

  static constexpr pw_stream_events stream = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.io_changed = ioChanged;
    events.process = process;
    return events;
  }();
};

Probe::Probe(Signal signal, const ProbeOptions& options)
    : signal_(std::move(signal)), client_(options.name) {
  connect(options);
  const auto isThere = [&] {
    return options.isPaused ? client_.node(options.name).has_value() : frames() > 0;
  };
  if (!SessionClient::waitFor(isThere, startLimit)) {
    throw std::runtime_error("the probe cannot play");
  }
}

Probe::~Probe() {
  const SessionClient::Lock lock(client_);
  // The real-time thread uses the stream until this has returned.
  pw_stream_disconnect(stream_.get());
  stream_.reset();
}

void Probe::connect(const ProbeOptions& options) {
  const SessionClient::Lock lock(client_);
  pw_properties* properties = pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY,
                                                "Playback", PW_KEY_MEDIA_ROLE, "Music",
                                                PW_KEY_NODE_NAME, options.name.c_str(), nullptr);
  if (options.latencyFrames > 0) {
    pw_properties_setf(properties, PW_KEY_NODE_LATENCY, "%d/%d", options.latencyFrames,
                       options.rate);
  }
  if (!options.target.empty()) {
    pw_properties_set(properties, PW_KEY_TARGET_OBJECT, options.target.c_str());
  }
  stream_.reset(pw_stream_new(client_.core(), options.name.c_str(), properties));
  pw_stream_add_listener(stream_.get(), &streamListener_, &Events::stream, this);

  spa_audio_info_raw format{};
  format.format = SPA_AUDIO_FORMAT_F32;
  format.rate = static_cast<std::uint32_t>(options.rate);
  format.channels = channelCount;
  format.position[0] = SPA_AUDIO_CHANNEL_FL;
  format.position[1] = SPA_AUDIO_CHANNEL_FR;
  std::array<std::uint8_t, 1024> bytes{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  std::array<const spa_pod*, 1> parameters = {
      spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format)};
  const auto flags = static_cast<pw_stream_flags>(
      PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS |
      (options.isPaused ? PW_STREAM_FLAG_INACTIVE : PW_STREAM_FLAG_NONE));
  if (pw_stream_connect(stream_.get(), PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, parameters.data(),
                        parameters.size()) < 0) {
    throw std::runtime_error("the probe cannot join the session");
  }
}

void Probe::process() noexcept {
  const spa_io_position* position = position_.load(std::memory_order_acquire);
  pw_buffer* buffer = position != nullptr ? pw_stream_dequeue_buffer(stream_.get()) : nullptr;
  if (buffer == nullptr) {
    return;
  }
  if (position->clock.position != cyclePosition_) {
    cyclePosition_ = position->clock.position;
    cycleFilled_ = 0;
  }
  constexpr std::uint64_t bytesPerFrame = channelCount * sizeof(float);
  spa_data& data = buffer->buffer->datas[0];
  // Exactly what the cycle needs: more would wait in the converter and count as latency.
  const std::uint64_t wanted =
      buffer->requested != 0 ? buffer->requested : position->clock.duration;
  const std::uint64_t frames = std::min<std::uint64_t>(wanted, data.maxsize / bytesPerFrame);
  const std::uint64_t played = played_.load(std::memory_order_relaxed);
  auto* samples = static_cast<float*>(data.data);
  for (std::uint64_t frame = 0; frame < frames; ++frame) {
    const float value = signal_({cyclePosition_ + cycleFilled_ + frame, played + frame});
    std::fill_n(samples + frame * channelCount, channelCount, value);
  }
  cycleFilled_ += frames;
  played_.store(played + frames, std::memory_order_relaxed);
  data.chunk->offset = 0;
  data.chunk->stride = static_cast<std::int32_t>(bytesPerFrame);
  data.chunk->size = static_cast<std::uint32_t>(frames * bytesPerFrame);
  pw_stream_queue_buffer(stream_.get(), buffer);
}

}  // namespace orvelle::instruments
