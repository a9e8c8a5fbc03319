#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace Qel {

// Immutable counted text: copies share one buffer, on whatever threads. Holds any octets, NUL
// included; no encoding is implied. Order and equality are those of the octets as unsigned numbers.
//
// As large as a pointer, and its buffer is one block, since reading a text waits for each of them.
class String {
 public:
  // Random-access position in a text; valid while a copy of the String lives.
  using IteratorConst = const char*;

  constexpr String() noexcept = default;
  String(const char* text) : String(std::string_view(text)) {}
  String(std::string_view text);
  String(const std::string& text) : String(std::string_view(text)) {}
  String(const String& other) noexcept : text_(other.text_) {
    if (text_ != nullptr) text_->references.fetch_add(1, std::memory_order_relaxed);
  }
  String(String&& other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
  ~String() {
    if (text_ != nullptr) release(*text_);
  }
  String& operator=(String other) noexcept {
    std::swap(text_, other.text_);
    return *this;
  }

  std::string_view view() const noexcept {
    return text_ != nullptr ? std::string_view(text_->octets(), text_->bytes) : std::string_view();
  }
  operator std::string_view() const noexcept { return view(); }
  std::string stdString() const { return std::string(view()); }
  // NUL-terminated; a NUL inside the text ends it early for readers of C strings.
  const char* charPtr() const noexcept { return text_ != nullptr ? text_->octets() : kEmpty; }

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
  // What comes before the octets, which end with a NUL that is none of them.
  struct Text {
    char* octets() noexcept { return reinterpret_cast<char*>(this + 1); }

    std::atomic<std::size_t> references;
    std::size_t bytes;
  };

  static Text* newText(std::string_view octets);
  static void release(Text& text) noexcept;

  // One for the whole process, so that all empty texts begin and end at the same place.
  static const char kEmpty[1];

  Text* text_ = nullptr;
};

}  // namespace Qel

template <>
struct std::hash<Qel::String> {
  std::size_t operator()(const Qel::String& text) const noexcept {
    return std::hash<std::string_view>()(text.view());
  }
};
