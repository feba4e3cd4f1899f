// Settings among the preferences of macOS: there on the real ones, elsewhere on a stand-in.
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "orvelle/platform/coreaudio/CoreFoundationValues.h"
#include "orvelle/platform/macos/PreferencesUserDefaults.h"
#include "orvelle/platform/simulated/RecordingConsole.h"

namespace orvelle {
namespace {

using namespace std::string_literals;
using coreaudio::makeString;

class PreferencesTest : public testing::Test {
 protected:
  PreferencesTest() { forgetAll(); }
  ~PreferencesTest() override { forgetAll(); }

  /// The domain is that of this test's program, and nobody else's.
  static void forgetAll() {
    for (const char* key : {"one", "one.damaged-1", "one.damaged-2", "one.damaged-3", "two"}) {
      CFPreferencesSetAppValue(makeString(key).get(), nullptr, kCFPreferencesCurrentApplication);
    }
    CFPreferencesAppSynchronize(kCFPreferencesCurrentApplication);
  }

  std::optional<std::string> kept(const std::string& key) {
    return PreferencesUserDefaults(console_).data(key);
  }

  RecordingConsole console_;
  PreferencesUserDefaults defaults_{console_};
};

// Would catch bytes that are changed or cut short, and a value that only this object knows.
TEST_F(PreferencesTest, KeepsBytesExactly) {
  for (const std::string& bytes :
       {R"({"é":[1,-2.5]})"s, ""s, "\0\xFF\n\0"s, std::string(100'000, 'x')}) {
    defaults_.setData("one", bytes);
    EXPECT_EQ(kept("one"), bytes);
  }
  defaults_.setBoolean("two", true);
  EXPECT_TRUE(PreferencesUserDefaults(console_).boolean("two"));
  defaults_.setBoolean("two", false);
  EXPECT_FALSE(PreferencesUserDefaults(console_).boolean("two"));
}

// Would catch a crash over a value of another kind, as a person may have put it there.
TEST_F(PreferencesTest, TakesNothingForSomethingElse) {
  EXPECT_FALSE(defaults_.data("one"));
  EXPECT_FALSE(defaults_.boolean("two"));
  defaults_.setBoolean("one", true);
  defaults_.setData("two", "true");
  EXPECT_FALSE(defaults_.data("one"));
  EXPECT_FALSE(defaults_.boolean("two"));
}

// Would catch damaged data that is overwritten before there is a copy, that is copied without need,
// or that comes back, and the same damage that fills the preferences.
TEST_F(PreferencesTest, PutsDamageAside) {
  for (const std::string damage : {"first", "first", "second"}) {
    defaults_.setData("one", damage);
    defaults_.keepDamagedCopy("one");
    EXPECT_EQ(kept("one"), damage);
    defaults_.setBoolean("two", true);
    EXPECT_FALSE(kept("one"));
  }
  EXPECT_EQ(kept("one.damaged-1"), "first");
  EXPECT_EQ(kept("one.damaged-2"), "second");
  EXPECT_FALSE(kept("one.damaged-3"));
  defaults_.setData("one", "sound");
  EXPECT_EQ(kept("one"), "sound");
}

}  // namespace
}  // namespace orvelle
