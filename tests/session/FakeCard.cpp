#include "tests/session/FakeCard.h"

#include <spa/monitor/utils.h>
#include <spa/param/audio/raw.h>
#include <spa/param/param.h>
#include <spa/param/props.h>
#include <spa/param/route.h>
#include <spa/pod/builder.h>
#include <spa/pod/iter.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

namespace orvelle::instruments {
namespace {

constexpr int routeIndex = 4;
constexpr int routeDevice = 7;
constexpr std::chrono::milliseconds limit{2000};
constexpr std::array<std::uint32_t, 2> stereo = {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR};
constexpr std::array<std::uint32_t, 1> mono = {SPA_AUDIO_CHANNEL_MONO};

std::optional<bool> flagIn(const spa_pod* object, std::uint32_t key) {
  const spa_pod_prop* found = spa_pod_find_prop(object, nullptr, key);
  bool value = false;
  if (found == nullptr || spa_pod_get_bool(&found->value, &value) < 0) {
    return std::nullopt;
  }
  return value;
}

int numberIn(const spa_pod* object, std::uint32_t key) {
  const spa_pod_prop* found = spa_pod_find_prop(object, nullptr, key);
  std::int32_t value = -1;
  if (found != nullptr) {
    spa_pod_get_int(&found->value, &value);
  }
  return value;
}

RouteRequest requestFrom(const spa_pod* route) {
  RouteRequest request;
  request.index = numberIn(route, SPA_PARAM_ROUTE_index);
  request.device = numberIn(route, SPA_PARAM_ROUTE_device);
  request.isSaved = flagIn(route, SPA_PARAM_ROUTE_save);
  const spa_pod_prop* properties = spa_pod_find_prop(route, nullptr, SPA_PARAM_ROUTE_props);
  if (properties == nullptr) {
    return request;
  }
  request.isMuted = flagIn(&properties->value, SPA_PROP_mute);
  if (const spa_pod_prop* volumes =
          spa_pod_find_prop(&properties->value, nullptr, SPA_PROP_channelVolumes)) {
    std::array<float, 64> values{};
    const std::uint32_t count =
        spa_pod_copy_array(&volumes->value, SPA_TYPE_Float, values.data(), values.size());
    request.volumes.assign(values.begin(), values.begin() + count);
  }
  return request;
}

void addProperties(spa_pod_builder& builder, const std::vector<float>& volumes, bool isMuted) {
  const std::uint32_t* map = volumes.size() == 1 ? mono.data() : stereo.data();
  const auto count = static_cast<std::uint32_t>(volumes.size());
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Props, SPA_PARAM_Route);
  spa_pod_builder_prop(&builder, SPA_PROP_mute, 0);
  spa_pod_builder_bool(&builder, isMuted);
  spa_pod_builder_prop(&builder, SPA_PROP_channelVolumes, 0);
  spa_pod_builder_array(&builder, sizeof(float), SPA_TYPE_Float, count, volumes.data());
  spa_pod_builder_prop(&builder, SPA_PROP_channelMap, 0);
  spa_pod_builder_array(&builder, sizeof(std::uint32_t), SPA_TYPE_Id, count, map);
  spa_pod_builder_pop(&builder, &frame);
}

}  // namespace

/// What the session calls, on the loop's thread with the lock held.
struct FakeCard::Methods {
  static int addListener(void* object, spa_hook* listener, const spa_device_events* events,
                         void* data) {
    auto& self = *static_cast<FakeCard*>(object);
    spa_hook_list others{};
    spa_hook_list_isolate(&self.listeners_, &others, listener, events, data);
    self.emitInfo(true);
    spa_hook_list_join(&self.listeners_, &others);
    return 0;
  }

  static int sync(void* object, int sequence) {
    auto& self = *static_cast<FakeCard*>(object);
    spa_device_emit_result(&self.listeners_, sequence, 0, 0, nullptr);
    return 0;
  }

  static int enumParams(void* object, int sequence, std::uint32_t id, std::uint32_t index,
                        std::uint32_t /*most*/, const spa_pod* /*filter*/) {
    if (id != SPA_PARAM_Route) {
      return -ENOENT;
    }
    if (index == 0) {
      static_cast<FakeCard*>(object)->emitRoute(sequence);
    }
    return 0;
  }

  static int setParam(void* object, std::uint32_t id, std::uint32_t /*flags*/,
                      const spa_pod* param) {
    if (id != SPA_PARAM_Route || param == nullptr) {
      return -ENOENT;
    }
    auto& self = *static_cast<FakeCard*>(object);
    const RouteRequest request = requestFrom(param);
    self.requests_.push_back(request);
    if (request.index != routeIndex || request.device != routeDevice) {
      return -EINVAL;
    }
    self.apply(request.volumes, request.isMuted.value_or(self.isMuted_));
    return 0;
  }

