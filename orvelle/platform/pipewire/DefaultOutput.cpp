#include "orvelle/platform/pipewire/DefaultOutput.h"

#include <spa/utils/json.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

namespace orvelle::pipewire {

namespace {

constexpr const char* kMetadata = "default";
constexpr const char* kEffectiveKey = "default.audio.sink";
/// Only this one is written: the other is the session manager's, and would outlive a crash.
constexpr const char* kConfiguredKey = "default.configured.audio.sink";
/// What was configured before the loopback, for whoever has to put it back when we cannot. Absent:
/// nothing.
constexpr const char* kFormerKey = "app.orvelle.former.configured.audio.sink";
/// What is configured for a moment only, on the way back to nothing.
constexpr const char* kPassingKey = "app.orvelle.passing.configured.audio.sink";
/// Written and read back: everything that was asked before has then been done.
constexpr const char* kFenceKey = "app.orvelle.fence";
constexpr const char* kJSONType = "Spa:String:JSON";

/// Some ten times what it takes. A session without a manager never answers.
constexpr double kMoveSeconds = 0.15;
/// How long the session manager may take to change its mind.
constexpr double kSecondThoughtSeconds = 0.03;

/// From { "name": "..." }; empty when there is none.
std::string nameFromJSON(const std::string& json) {
  spa_json top{};
  spa_json object{};
  spa_json_init(&top, json.c_str(), json.size());
  if (spa_json_enter_object(&top, &object) <= 0) {
    return {};
  }
  std::array<char, 1024> text{};
  while (spa_json_get_string(&object, text.data(), static_cast<int>(text.size())) > 0) {
    const bool isName = std::string_view(text.data()) == "name";
    if (spa_json_get_string(&object, text.data(), static_cast<int>(text.size())) > 0 && isName) {
      return text.data();
    }
  }
  return {};
}

std::string jsonFromName(std::string_view name) {
  std::vector<char> text(6 * name.size() + 3);  // every character may become \uXXXX
  spa_json_encode_string(text.data(), static_cast<int>(text.size()), std::string(name).c_str());
  return "{ \"name\": " + std::string(text.data()) + " }";
}

int sessionPriority(const Node& node) {
  const std::string_view text = valueOf(node.properties, "priority.session");
  int priority = 0;
  std::from_chars(text.data(), text.data() + text.size(), priority);
  return priority;
}

bool canBeDefault(const Node& node) {
  return node.mediaClass() == "Audio/Sink" || node.mediaClass() == "Audio/Duplex";
}

}  // namespace

std::string DefaultOutput::effective() const {
  return nameFromJSON(session_.metadataValue(kMetadata, 0, kEffectiveKey).value_or(""));
}

std::string DefaultOutput::configured() const {
  return nameFromJSON(session_.metadataValue(kMetadata, 0, kConfiguredKey).value_or(""));
}

bool DefaultOutput::configure(std::string_view name) {
  return session_.setMetadata(kMetadata, 0, kConfiguredKey, kJSONType, jsonFromName(name).c_str());
}

bool DefaultOutput::moveToLoopback(std::string_view loopback) {
  const std::string former = configured();
  if (!formerlyConfigured_) {
    // The loopback's own name is what a crash left behind, not a wish of the user's.
    formerlyConfigured_ = former == loopback ? "" : former;
    note(kFormerKey, *formerlyConfigured_);
  }
  return move(loopback);
}

bool DefaultOutput::moveTo(std::string_view output) {
  const bool wasUnconfigured = formerlyConfigured_.has_value() && formerlyConfigured_->empty();
  const bool isPassing = wasUnconfigured && wouldStayOn(output);
  formerlyConfigured_.reset();
  if (!isPassing) {
    note(kFormerKey, "");
    return move(output);
  }
  note(kPassingKey, output);
  note(kFormerKey, "");
  const bool isTold = move(output);
  if (isTold) {
    unconfigure(output);
  }
  session_.setMetadata(kMetadata, 0, kPassingKey, nullptr, nullptr);
  return isTold;
}

void DefaultOutput::noteAgain() {
  if (formerlyConfigured_) {
    note(kFormerKey, *formerlyConfigured_);
  }
}

/// Empty: no note.
void DefaultOutput::note(const char* key, std::string_view name) {
  if (!name.empty() || session_.metadataEntry(kMetadata, 0, key)) {
    session_.setMetadata(kMetadata, 0, key, name.empty() ? nullptr : kJSONType,
                         name.empty() ? nullptr : jsonFromName(name).c_str());
  }
}

std::string DefaultOutput::noted(const char* key) const {
  return nameFromJSON(session_.metadataValue(kMetadata, 0, key).value_or(""));
}

void DefaultOutput::awaitPending() {
  note(kFenceKey, "passed");
  session_.waitUntil([&] { return !noted(kFenceKey).empty(); }, kMoveSeconds);
  session_.setMetadata(kMetadata, 0, kFenceKey, nullptr, nullptr);
}

void DefaultOutput::releaseAbandoned(std::string_view loopback) {
  if (session_.isOwned(loopback)) {
    return;
  }
  const std::string passing = noted(kPassingKey);
  note(kPassingKey, "");
  if (!passing.empty() && configured() == passing) {
    unconfigure(passing);
  }
  if (configured() != loopback) {
    return;
  }
  const std::string former = noted(kFormerKey);
  if (former.empty()) {
    session_.setMetadata(kMetadata, 0, kConfiguredKey, nullptr, nullptr);
  } else {
    configure(former);
  }
  note(kFormerKey, "");
  session_.waitUntil([&] { return effective() != loopback; }, kMoveSeconds);
}

/// Session managers up to 0.4 stay with what was configured last. Later ones, which can be told by
/// the settings that they publish, go to the output of the highest priority at once: music would
/// be heard there until the way back is found.
bool DefaultOutput::wouldStayOn(std::string_view output) const {
  if (!session_.hasMetadata("sm-settings")) {
    return true;
  }
  const Node* wanted = session_.nodeNamed(output);
  return wanted != nullptr && std::ranges::all_of(session_.nodes(), [&](const Node* rival) {
           return rival == wanted || !canBeDefault(*rival) ||
                  sessionPriority(*rival) < sessionPriority(*wanted);
         });
}

/// Where the session manager chooses another output after all, `output` is configured again.
void DefaultOutput::unconfigure(std::string_view output) {
  session_.setMetadata(kMetadata, 0, kConfiguredKey, nullptr, nullptr);
  if (session_.waitUntil([&] { return effective() != output; }, kSecondThoughtSeconds)) {
    move(output);
  }
}

/// Streams that were sent to a certain output stay there whatever the default is.
bool DefaultOutput::streamsHaveLeft(std::string_view output) const {
  const Node* node = session_.nodeNamed(output);
  if (node == nullptr) {
    return true;
  }
  return std::ranges::none_of(session_.linksInto(node->id), [&](const Link& link) {
    const Node* stream = session_.node(link.outputNode);
    if (stream == nullptr || stream->mediaClass() != "Stream/Output/Audio") {
      return false;
    }
    const auto isPinned = [&](const char* key) {
      return !valueOf(stream->properties, key).empty() ||
             session_.metadataValue(kMetadata, stream->id, key).has_value();
    };
    return !isPinned("target.object") && !isPinned("target.node") && !isPinned("node.target");
  });
}

/// Whoever sets the default output goes on to change volumes: streams must have moved by then, or
/// they would be heard through the output that they are leaving.
bool DefaultOutput::move(std::string_view to) {
  const std::string from = effective();
  if (!configure(to)) {
    return false;
  }
  session_.waitUntil([&] { return effective() == to && (from == to || streamsHaveLeft(from)); },
                     kMoveSeconds);
  return true;
}

}  // namespace orvelle::pipewire
