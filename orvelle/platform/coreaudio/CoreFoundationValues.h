// Core Foundation objects that release themselves, and the few kinds of them that the HAL takes.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace orvelle::coreaudio {

/// Owns one reference: what a function with Create in its name returned, or a property's value.
template <class Reference>
class Owned {
 public:
  Owned() = default;
  explicit Owned(Reference reference) : reference_(reference) {}
  Owned(Owned&& other) noexcept : reference_(std::exchange(other.reference_, nullptr)) {}
  Owned& operator=(Owned&& other) noexcept {
    std::swap(reference_, other.reference_);
    return *this;
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() {
    if (reference_ != nullptr) {
      CFRelease(reference_);
    }
  }

  [[nodiscard]] Reference get() const { return reference_; }
  /// The reference is the caller's from now on.
  [[nodiscard]] Reference release() { return std::exchange(reference_, nullptr); }

 private:
  Reference reference_ = nullptr;
};

Owned<CFStringRef> makeString(const std::string& text);
/// Empty for null, and where it cannot be told in UTF-8.
std::string textOf(CFStringRef string);
Owned<CFNumberRef> makeNumber(std::int32_t number);

/// A dictionary that is filled one entry after the other.
class DictionaryBuilder {
 public:
  void add(const std::string& key, const std::string& text);
  void add(const std::string& key, bool flag);  ///< as the number 1 or 0
  void add(const std::string& key, const std::vector<Owned<CFDictionaryRef>>& dictionaries);
  [[nodiscard]] Owned<CFDictionaryRef> build() const;

 private:
  std::vector<Owned<CFStringRef>> keys_;
  std::vector<Owned<CFTypeRef>> values_;
};

}  // namespace orvelle::coreaudio
