#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Kavra/DocumentSize.h"
#include "Qel/Document.h"
#include "Qel/String.h"

namespace Kavra::Json {

// Builds a document from the events of a JSON parser, and refuses one that is larger than a
// document may be (see Qel/Limits.h) at the first value that is too much. Each event handler
// returns whether to go on; after a refusal, problem() says what and where. For use inside this
// room: it shows the parser.
class Reader final : public nlohmann::json_sax<nlohmann::json> {
 public:
  const std::string& problem() const noexcept { return problem_; }
  Qel::Document takeDocument() { return std::move(root_); }
  // How many have begun so far.
  std::size_t values() const noexcept { return size_.values() + levels_.size(); }

  bool null() override;
  bool boolean(bool value) override;
  bool number_integer(std::int64_t value) override;
  bool number_unsigned(std::uint64_t value) override;
  bool number_float(double value, const std::string& text) override;
  bool string(std::string& value) override;
  bool binary(nlohmann::json::binary_t& value) override;
  bool start_object(std::size_t members) override;
  bool key(std::string& name) override;
  bool end_object() override;
  bool start_array(std::size_t items) override;
  bool end_array() override;
  bool parse_error(std::size_t position, const std::string& token,
                   const nlohmann::json::exception& error) override;

 private:
  // A list or map that is not closed yet.
  struct Level {
    bool isMap = false;
    Qel::Document::List list = {};
    Qel::Document::Map map = {};
    Qel::String name = {};             // of the member being read
    std::set<const char*> names = {};  // the texts of those before, once there are many
  };

  bool put(Qel::Document value);
  // The same for a value that is counted later.
  bool keep(Qel::Document value);
  bool open(bool isMap);
  // Whether the present map has the member that begins now already.
  static bool standsTwice(Level& level);
  bool fail(const std::string& problem);
  std::string place() const;

  struct InOrder {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const noexcept { return a < b; }
  };

  std::vector<Level> levels_;
  // So that members of one name share one text. Not by their hash values, which many names could
  // have in common: whoever writes a document chooses them.
  std::set<Qel::String, InOrder> names_;
  DocumentSize size_;
  Qel::Document root_;
  std::string problem_;
};

}  // namespace Kavra::Json
