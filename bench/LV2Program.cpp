// An LV2 plugin as a filter, for comparing whole processes: the smallest host that is fair to it.
// It runs the plugin on callbacks of 512 frames; lv2apply would do so on single frames.
#include <lilv/lilv.h>
#include <lv2/urid/urid.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/RawAudio.h"

namespace orvelle {
namespace {

constexpr std::size_t framesPerCallback = 512;
constexpr double rateHz = 48000.0;

template <auto free>
struct FreeWith {
  template <typename Type>
  void operator()(Type* object) const {
    free(object);
  }
};
using World = std::unique_ptr<LilvWorld, FreeWith<lilv_world_free>>;
using Node = std::unique_ptr<LilvNode, FreeWith<lilv_node_free>>;
using Instance = std::unique_ptr<LilvInstance, FreeWith<lilv_instance_free>>;

/// Numbers for the names that a plugin asks for: the one service that most plugins insist on.
class NameTable {
 public:
  NameTable() : map_{this, &NameTable::numberOf}, feature_{LV2_URID__map, &map_} {}

  [[nodiscard]] const LV2_Feature* feature() const { return &feature_; }

 private:
  static LV2_URID numberOf(LV2_URID_Map_Handle table, const char* name) {
    auto& numbers = static_cast<NameTable*>(table)->numbers_;
    return numbers.try_emplace(name, static_cast<LV2_URID>(numbers.size() + 1)).first->second;
  }

  std::map<std::string, LV2_URID> numbers_;
  LV2_URID_Map map_;
  LV2_Feature feature_;
};

class Plugin {
 public:
  explicit Plugin(const std::string& uri) : world_(lilv_world_new()) {
    lilv_world_load_all(world_.get());
    const Node node(lilv_new_uri(world_.get(), uri.c_str()));
    plugin_ = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world_.get()), node.get());
    if (plugin_ == nullptr) {
      throw std::runtime_error("no plugin is called " + uri);
    }
    const std::array<const LV2_Feature*, 2> features = {names_.feature(), nullptr};
    instance_.reset(lilv_plugin_instantiate(plugin_, rateHz, features.data()));
    if (!instance_) {
      throw std::runtime_error(uri + " wants more from a host than it gets here");
    }
    connectPorts();
  }

  void set(const std::string& symbol, float value) {
    const Node node(lilv_new_string(world_.get(), symbol.c_str()));
    const LilvPort* const port = lilv_plugin_get_port_by_symbol(plugin_, node.get());
    if (port == nullptr) {
      throw std::runtime_error("the plugin has no port \"" + symbol + "\"");
    }
    controls_[lilv_port_get_index(plugin_, port)] = value;
  }

  void activate() { lilv_instance_activate(instance_.get()); }

  void run(std::span<float> samples) {
    const std::size_t frames = samples.size() / 2;
    for (std::size_t frame = 0; frame < frames; ++frame) {
      inputs_[0][frame] = samples[2 * frame];
      inputs_[1][frame] = samples[2 * frame + 1];
    }
    lilv_instance_run(instance_.get(), static_cast<std::uint32_t>(frames));
    for (std::size_t frame = 0; frame < frames; ++frame) {
      samples[2 * frame] = outputs_[0][frame];
      samples[2 * frame + 1] = outputs_[1][frame];
    }
  }

 private:
  /// Ports of other kinds, such as those to a user interface, need no connection.
  void connectPorts() {
    const Node audio(lilv_new_uri(world_.get(), LILV_URI_AUDIO_PORT));
    const Node control(lilv_new_uri(world_.get(), LILV_URI_CONTROL_PORT));
    const Node input(lilv_new_uri(world_.get(), LILV_URI_INPUT_PORT));
    const std::uint32_t count = lilv_plugin_get_num_ports(plugin_);
    controls_.resize(count);
    lilv_plugin_get_port_ranges_float(plugin_, nullptr, nullptr, controls_.data());
    for (std::uint32_t index = 0; index < count; ++index) {
      const LilvPort* const port = lilv_plugin_get_port_by_index(plugin_, index);
      if (lilv_port_is_a(plugin_, port, audio.get())) {
        auto& buffers = lilv_port_is_a(plugin_, port, input.get()) ? inputs_ : outputs_;
        buffers.emplace_back(framesPerCallback);
        lilv_instance_connect_port(instance_.get(), index, buffers.back().data());
      } else if (lilv_port_is_a(plugin_, port, control.get())) {
        lilv_instance_connect_port(instance_.get(), index, &controls_[index]);
      }
    }
    if (inputs_.size() != 2 || outputs_.size() != 2) {
      throw std::runtime_error("the plugin is not a stereo filter");
    }
  }

  World world_;
  NameTable names_;
  const LilvPlugin* plugin_ = nullptr;
  Instance instance_;
  std::vector<float> controls_;  // by port
  std::deque<std::vector<float>> inputs_;
  std::deque<std::vector<float>> outputs_;
};

void filter(const std::vector<std::string>& arguments) {
  Plugin plugin(arguments.at(0));
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::size_t equals = arguments[i].find('=');
    plugin.set(arguments[i].substr(0, equals), std::stof(arguments[i].substr(equals + 1)));
  }
  plugin.activate();
  filterStandardInput("orvelle-lv2", framesPerCallback,
                      [&plugin](std::span<float> samples) { plugin.run(samples); });
}

}  // namespace
}  // namespace orvelle

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "Usage: orvelle-lv2 <plugin-uri> [port=value ...] < input > output\n";
    return 2;
  }
  try {
    orvelle::filter({argv + 1, argv + argc});
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::cerr << "orvelle-lv2: " << error.what() << "\n";
    return EXIT_FAILURE;
  }
}
