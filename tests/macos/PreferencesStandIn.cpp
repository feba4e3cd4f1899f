// Preferences where there is no macOS, as objects of the audio back end's stand-in: their texts
// tell their kind. Every test also fails that leaves an object behind.
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "orvelle/platform/macos/PreferencesUserDefaults.h"
#include "orvelle/platform/simulated/RecordingConsole.h"
#include "tests/coreaudio/StandIn.h"

using orvelle::coreaudio::newString;
using orvelle::coreaudio::stringText;

namespace {

const std::string kData = "data:";
const std::string kYes = "boolean:yes";

std::map<std::string, std::string>& preferences() {
  static std::map<std::string, std::string> all;
  return all;
}

bool canBeStored = true;

template <class Reference>
Reference newObject(const std::string& text) {
  return reinterpret_cast<Reference>(newString(text));
}

/// Also counts what lives from the beginning to the end.
class LeakCheck final : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& /*test*/) override {
    before_ = orvelle::coreaudio::livingObjects();
  }
  void OnTestEnd(const testing::TestInfo& /*test*/) override {
    EXPECT_EQ(orvelle::coreaudio::livingObjects(), before_) << "objects were left behind";
  }

  std::size_t before_ = 0;
};

const bool isChecking = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new LeakCheck);
  return true;
}();

}  // namespace

extern "C" {

const CFStringRef kCFPreferencesCurrentApplication = newString("this application");
const CFBooleanRef kCFBooleanTrue = newObject<CFBooleanRef>(kYes);
const CFBooleanRef kCFBooleanFalse = newObject<CFBooleanRef>("boolean:no");

CFTypeID CFGetTypeID(CFTypeRef object) {
  return static_cast<CFTypeID>(stringText(object)[0]);
}

Boolean CFEqual(CFTypeRef one, CFTypeRef other) {
  return stringText(one) == stringText(other) ? 1 : 0;
}

CFTypeID CFDataGetTypeID() {
  return static_cast<CFTypeID>(kData[0]);
}

CFDataRef CFDataCreate(CFAllocatorRef /*allocator*/, const UInt8* bytes, CFIndex length) {
  return newObject<CFDataRef>(
      kData + std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)));
}

CFIndex CFDataGetLength(CFDataRef data) {
  return static_cast<CFIndex>(stringText(data).size() - kData.size());
}

void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* buffer) {
  const std::string bytes = stringText(data).substr(kData.size());
  std::memcpy(buffer, bytes.data() + range.location, static_cast<std::size_t>(range.length));
}

CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef /*application*/) {
  const auto found = preferences().find(stringText(key));
  return found == preferences().end() ? nullptr : newString(found->second);
}

Boolean CFPreferencesGetAppBooleanValue(CFStringRef key, CFStringRef /*application*/,
                                        Boolean* /*keyExistsAndHasValidFormat*/) {
  const auto found = preferences().find(stringText(key));
  return found != preferences().end() && found->second == kYes ? 1 : 0;
}

void CFPreferencesSetAppValue(CFStringRef key, CFPropertyListRef value,
                              CFStringRef /*application*/) {
  if (value == nullptr) {
    preferences().erase(stringText(key));
  } else {
    preferences()[stringText(key)] = stringText(value);
  }
}

Boolean CFPreferencesAppSynchronize(CFStringRef /*application*/) {
  return canBeStored ? 1 : 0;
}

}  // extern "C"

namespace orvelle {
namespace {

// Would catch settings that are lost without a word, and words at every step of a slider.
TEST(PreferencesStandIn, TellsOnceThatSettingsAreNotStored) {
  RecordingConsole console;
  PreferencesUserDefaults defaults(console);
  canBeStored = false;
  defaults.setBoolean("two", true);
  defaults.setBoolean("two", false);
  canBeStored = true;
  EXPECT_EQ(console.errors, "orvelle: the settings cannot be stored among your preferences.\n");
}

}  // namespace
}  // namespace orvelle
