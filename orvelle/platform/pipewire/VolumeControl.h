// The one volume control and the mute switch of a device, whatever the session keeps behind them.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "orvelle/platform/AudioTypes.h"
#include "orvelle/platform/pipewire/Session.h"

namespace orvelle::pipewire {

/// Where a sound card controls the volume it is written there, else on the node. What is written is
/// temporary: the session manager is kept from storing it, so that no crash can leave a device at
/// full volume for the next login. Session managers from 0.5 on cannot be kept from that where a
/// node has no card behind it.
///
/// Session lock held in every call.
class VolumeControl {
 public:
  /// `keepsStored`: what the session manager has stored stays, whatever is written.
  VolumeControl(Session& session, bool keepsStored)
      : session_(session), keepsStored_(keepsStored) {}

  /// Later servers keep the volume of a node that has never run to themselves, and report another
  /// one, until it first runs. Where that may be so, lets it run in silence for some cycles. To be
  /// called before every other call, which would otherwise take the wrong volume for the user's.
  /// Waits; the node may be gone then.
  void learn(const Node& node);

  /// Nothing for nodes without a volume.
  [[nodiscard]] std::optional<ChannelLevel> level(const Node& node) const;

  /// Scales all channels alike. A scalar that was read before the last change brings the very
  /// values of then back. Waits for the session to confirm.
  OSStatus setScalar(const Node& node, float scalar);
  OSStatus setMute(const Node& node, bool mute);

  /// Another server knows nothing of the nodes of the former one, and numbers them anew.
  void forgetServer();
  /// Forgets nodes that are gone: their ids are used anew. To be called after every change of the
  /// session's objects.
  void forgetGone();

 private:
  struct Memory {
    /// From before the last change of the scalar.
    std::optional<ChannelLevel> before;
    /// The last proportions that could be heard.
    std::vector<float> balance;
    /// What the session manager is to store: the level that our first change replaced.
    std::optional<ChannelLevel> stored;
  };
  /// A change that the session has taken but does not report yet, and what it reports instead.
  struct Unreported {
    ChannelLevel requested;
    ChannelLevel reported;
  };

  void apply(const Node& node, const ChannelLevel& wanted);
  void keepStored(const Node& node);
  [[nodiscard]] std::optional<ChannelLevel> reportedLevel(const Node& node) const;

  Session& session_;
  const bool keepsStored_;
  std::map<std::string, Memory, std::less<>> memories_;  // by node name: survives a replug
  std::map<std::uint32_t, Unreported> unreported_;       // by node id
  std::set<std::string, std::less<>> learnt_;            // nodes by serial number: tried once
};

}  // namespace orvelle::pipewire
