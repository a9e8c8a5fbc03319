#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace Qel {

// Immutable counted text: copies share one buffer. Holds any octets, NUL included; no encoding is
// implied. Order and equality are those of the octets as unsigned numbers.
class String {
 public:
  // Random-access position in a text; valid while a copy of the String lives.
  using IteratorConst = const char*;

  String() = default;
  String(const char* text) : String(std::string_view(text)) {}
  String(std::string_view text);
  String(const std::string& text) : String(std::string_view(text)) {}

  std::string_view view() const noexcept { return text_ ? *text_ : std::string_view(); }
  operator std::string_view() const noexcept { return view(); }
  std::string stdString() const { return std::string(view()); }
  // NUL-terminated; a NUL inside the text ends it early for readers of C strings.
  const char* charPtr() const noexcept { return text_ ? text_->c_str() : kEmpty; }

  std::size_t bytes() const noexcept { return view().size(); }
  bool empty() const noexcept { return bytes() == 0; }

  IteratorConst begin() const noexcept { return charPtr(); }
  IteratorConst end() const noexcept { return charPtr() + bytes(); }

  friend bool operator==(const String& a, const String& b) noexcept { return a.view() == b.view(); }
  friend bool operator==(const String& a, const char* b) noexcept { return a.view() == b; }
  friend std::strong_ordering operator<=>(const String& a, const String& b) noexcept {
    return a.view() <=> b.view();
  }
  friend String operator+(const String& a, const String& b);
  friend std::ostream& operator<<(std::ostream& out, const String& text);

 private:
  // One for the whole process, so that all empty texts begin and end at the same place.
  static const char kEmpty[1];

  std::shared_ptr<const std::string> text_;
};

}  // namespace Qel

template <>
struct std::hash<Qel::String> {
  std::size_t operator()(const Qel::String& text) const noexcept {
    return std::hash<std::string_view>()(text.view());
  }
};
