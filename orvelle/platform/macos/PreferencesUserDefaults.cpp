#include "orvelle/platform/macos/PreferencesUserDefaults.h"

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

#include "orvelle/platform/coreaudio/CoreFoundationValues.h"

namespace orvelle {

namespace {

using coreaudio::makeString;
using coreaudio::Owned;

constexpr int kMostCopies = 9;

Owned<CFPropertyListRef> valueOf(const std::string& key) {
  return Owned(CFPreferencesCopyAppValue(makeString(key).get(), kCFPreferencesCurrentApplication));
}

/// Null removes the entry. In this process at once; the server hears of it when it is synchronised.
void set(const std::string& key, CFPropertyListRef value) {
  CFPreferencesSetAppValue(makeString(key).get(), value, kCFPreferencesCurrentApplication);
}

/// Damage that comes back again and again is kept once. When many kinds of it have been kept, the
/// first ones are those that tell something.
void copyAside(const std::string& key, CFPropertyListRef value) {
  for (int number = 1; number <= kMostCopies; ++number) {
    const std::string copy = key + ".damaged-" + std::to_string(number);
    const Owned<CFPropertyListRef> older = valueOf(copy);
    if (older.get() == nullptr) {
      set(copy, value);
      return;
    }
    if (CFEqual(older.get(), value) != 0) {
      return;
    }
  }
}

}  // namespace

std::optional<std::string> PreferencesUserDefaults::data(const std::string& key) {
  const Owned<CFPropertyListRef> value = valueOf(key);
  if (value.get() == nullptr || CFGetTypeID(value.get()) != CFDataGetTypeID()) {
    return std::nullopt;
  }
  const auto* const data = static_cast<CFDataRef>(value.get());
  std::string bytes(static_cast<std::size_t>(CFDataGetLength(data)), '\0');
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes of the same text.
  CFDataGetBytes(data, CFRangeMake(0, CFDataGetLength(data)),
                 reinterpret_cast<UInt8*>(bytes.data()));
  return bytes;
}

void PreferencesUserDefaults::setData(const std::string& key, const std::string& bytes) {
  putDamagedAside();
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes of the same text.
  const auto* const start = reinterpret_cast<const UInt8*>(bytes.data());
  const Owned data(CFDataCreate(kCFAllocatorDefault, start, static_cast<CFIndex>(bytes.size())));
  set(key, data.get());
  store();
}

bool PreferencesUserDefaults::boolean(const std::string& key) {
  return CFPreferencesGetAppBooleanValue(makeString(key).get(), kCFPreferencesCurrentApplication,
                                         nullptr) != 0;
}

void PreferencesUserDefaults::setBoolean(const std::string& key, bool value) {
  putDamagedAside();
  set(key, value ? kCFBooleanTrue : kCFBooleanFalse);
  store();
}

void PreferencesUserDefaults::keepDamagedCopy(const std::string& key) {
  damagedKeys_.insert(key);
}

void PreferencesUserDefaults::putDamagedAside() {
  for (const std::string& key : std::exchange(damagedKeys_, {})) {
    if (const Owned<CFPropertyListRef> value = valueOf(key); value.get() != nullptr) {
      copyAside(key, value.get());
      set(key, nullptr);
    }
  }
}

/// Without it, the last values before the end of the process could be lost. It does not wait for
/// the disk.
void PreferencesUserDefaults::store() {
  if (CFPreferencesAppSynchronize(kCFPreferencesCurrentApplication) == 0 &&
      !std::exchange(hasReported_, true)) {
    console_.printError("orvelle: the settings cannot be stored among your preferences.\n");
  }
}

std::unique_ptr<UserDefaults> openUserDefaults(Console& console) {
  return std::make_unique<PreferencesUserDefaults>(console);
}

}  // namespace orvelle
