#include "instruments/Recorder.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace orvelle::instruments {
namespace {

constexpr std::size_t ratedFramesPerSecond = 48000;
constexpr std::size_t smallestCycle = 16;
constexpr std::uint32_t largestCycle = 8192;
constexpr std::chrono::milliseconds recordingLimit{2000};

}  // namespace

struct Recorder::Events {
  static void process(void* data, spa_io_position* position) {
    static_cast<Recorder*>(data)->process(*position);
  }

  static constexpr pw_filter_events filter = [] {
    pw_filter_events events{};
    events.version = PW_VERSION_FILTER_EVENTS;
    events.process = process;
    return events;
  }();
};

Recorder::Recorder(std::string sink, std::chrono::seconds capacity)
    : sink_(std::move(sink)), capacity_(capacity), client_("recorder", this) {
  findChannels();
  makeFilter();
  findOwnPorts();
  {
    const SessionClient::Lock lock(client_);
    linkChannels();
  }
  const auto runs = [this] {
    const std::size_t count = cycleCount_.load(std::memory_order_acquire);
    return count > 0 && cycles_[count - 1].isLinked;
  };
  if (!SessionClient::waitFor(runs, recordingLimit)) {
    throw std::runtime_error("no cycle runs at the output " + sink_);
  }
}

Recorder::~Recorder() {
  const SessionClient::Lock lock(client_);
  for (const auto& [port, link] : links_) {
    pw_proxy_destroy(link);
  }
  // The real-time thread uses the ports until this has returned.
  pw_filter_disconnect(filter_.get());
  filter_.reset();
}

void Recorder::findChannels() {
  const SessionClient::Lock lock(client_);
  if (sinkPorts_.empty()) {
    throw std::runtime_error("no output " + sink_ + " to record");
  }
  const auto seconds = static_cast<std::size_t>(capacity_.count());
  for (const auto& [name, port] : sinkPorts_) {
    channels_.push_back({name, nullptr, std::vector<float>(seconds * ratedFramesPerSecond)});
  }
  cycles_.resize(seconds * ratedFramesPerSecond / smallestCycle);
}

