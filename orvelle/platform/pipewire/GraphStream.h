// A node of ours in the session's graph: takes stereo from one node, gives stereo to another.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "orvelle/platform/pipewire/Session.h"
#include "orvelle/platform/pipewire/StereoCycle.h"

struct pw_filter;
struct spa_hook;
struct spa_io_position;

namespace orvelle::pipewire {

/// What a stream joins and how it appears in the session.
struct GraphStreamSettings {
  std::string name;         ///< node.name
  std::string description;  ///< node.description
  /// Names of the nodes; empty for none. A sink is read at its monitor.
  std::string inputNode;
  std::string outputNode;
  /// Rate in Hz that the graph is to run at while the stream is there; 0 leaves it alone.
  std::int32_t forcedRate = 0;
};

/// Runs an I/O block in the graph's real-time cycle, between the front channels of two nodes (of a
/// mono node its one channel). The links are ours, are never passive, and are made again whenever
/// one of the nodes comes back.
///
/// Session lock held in every call, the destructor included.
class GraphStream {
 public:
  GraphStream(Session& session, GraphStreamSettings settings, IOBlock block);
  GraphStream(const GraphStream&) = delete;
  GraphStream& operator=(const GraphStream&) = delete;
  /// When it has returned, the block does not run any more.
  ~GraphStream();

  /// False when the session refused the node. Wait for `isLinked` before relying on sound.
  [[nodiscard]] bool isConnected() const { return filter_ != nullptr; }
  [[nodiscard]] bool isLinked() const;
  /// Linear factors on what the block plays.
  void setOutputFactors(float left, float right) { cycle_.setOutputFactors(left, right); }
  /// Makes the links that are missing and drops those that nobody wants. To be called after every
  /// change of the session's objects.
  void linkUp();

 private:
  enum PortIndex : std::uint8_t { inputLeft, inputRight, outputLeft, outputRight, outputMono };
  static constexpr std::size_t kPorts = 5;
  struct OwnLink;
  /// Output port and input port.
  using PortPair = std::pair<std::uint32_t, std::uint32_t>;

  static void onProcess(void* data, spa_io_position* position);
  bool connect();
  void* addPort(PortIndex index, const char* name, const char* channel);
  [[nodiscard]] std::optional<std::uint32_t> ownPort(PortIndex index) const;
  [[nodiscard]] std::vector<PortPair> wantedLinks() const;
  void makeLink(const PortPair& ports);

  Session& session_;
  GraphStreamSettings settings_;
  StereoCycle cycle_;
  pw_filter* filter_ = nullptr;
  std::unique_ptr<spa_hook> hook_;
  std::array<void*, kPorts> ports_{};
  std::map<PortPair, std::unique_ptr<OwnLink>> links_;
};

}  // namespace orvelle::pipewire
