#include "Kavra/Json/Members.h"

#include <fmt/format.h>

#include <cstdint>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "Kavra/Json/Reader.h"
#include "Kavra/Json/Text.h"
#include "Qel/Utf8.h"

namespace Kavra::Json {

namespace {

// Gives the octets of a text to the parser, and counts them: it does not tell how far it is.
class CountedOctets {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountedOctets(const char* at, std::size_t* count) : at_(at), count_(count) {}

  reference operator*() const noexcept { return *at_; }
  CountedOctets& operator++() noexcept {
    ++at_;
    ++*count_;
    return *this;
  }
  friend bool operator==(const CountedOctets& a, const CountedOctets& b) noexcept {
    return a.at_ == b.at_;
  }

 private:
  const char* at_;
  std::size_t* count_;
};

// Hands what a member consists of to a reader of its own, until that refuses it; the rest of the
// member is then passed over.
class MembersReader final : public nlohmann::json_sax<nlohmann::json> {
 public:
  MembersReader(std::string_view text, const MostMembers& most) : text_(text), most_(most) {}

  std::vector<Member> read() {
    const CountedOctets begin(text_.data(), &position_);
    const CountedOctets end(text_.data() + text_.size(), &position_);
    if (!nlohmann::json::sax_parse(begin, end, this)) throw Exception(problem_);
    return std::move(members_);
  }

  bool null() override {
    return scalar([](Reader& reader) { return reader.null(); });
  }
  bool boolean(bool value) override {
    return scalar([&](Reader& reader) { return reader.boolean(value); });
  }
  bool number_integer(std::int64_t value) override {
    return scalar([&](Reader& reader) { return reader.number_integer(value); }, 1);
  }
  bool number_unsigned(std::uint64_t value) override {
    return scalar([&](Reader& reader) { return reader.number_unsigned(value); }, 1);
  }
  bool number_float(double value, const std::string& text) override {
    return scalar([&](Reader& reader) { return reader.number_float(value, text); }, 1);
  }
  bool string(std::string& value) override {
    return scalar([&](Reader& reader) { return reader.string(value); });
  }
  bool binary(nlohmann::json::binary_t& value) override {
    return scalar([&](Reader& reader) { return reader.binary(value); });
  }
  bool start_object(std::size_t members) override {
    return ++depth_ == 1 || pass([&](Reader& reader) { return reader.start_object(members); }, 1);
  }
  bool key(std::string& name) override {
    return depth_ == 1 ? begin(name) : pass([&](Reader& reader) { return reader.key(name); }, 0);
  }
  bool end_object() override {
    return --depth_ == 0 || end([](Reader& reader) { return reader.end_object(); });
  }
  bool start_array(std::size_t items) override {
    if (depth_ == 0) return failForKind(Qel::Document(Qel::Document::List()));
    ++depth_;
    return pass([&](Reader& reader) { return reader.start_array(items); }, 1);
  }
  bool end_array() override {
    --depth_;
    return end([](Reader& reader) { return reader.end_array(); });
  }
  bool parse_error(std::size_t position, const std::string& token,
                   const nlohmann::json::exception& error) override {
    Reader outside;
    Reader& reader = reader_ ? *reader_ : outside;
    (void)reader.parse_error(position, token, error);
    return failInMember(reader.problem());
  }

 private:
  bool begin(const std::string& name) {
    const Qel::String path(name);
    members_.push_back({path, {}, {}, {}, 0});
    if (!names_.insert(path).second) return failInMember("/: member stands twice");
    if (names_.size() > most_.documents) {
      return fail(fmt::format("more than {} documents", most_.documents));
    }
    reader_.emplace();
    begin_ = position_;
    return true;
  }

  // `values`: how many begin with it.
  template <class Event>
  bool pass(const Event& event, std::size_t values) {
    Member& member = members_.back();
    if (!reader_) {
      member.values += values;
    } else if (event(*reader_)) {
      member.values = reader_->values();
    } else {
      member.problem = reader_->problem();
      member.values = reader_->values() + values;
      reader_.reset();
    }
    if (values_ + member.values <= most_.values) return true;
    return failInMember(fmt::format("/: more than {} values in all documents", most_.values));
  }

  // A value ends, and perhaps the member with it. `ahead`: how many octets behind it the parser has
  // looked at.
  template <class Event>
  bool end(const Event& event, std::size_t values = 0, std::size_t ahead = 0) {
    if (!pass(event, values)) return false;
    if (depth_ > 1) return true;
    Member& member = members_.back();
    if (reader_) member.document = reader_->takeDocument();
    reader_.reset();
    values_ += member.values;
    // Behind the name stand a colon and blanks.
    member.text = text_.substr(begin_, position_ - ahead - begin_);
    member.text.remove_prefix(member.text.find_first_not_of(" \t\r\n", member.text.find(':') + 1));
    return true;
  }

  template <class Event>
  bool scalar(const Event& event, std::size_t ahead = 0) {
    if (depth_ > 0) return end(event, 1, ahead);
    Reader reader;
    return event(reader) ? failForKind(reader.takeDocument()) : fail(reader.problem());
  }

  bool failForKind(const Qel::Document& whole) {
    return fail(fmt::format("expected a map of documents but found {}", whole.kind()));
  }
  // A problem of the present member, which begins with its place unless that is a line.
  bool failInMember(const std::string& problem) {
    if (members_.empty() || !problem.starts_with('/')) return fail(problem);
    const bool isWhole = problem.starts_with("/:");
    return fail("/" + members_.back().name.stdString() + problem.substr(isWhole ? 1 : 0));
  }
  bool fail(const std::string& problem) {
    problem_ = problem;
    return false;
  }

  const std::string_view text_;
  const MostMembers most_;
  std::size_t position_ = 0;
  std::size_t begin_ = 0;   // of the present member, behind its name
  std::size_t depth_ = 0;   // of the lists and maps around the present place
  std::size_t values_ = 0;  // in the members before the present one
  std::vector<Member> members_;
  std::set<Qel::String> names_;
  std::optional<Reader> reader_;  // of the present member, while it can be kept
  std::string problem_;
};

}  // namespace

std::vector<Member> readMembers(std::string_view text, const MostMembers& most) {
  return MembersReader(text, most).read();
}

std::string writeMembers(const std::map<Qel::String, std::string>& texts) {
  std::string map;
  for (const auto& [name, text] : texts) {
    if (!Qel::isUtf8(name.view())) throw Exception("a member name is not UTF-8");
    map += fmt::format("{}\n  {}: {}", map.empty() ? "" : ",", write(name, Form::line), text);
  }
  return map.empty() ? "{}" : "{" + map + "\n}";
}

}  // namespace Kavra::Json
