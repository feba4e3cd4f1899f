#include "orvelle/platform/pipewire/Pods.h"

#include <spa/param/audio/format.h>
#include <spa/param/param.h>
#include <spa/param/props.h>
#include <spa/param/route.h>
#include <spa/pod/iter.h>
#include <spa/utils/type.h>

namespace orvelle::pipewire {

namespace {

constexpr std::size_t kPodBytes = 4096;

template <class Value>
std::vector<Value> arrayOf(const spa_pod* pod, std::uint32_t type) {
  std::uint32_t count = 0;
  const void* values = spa_pod_get_array(pod, &count);
  if (values == nullptr || SPA_POD_ARRAY_VALUE_TYPE(pod) != type) {
    return {};
  }
  const auto* first = static_cast<const Value*>(values);
  return std::vector<Value>(first, first + count);
}

std::optional<std::int32_t> intOf(const spa_pod* object, std::uint32_t key) {
  const spa_pod_prop* prop = spa_pod_find_prop(object, nullptr, key);
  std::int32_t value = 0;
  if (prop == nullptr || spa_pod_get_int(&prop->value, &value) < 0) {
    return std::nullopt;
  }
  return value;
}

spa_pod_builder builderOn(PodBuffer& buffer) {
  buffer.resize(kPodBytes);
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, buffer.data(), static_cast<std::uint32_t>(buffer.size()));
  return builder;
}

spa_pod* addProps(spa_pod_builder& builder, const ChannelLevel& level) {
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
  spa_pod_builder_prop(&builder, SPA_PROP_mute, 0);
  spa_pod_builder_bool(&builder, level.mute);
  spa_pod_builder_prop(&builder, SPA_PROP_channelVolumes, 0);
  spa_pod_builder_array(&builder, sizeof(float), SPA_TYPE_Float,
                        static_cast<std::uint32_t>(level.volumes.size()), level.volumes.data());
  return static_cast<spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

}  // namespace

std::optional<ChannelLevel> levelFromProps(const spa_pod* props) {
  const spa_pod_prop* volumes = spa_pod_find_prop(props, nullptr, SPA_PROP_channelVolumes);
  if (volumes == nullptr) {
    return std::nullopt;
  }
  ChannelLevel level;
  level.volumes = arrayOf<float>(&volumes->value, SPA_TYPE_Float);
  if (level.volumes.empty()) {
    return std::nullopt;
  }
  if (const spa_pod_prop* map = spa_pod_find_prop(props, nullptr, SPA_PROP_channelMap)) {
    level.channelMap = arrayOf<std::uint32_t>(&map->value, SPA_TYPE_Id);
  }
  if (const spa_pod_prop* mute = spa_pod_find_prop(props, nullptr, SPA_PROP_mute)) {
    spa_pod_get_bool(&mute->value, &level.mute);
  }
  return level;
}

std::optional<Route> routeFromParam(const spa_pod* param) {
  const auto index = intOf(param, SPA_PARAM_ROUTE_index);
  const auto device = intOf(param, SPA_PARAM_ROUTE_device);
  if (!index || !device) {
    return std::nullopt;
  }
  Route route{*index, *device, std::nullopt};
  if (const spa_pod_prop* props = spa_pod_find_prop(param, nullptr, SPA_PARAM_ROUTE_props)) {
    route.level = levelFromProps(&props->value);
  }
  return route;
}

RateChoice rateFromFormat(const spa_pod* format) {
  const spa_pod_prop* rate = spa_pod_find_prop(format, nullptr, SPA_FORMAT_AUDIO_rate);
  if (rate == nullptr) {
    return {};
  }
  std::uint32_t count = 0;
  std::uint32_t choice = SPA_CHOICE_None;
  const spa_pod* values = spa_pod_get_values(&rate->value, &count, &choice);
  if (values->type != SPA_TYPE_Int || count == 0) {
    return {};
  }
  const auto* first = static_cast<const std::int32_t*>(SPA_POD_BODY_CONST(values));
  return {std::vector<std::int32_t>(first, first + count),
          choice == SPA_CHOICE_Range || choice == SPA_CHOICE_Step};
}

spa_pod* buildProps(PodBuffer& buffer, const ChannelLevel& level) {
  spa_pod_builder builder = builderOn(buffer);
  return addProps(builder, level);
}

spa_pod* buildRoute(PodBuffer& buffer, const Route& route, const ChannelLevel& level) {
  spa_pod_builder builder = builderOn(buffer);
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_ParamRoute, SPA_PARAM_Route);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_index, 0);
  spa_pod_builder_int(&builder, route.index);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_device, 0);
  spa_pod_builder_int(&builder, route.device);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_props, 0);
  addProps(builder, level);
  spa_pod_builder_prop(&builder, SPA_PARAM_ROUTE_save, 0);
  spa_pod_builder_bool(&builder, false);
  return static_cast<spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

}  // namespace orvelle::pipewire