void Recorder::makeFilter() {
  const SessionClient::Lock lock(client_);
  filter_.reset(pw_filter_new(
      client_.core(), "recorder",
      pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Filter", nullptr)));
  pw_filter_add_listener(filter_.get(), &filterListener_, &Events::filter, this);
  for (Channel& channel : channels_) {
    channel.port =
        pw_filter_add_port(filter_.get(), PW_DIRECTION_INPUT, PW_FILTER_PORT_FLAG_MAP_BUFFERS, 1,
                           pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio",
                                             PW_KEY_PORT_NAME, channel.name.c_str(),
                                             PW_KEY_AUDIO_CHANNEL, channel.name.c_str(), nullptr),
                           nullptr, 0);
  }
  if (pw_filter_connect(filter_.get(), PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) < 0) {
    throw std::runtime_error("the recorder cannot join the session");
  }
}

void Recorder::findOwnPorts() {
  const auto complete = [this] {
    const SessionClient::Lock lock(client_);
    const std::uint32_t self = pw_filter_get_node_id(filter_.get());
    for (const SessionObject& port : client_.ports()) {
      if (self != PW_ID_ANY && port.idProperty(PW_KEY_NODE_ID) == self) {
        ownPorts_[port.property(PW_KEY_AUDIO_CHANNEL)] = port.id;
      }
    }
    return ownPorts_.size() == channels_.size();
  };
  if (!SessionClient::waitFor(complete, recordingLimit)) {
    throw std::runtime_error("the recorder got no ports");
  }
}

bool Recorder::isMonitorOfSink(const SessionObject& port) const {
  return port.type == PW_TYPE_INTERFACE_Port && sinkID_ != PW_ID_ANY &&
         port.idProperty(PW_KEY_NODE_ID) == sinkID_ &&
         port.property(PW_KEY_PORT_DIRECTION) == "out";
}

void Recorder::objectAdded(SessionClient& /*client*/, const SessionObject& object) {
  if (object.type == PW_TYPE_INTERFACE_Node && object.property(PW_KEY_NODE_NAME) == sink_) {
    sinkID_ = object.id;
  } else if (isMonitorOfSink(object)) {
    sinkPorts_[object.property(PW_KEY_AUDIO_CHANNEL)] = object.id;
    linkChannels();
  }
}

void Recorder::objectRemoved(SessionClient& /*client*/, const SessionObject& object) {
  if (object.id == sinkID_) {
    sinkID_ = PW_ID_ANY;
  }
  std::erase_if(sinkPorts_, [&](const auto& entry) { return entry.second == object.id; });
  if (const auto link = links_.find(object.id); link != links_.end()) {
    pw_proxy_destroy(link->second);
    links_.erase(link);
  }
}

void Recorder::linkChannels() {
  for (const auto& [name, own] : ownPorts_) {
    const auto source = sinkPorts_.find(name);
    if (source == sinkPorts_.end() || links_.contains(source->second)) {
      continue;
    }
    pw_properties* properties = pw_properties_new(nullptr, nullptr);
    pw_properties_setf(properties, PW_KEY_LINK_OUTPUT_PORT, "%u", source->second);
    pw_properties_setf(properties, PW_KEY_LINK_INPUT_PORT, "%u", own);
    links_[source->second] = static_cast<pw_proxy*>(
        pw_core_create_object(client_.core(), "link-factory", PW_TYPE_INTERFACE_Link,
                              PW_VERSION_LINK, &properties->dict, 0));
    pw_properties_free(properties);
  }
}

void Recorder::process(const spa_io_position& position) noexcept {
  const spa_io_clock& clock = position.clock;
  const std::uint64_t begin = written_.load(std::memory_order_relaxed);
  const std::size_t cycle = cycleCount_.load(std::memory_order_relaxed);
  const std::uint64_t free = channels_.front().samples.size() - begin;
  if (cycle == cycles_.size() || free < largestCycle) {
    overflowed_.store(true, std::memory_order_relaxed);
    return;
  }
  const auto duration = static_cast<std::uint32_t>(clock.duration);
  // Silence comes in buffers of any size: no cycle brings more than it or the one before lasted.
  const std::uint32_t limit = std::min(
      largestCycle, cycle == 0 ? duration : std::max(duration, cycles_[cycle - 1].duration));
  std::uint32_t brought = 0;
  for (Channel& channel : channels_) {
    brought = std::max(brought, capture(channel, begin, limit));
  }
  const std::uint32_t frames = brought != 0 ? brought : duration;
  cycles_[cycle] = {
      begin,    clock.position,   duration,     frames,
      clock.id, clock.rate.denom, brought != 0, static_cast<std::int64_t>(clock.nsec)};
  written_.store(begin + frames, std::memory_order_release);
  cycleCount_.store(cycle + 1, std::memory_order_release);
}

std::uint32_t Recorder::capture(Channel& channel, std::uint64_t begin,
                                std::uint32_t limit) noexcept {
  pw_buffer* buffer = pw_filter_dequeue_buffer(channel.port);
  if (buffer == nullptr) {
    return 0;  // not linked: the samples stay zero
  }
  const spa_data& data = buffer->buffer->datas[0];
  const std::uint32_t frames =
      std::min(static_cast<std::uint32_t>(data.chunk->size / sizeof(float)), limit);
  const auto* source = static_cast<const std::uint8_t*>(data.data) + data.chunk->offset;
  std::memcpy(channel.samples.data() + begin, source, frames * sizeof(float));
  pw_filter_queue_buffer(channel.port, buffer);
  return frames;
}

Recording Recorder::take() const {
  if (overflowed_.load(std::memory_order_relaxed)) {
    throw std::runtime_error("the recorder ran out of memory");
  }
  Recording recording;
  const std::size_t count = cycleCount_.load(std::memory_order_acquire);
  recording.cycles.assign(cycles_.begin() + static_cast<std::ptrdiff_t>(firstCycle_),
                          cycles_.begin() + static_cast<std::ptrdiff_t>(count));
  const auto [begin, end] =
      recording.cycles.empty()
          ? std::pair<std::uint64_t, std::uint64_t>(0, 0)
          : std::pair(recording.cycles.front().firstFrame,
                      recording.cycles.back().firstFrame + recording.cycles.back().frames);
  for (Cycle& cycle : recording.cycles) {
    cycle.firstFrame -= begin;
  }
  for (const Channel& channel : channels_) {
    recording.channelNames.push_back(channel.name);
    recording.channels.emplace_back(channel.samples.begin() + static_cast<std::ptrdiff_t>(begin),
                                    channel.samples.begin() + static_cast<std::ptrdiff_t>(end));
  }
  return recording;
}

void Recorder::forget() {
  firstCycle_ = cycleCount_.load(std::memory_order_acquire);
}

bool Recorder::waitFor(std::chrono::milliseconds duration) const {
  const std::uint64_t begin = written_.load(std::memory_order_acquire);
  const auto enough = [&] {
    const std::size_t cycle = cycleCount_.load(std::memory_order_acquire);
    const std::uint64_t rate = cycle == 0 ? ratedFramesPerSecond : cycles_[cycle - 1].rate;
    const std::uint64_t recorded = written_.load(std::memory_order_acquire) - begin;
    return recorded * 1000 >= rate * static_cast<std::uint64_t>(duration.count());
  };
  return SessionClient::waitFor(enough, 2 * duration + recordingLimit);
}

}  // namespace orvelle::instruments
