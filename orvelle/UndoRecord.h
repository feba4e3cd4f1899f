// What has to be put back in the system when this program can no longer do it itself.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "orvelle/OutputLevel.h"

namespace orvelle {

/// The debts of one engine. Empty when everything is as it was.
struct UndoRecord {
  struct DefaultOutput {
    std::string former;  ///< uid of the default output before the start
    std::string taken;   ///< uid of the one that has been put in its place

    friend bool operator==(const DefaultOutput&, const DefaultOutput&) = default;
  };

  std::optional<DefaultOutput> defaultOutput;
  /// By uid: outputs that stand, or are about to stand, at full volume and not muted, with what
  /// they had before.
  std::map<std::string, OutputLevel> raisedOutputs;
  /// Whether applications have been taken off their normal path.
  bool hasTaps = false;

  [[nodiscard]] bool isEmpty() const { return !defaultOutput && raisedOutputs.empty() && !hasTaps; }
  friend bool operator==(const UndoRecord&, const UndoRecord&) = default;
};

/// Records as a journal keeps them: by the engine that they are the debts of.
using UndoRecords = std::map<std::string, UndoRecord>;

/// A text of lines that `decodeUndo` reads back exactly.
std::string encodeUndo(const UndoRecords& records);
/// Absent for a text that is not a whole one: better nothing than half of it.
std::optional<UndoRecords> decodeUndo(std::string_view text);

}  // namespace orvelle
