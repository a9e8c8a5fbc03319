#include "Kavra/Json/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "Kavra/Json/Base64.h"
#include "Kavra/Json/Reader.h"
#include "Qel/Escape.h"
#include "Qel/Utf8.h"

namespace Kavra::Json {

namespace {

constexpr std::size_t kIndent = 2;

// Writes one document. Our own because lines are written with blanks, as people read them, and
// because the library's ordered objects look for each new member among all that are there.
// `depth_` is the number of lists and maps around the present place.
class Writer {
 public:
  Writer(Form form, std::size_t depth) : form_(form), depth_(depth) {}

  std::string take() { return std::move(text_); }

  void write(const Qel::Document& value) {
    if (const auto* map = value.as<Qel::Document::Map>()) {
      writeMap(*map);
    } else if (const auto* list = value.as<Qel::Document::List>()) {
      writeList(*list);
    } else if (const auto* text = value.as<Qel::String>()) {
      writeText(*text);
    } else {
      text_ += scalar(value);
    }
  }

 private:
  static std::string scalar(const Qel::Document& value) {
    if (const auto* boolean = value.as<bool>()) return *boolean ? "true" : "false";
    if (const auto* integer = value.as<std::int64_t>()) return std::to_string(*integer);
    if (const auto* natural = value.as<std::uint64_t>()) return std::to_string(*natural);
    const auto* number = value.as<double>();
    if (number == nullptr) return "null";
    if (!std::isfinite(*number)) throw Exception("a number is not finite");
    return nlohmann::json(*number).dump();
  }

  // Most texts stand as they are. The library escapes the others, but sets out anew for each.
  void writeQuoted(std::string_view text) {
    const bool isPlain = std::none_of(text.begin(), text.end(), [](char octet) {
      return static_cast<unsigned char>(octet) < ' ' || octet == '"' || octet == '\\';
    });
    if (isPlain) {
      text_.append(1, '"').append(text).append(1, '"');
    } else {
      text_ += nlohmann::json(text).dump();
    }
  }

  void writeText(const Qel::String& text) {
    if (Qel::isUtf8(text.view())) {
      writeQuoted(text.view());
    } else {
      text_ += R"({"base64": ")" + toBase64(text.view()) + "\"}";
    }
  }

  void writeMap(const Qel::Document::Map& map) {
    text_ += '{';
    ++depth_;
    const char* separator = "";
    for (const auto& [name, value] : map) {
      if (!Qel::isUtf8(name.view())) throw Exception("a member name is not UTF-8");
      newItem(separator);
      separator = ",";
      writeQuoted(name.view());
      text_ += ": ";
      write(value);
    }
    --depth_;
    close(map.empty(), '}');
  }

  void writeList(const Qel::Document::List& list) {
    text_ += '[';
    ++depth_;
    const char* separator = "";
    for (const Qel::Document& value : list) {
      newItem(separator);
      separator = ",";
      write(value);
    }
    --depth_;
    close(list.empty(), ']');
  }

  void newItem(const char* separator) {
    text_ += separator;
    if (form_ == Form::pretty) {
      newLine();
    } else if (*separator != '\0') {
      text_ += ' ';
    }
  }

  void close(bool isEmpty, char bracket) {
    if (form_ == Form::pretty && !isEmpty) newLine();
    text_ += bracket;
  }

  void newLine() {
    text_ += '\n';
    text_.append(depth_ * kIndent, ' ');
  }

  const Form form_;
  std::size_t depth_;
  std::string text_;
};

// Of well-formed UTF-8.
std::string withoutControls(std::string_view json) {
  std::string spelt;
  spelt.reserve(json.size());
  while (!json.empty()) {
    const std::string_view character = json.substr(0, Qel::utf8CharacterSize(json));
    const char32_t point = Qel::utf8CodePoint(character);
    // Controls stand in texts alone, where each may be spelt; only line ends stand between them.
    if (character != "\n" && Qel::isControl(point)) {
      spelt += fmt::format("\\u{:04x}", static_cast<unsigned>(point));
    } else {
      spelt += character;
    }
    json.remove_prefix(character.size());
  }
  return spelt;
}

}  // namespace

Exception::~Exception() = default;

Qel::Document read(std::string_view text) {
  Reader reader;
  if (!nlohmann::json::sax_parse(text, &reader)) throw Exception(reader.problem());
  return reader.takeDocument();
}

std::string write(const Qel::Document& document, Form form, std::size_t levels) {
  Writer writer(form, levels);
  writer.write(document);
  return writer.take();
}

std::string writePrintable(const Qel::Document& document, Form form) {
  return withoutControls(write(document, form)) + '\n';
}

}  // namespace Kavra::Json
