// A desktop that keeps what was asked of it.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "orvelle/platform/HostServices.h"

namespace orvelle {

/// Outlives the activities that it began.
class RecordingHostServices final : public HostServices {
 public:
  bool isLoginItemEnabled() override { return isLoginItem; }

  std::optional<std::string> registerLoginItem() override { return setLoginItem("register", true); }
  std::optional<std::string> unregisterLoginItem() override {
    return setLoginItem("unregister", false);
  }

  std::unique_ptr<ProcessActivity> beginActivity(const std::string& reason) override {
    return std::make_unique<Activity>(*this, reason);
  }

  void playAlertSound() override { calls.emplace_back("alert"); }

  bool anyWindow(const std::function<bool(const WindowInfo&)>& condition) override {
    return std::ranges::any_of(windows, condition);
  }

  /// How often this call was made.
  [[nodiscard]] std::size_t count(const std::string& call) const {
    return static_cast<std::size_t>(std::ranges::count(calls, call));
  }

  bool isLoginItem = false;
  std::optional<std::string> loginItemFailure;  ///< what registering and unregistering will report
  std::vector<WindowInfo> windows;

  /// In order: "register", "unregister", "begin <reason>", "end <reason>", "alert".
  std::vector<std::string> calls;
  std::vector<std::string> activities;  ///< reasons of those that live

 private:
  class Activity final : public ProcessActivity {
   public:
    Activity(RecordingHostServices& host, std::string reason)
        : host_(host), reason_(std::move(reason)) {
      host_.calls.push_back("begin " + reason_);
      host_.activities.push_back(reason_);
    }
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;
    ~Activity() override {
      host_.calls.push_back("end " + reason_);
      host_.activities.erase(std::ranges::find(host_.activities, reason_));
    }

   private:
    RecordingHostServices& host_;
    std::string reason_;
  };

  std::optional<std::string> setLoginItem(const char* call, bool isEnabled) {
    calls.emplace_back(call);
    if (!loginItemFailure) {
      isLoginItem = isEnabled;
    }
    return loginItemFailure;
  }
};

}  // namespace orvelle
