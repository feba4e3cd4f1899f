// What is remembered of the settings: how it is written down, and what is made of damaged data.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "orvelle/SettingsStore.h"
#include "orvelle/platform/simulated/MemoryUserDefaults.h"

namespace orvelle {
namespace {

using namespace std::string_literals;

const std::string anyText = "\"quote\" \\ / \n\t\x01 \0 [é] \U0001F50A {,;=%} @"s;

// Would catch a number that is rounded on its way through the file, and a name that JSON mangles.
TEST(DeviceSettingsTest, AreReadBackExactlyAsTheyWereWritten) {
  using Limits = std::numeric_limits<double>;
  const std::vector<double> numbers = {
      0.1,           1.0 / 3.0,         -12.000000000000002, 5.0, Limits::denorm_min(),
      Limits::max(), 9007199254740993.0};
  const DeviceStore store = {{anyText, {7.999999999999999, true, anyText, true, 0.1, numbers}},
                             {"", {0.0, false, "", false, 1e-300, std::vector<double>{}}},
                             {"old", {}}};
  EXPECT_EQ(decodeDeviceStore(encodeDeviceStore(store).value()), store);
  EXPECT_EQ(decodeDeviceStore(encodeDeviceStore({}).value()), DeviceStore{});
  const UserPresets presets = {{anyText, numbers}, {"none", {}}};
  EXPECT_EQ(decodeUserPresets(encodeUserPresets(presets).value()), presets);
}

// Would catch null or nothing in the place of a number, which no later start could read.
TEST(DeviceSettingsTest, AreNotWrittenWhereJsonHasNoNumber) {
  for (const double number : {std::nan(""), std::numeric_limits<double>::infinity()}) {
    EXPECT_FALSE(encodeDeviceStore({{"a", {}}, {"b", {.boost = number, .customGains = {}}}}));
    EXPECT_FALSE(encodeDeviceStore({{"a", {.spatialWidth = number, .customGains = {}}}}));
    EXPECT_FALSE(encodeDeviceStore({{"a", {.customGains = std::vector{0.0, number}}}}));
    EXPECT_FALSE(encodeUserPresets({{"a", {0.0, number}}}));
  }
}

// Would catch a record that is taken for a whole one with a default in the place of what is wrong.
TEST(DeviceSettingsTest, AreWholeOrNothing) {
  const auto recordWith = [](std::string_view part, std::string_view other) {
    std::string json =
        R"({"good":{"boost":2,"eqEnabled":false,"eqPreset":"","spatialEnabled":true,)"
        R"("spatialWidth":1},"tested":{"boost":2,"eqEnabled":false,"eqPreset":"Flat",)"
        R"("spatialEnabled":true,"spatialWidth":1.5,"customGains":[0,1.5],"later":{}}})";
    return json.replace(json.rfind(part), part.size(), other);
  };
  ASSERT_EQ(decodeDeviceStore(recordWith("}}}", "}}}")).value().at("tested").customGains,
            std::vector({0.0, 1.5}));
  EXPECT_FALSE(decodeDeviceStore(recordWith("[0,1.5]", "null")).value().at("tested").customGains);

  const std::pair<const char*, std::string> damages[] = {
      {R"("boost":2,)", ""},
      {R"("eqEnabled")", R"("eqenabled")"},
      {"2,", "true,"},
      {"2,", "\"2\","},
      {"2,", "1e999,"},
      {"2,", "null,"},
      {"false", "0"},
      {"true", "\"true\""},
      {"\"Flat\"", "1"},
      {"\"Flat\"", "null"},
      {"Flat", "\xFF"},
      {"Flat", "\xED\xA0\x80"},
      {"Flat", "\\ud83d"},
      {"tested", "\xC3"},
      {"tested", "\\udd0a"},
      {"1.5,\"c", "[1.5],\"c"},
      {"[0,1.5]", "[0,\"1.5\"]"},
      {"[0,1.5]", "[0,null]"},
      {"[0,1.5]", "{}"},
      {"[0,1.5]", "1.5"},
      {"}}}", "}}} x"},
      {"}}}", "}}}}"},
      {"}}}", "}}}\0"s},
      {"}}}", "}}"},
      {"\"later\":{}}", "\"l\":1},\"x\":[]"},
  };
  for (const auto& [part, other] : damages) {
    EXPECT_FALSE(decodeDeviceStore(recordWith(part, other))) << part << " -> " << other;
  }
  for (const char* json : {"", "null", "[]", "2", "{\"a\":[0,true]}", "{\"a\":0}", "{\"a\":[0]"}) {
    EXPECT_FALSE(decodeUserPresets(json)) << json;
  }
}

// Would catch presets that are lost without a copy, a copy of sound data, and a failure to encode
// that empties the store.
TEST(SettingsStoreTest, ReportsWhatCannotBeDecodedAndKeepsWhatCannotBeReplaced) {
  MemoryUserDefaults defaults;
  SettingsStore store(defaults);
  EXPECT_FALSE(store.loadStore());
  store.saveStore({{"usb", {}}});
  store.saveStore({{"usb", {.boost = std::nan(""), .customGains = {}}}});
  EXPECT_EQ(store.loadStore(), (DeviceStore{{"usb", {}}}));
  store.saveIdleStandby(true);
  EXPECT_TRUE(store.loadIdleStandby());
  EXPECT_EQ(defaults.damagedKeys, std::vector<std::string>{});

  defaults.entries["userPresets.v1"] = "{\"mine\":[0,";
  EXPECT_FALSE(store.loadUserPresets());
  EXPECT_EQ(defaults.damagedKeys, std::vector<std::string>{"userPresets.v1"});
}

}  // namespace
}  // namespace orvelle
