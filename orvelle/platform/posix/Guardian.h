// The process that puts things right when this one cannot.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace orvelle {

/// Runs the guardian program next to this one for as long as there is something to guard. It learns
/// of this process's end from the socket between them, which the system closes in every case.
///
/// One thread.
class Guardian {
 public:
  /// `journal`: the file that it clears when it has put things right. To be made before the
  /// connection to the audio server: a dying process closes what it has in the order of the
  /// descriptors' numbers, and the guardian should hear of it first.
  explicit Guardian(std::filesystem::path journal);
  Guardian(const Guardian&) = delete;
  Guardian& operator=(const Guardian&) = delete;
  /// The end of this process: what it was told last holds.
  ~Guardian();

  /// Starts it where it does not run, and returns when it is ready. Before the journal is written:
  /// it is then there for it, even if this process ends before it can tell. False when it cannot be
  /// started.
  bool attend();
  /// Tells it what is to be put back.
  void tell(std::string_view records) const;
  /// Tells it that there is nothing to guard any more: it ends.
  void dismiss(std::string_view noRecords);

 private:
  bool start();
  void waitUntilReady() const;
  void hangUp();
  [[nodiscard]] bool isRunning();

  const std::filesystem::path journal_;
  pid_t process_ = 0;
  /// Its number stays the same; nothing is behind it while no guardian runs.
  const int socket_;
  bool isConnected_ = false;
};

/// Where the guardian program is.
std::filesystem::path guardianProgram();

}  // namespace orvelle