  static constexpr spa_device_methods table{SPA_VERSION_DEVICE_METHODS, addListener, sync,
                                            enumParams, setParam};
};

FakeCard::FakeCard(std::vector<float> volumes)
    : client_("fake card"), volumes_(std::move(volumes)) {
  device_.iface.type = SPA_TYPE_INTERFACE_Device;
  device_.iface.version = SPA_VERSION_DEVICE;
  device_.iface.cb.funcs = &Methods::table;
  device_.iface.cb.data = this;
  spa_hook_list_init(&listeners_);
  parameters_[0].id = SPA_PARAM_Route;
  parameters_[0].flags = SPA_PARAM_INFO_READWRITE;

  {
    const SessionClient::Lock lock(client_);
    pw_properties* properties = pw_properties_new(
        PW_KEY_MEDIA_CLASS, "Audio/Device", PW_KEY_DEVICE_API, "alsa", PW_KEY_DEVICE_NAME,
        "fake_card", PW_KEY_DEVICE_DESCRIPTION, "Fake Card", PW_KEY_DEVICE_BUS, "pci", nullptr);
    exported_ = static_cast<pw_proxy*>(
        pw_core_export(client_.core(), SPA_TYPE_INTERFACE_Device, &properties->dict, &device_, 0));
    pw_properties_free(properties);
  }
  if (exported_ == nullptr) {
    throw std::runtime_error("the session takes no card");
  }
  const auto isBound = [this] {
    const SessionClient::Lock lock(client_);
    id_ = pw_proxy_get_bound_id(exported_);
    return id_ != PW_ID_ANY;
  };
  if (!SessionClient::waitFor(isBound, limit)) {
    throw std::runtime_error("the card got no id");
  }
}

FakeCard::~FakeCard() {
  const SessionClient::Lock lock(client_);
  pw_proxy_destroy(exported_);
}

StandIn FakeCard::output(const std::string& name) const {
  return {.name = name,
          .bus = "",
          .positions = volumes_.size() == 1 ? std::vector<std::string>{"MONO"}
                                            : std::vector<std::string>{"FL", "FR"},
          .furtherProperties = {{PW_KEY_DEVICE_ID, std::to_string(id_)},
                                {"card.profile.device", std::to_string(routeDevice)}}};
}

void FakeCard::turnKnob(const std::vector<float>& volumes, bool isMuted) {
  const SessionClient::Lock lock(client_);
  apply(volumes, isMuted);
}

std::vector<float> FakeCard::volumes() const {
  const SessionClient::Lock lock(client_);
  return volumes_;
}

bool FakeCard::isMuted() const {
  const SessionClient::Lock lock(client_);
  return isMuted_;
}

std::vector<RouteRequest> FakeCard::requests() const {
  const SessionClient::Lock lock(client_);
  return requests_;
}

void FakeCard::apply(const std::vector<float>& volumes, bool isMuted) {
  if (volumes.size() == volumes_.size()) {
    volumes_ = volumes;
  }
  isMuted_ = isMuted;
  // Another serial says that the parameter has a new value.
  parameters_[0].flags ^= SPA_PARAM_INFO_SERIAL;
  emitInfo(false);
}

void FakeCard::emitInfo(bool isFirst) {
  spa_device_info info{};
  info.version = SPA_VERSION_DEVICE_INFO;
  info.change_mask = SPA_DEVICE_CHANGE_MASK_PARAMS;
  info.params = parameters_.data();
  info.n_params = static_cast<std::uint32_t>(parameters_.size());
  const std::array<spa_dict_item, 1> items{{{PW_KEY_DEVICE_API, "alsa"}}};
  spa_dict properties{};
  properties.n_items = static_cast<std::uint32_t>(items.size());
  properties.items = items.data();
  if (isFirst) {
    info.change_mask |= SPA_DEVICE_CHANGE_MASK_PROPS;
    info.props = &properties;
  }
  spa_device_emit_info(&listeners_, &info);
}

void FakeCard::emitRoute(int sequence) {
  std::array<std::uint8_t, 2048> bytes{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_ParamRoute, SPA_PARAM_Route);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_index, 0);
  spa_pod_builder_int(&builder, routeIndex);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_direction, 0);
  spa_pod_builder_id(&builder, SPA_DIRECTION_OUTPUT);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_device, 0);
  spa_pod_builder_int(&builder, routeDevice);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_name, 0);
  spa_pod_builder_string(&builder, "analog-output");
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_props, 0);
  addProperties(builder, volumes_, isMuted_);

  spa_result_device_params result{};
  result.id = SPA_PARAM_Route;
  result.next = 1;
  result.param = static_cast<spa_pod*>(spa_pod_builder_pop(&builder, &frame));
  spa_device_emit_result(&listeners_, sequence, 0, SPA_RESULT_TYPE_DEVICE_PARAMS, &result);
}

}  // namespace orvelle::instruments
