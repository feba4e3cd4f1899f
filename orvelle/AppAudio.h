// One row of the per-application volume list.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "orvelle/ProcessTapEngine.h"

namespace orvelle {

/// An application that plays, the volume that the user gave it, and the engine that makes it
/// audible. The application is left alone until its volume first moves away from 1.0; from then on
/// it runs through its engine, also at 1.0. Main thread.
class AppAudio {
 public:
  /// uid of the output to play to; nothing where there is none.
  using OutputProvider = std::function<std::optional<std::string>()>;

  /// `pid` is the application's process and the entry's identity, `objectID` its audio process
  /// object. `outputProvider` is asked each time a tap is started.
  AppAudio(std::int32_t pid, AudioObjectID objectID, std::string name, const EngineHost& host,
           OutputProvider outputProvider);

  [[nodiscard]] double volume() const { return volume_; }
  /// Linear factor, taken as it stands. Where the tap does not start, the volume is kept and the
  /// next change tries again.
  void setVolume(double volume);
  /// Has a tap that runs play to the output that is the right one now. Where there is none it stays
  /// as it is; where the tap does not start, the application has its normal path back.
  void reroute();

  const std::int32_t id;
  const AudioObjectID objectID;
  const std::string name;
  /// Not stopped at the entry's end: whoever drops the entry stops it first.
  ProcessTapEngine engine;
  /// Told after each write of the volume.
  std::function<void()> onVolumeChanged;

 private:
  void apply();
  void startEngine(const std::string& outputUID);

  double volume_ = 1.0;
  OutputProvider outputProvider_;
};

}  // namespace orvelle
