#include "bench/client/Message.h"

#include <stdexcept>

namespace Bench {
namespace {

constexpr unsigned char kInteger = 0x02;
constexpr unsigned char kOctets = 0x04;
constexpr unsigned char kNull = 0x05;
constexpr unsigned char kName = 0x06;
constexpr unsigned char kSequence = 0x30;
constexpr unsigned char kResponse = 0xa2;
constexpr std::string_view kCommunity = "public";
constexpr char kVersion2c = 1;

char octet(std::size_t value) { return static_cast<char>(static_cast<unsigned char>(value)); }

void append(std::string& out, unsigned char tag, std::string_view content) {
  out += octet(tag);
  out += octet(content.size());
  out += content;
}

// Everything in a request is shorter than 128 octets, so that a length takes one.
class Nested {
 public:
  Nested(std::string& out, unsigned char tag) : out_(out), lengthAt_(out.size() + 1) {
    out_ += octet(tag);
    out_ += '\0';
  }
  Nested(const Nested&) = delete;
  Nested& operator=(const Nested&) = delete;
  ~Nested() { out_[lengthAt_] = octet(out_.size() - lengthAt_ - 1); }

 private:
  std::string& out_;
  const std::size_t lengthAt_;
};

class Reader {
 public:
  explicit Reader(std::string_view rest) : rest_(rest) {}

  bool atEnd() const { return rest_.empty(); }

  unsigned char tag() const {
    if (rest_.empty()) fail();
    return static_cast<unsigned char>(rest_[0]);
  }

  std::string_view content() {
    const std::size_t lengthOctets = rest_.size() < 2 ? 0 : lengthOfLength();
    std::size_t length = lengthOctets == 1 ? at(1) : 0;
    for (std::size_t i = 2; i <= lengthOctets; ++i) length = length << 8 | at(i);
    const std::size_t header = 1 + lengthOctets;
    if (lengthOctets == 0 || rest_.size() < header || rest_.size() - header < length) fail();
    const std::string_view found = rest_.substr(header, length);
    rest_.remove_prefix(header + length);
    return found;
  }

  std::string_view content(unsigned char expected) {
    if (tag() != expected) fail();
    return content();
  }

  U32 integer() {
    U32 value = 0;
    for (const char c : content(kInteger)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
  }

 private:
  [[noreturn]] static void fail() { throw std::runtime_error("this is no SNMP response"); }

  std::size_t at(std::size_t place) const {
    if (place >= rest_.size()) fail();
    return static_cast<unsigned char>(rest_[place]);
  }

  std::size_t lengthOfLength() const { return at(1) < 0x80 ? 1 : 1 + (at(1) & 0x7f); }

  std::string_view rest_;
};

}  // namespace

std::string nameOf(std::initializer_list<U32> rest) {
  std::string name(1, octet(1 * 40 + 3));
  for (const U32 arc : rest) {
    for (int shift = 28; shift > 0; shift -= 7) {
      if (arc >> shift != 0) name += octet(0x80 | (arc >> shift & 0x7f));
    }
    name += octet(arc & 0x7f);
  }
  return name;
}

void writeRequest(std::string& message, Question question, U32 id, std::string_view name,
                  U32 repetitions) {
  message.clear();
  const Nested whole(message, kSequence);
  append(message, kInteger, {&kVersion2c, 1});
  append(message, kOctets, kCommunity);
  const Nested pdu(message, static_cast<unsigned char>(question));
  const char idOctets[] = {octet(id >> 24), octet(id >> 16), octet(id >> 8), octet(id)};
  append(message, kInteger, {idOctets, sizeof idOctets});
  append(message, kInteger, {"\0", 1});
  const char count = octet(repetitions);
  append(message, kInteger, {&count, 1});
  const Nested varbinds(message, kSequence);
  const Nested varbind(message, kSequence);
  append(message, kName, name);
  append(message, kNull, {});
}

void readResponse(std::string_view message, Response& response) {
  Reader whole(Reader(message).content(kSequence));
  whole.content(kInteger);
  whole.content(kOctets);
  Reader pdu(whole.content(kResponse));
  response.id = pdu.integer();
  response.errorStatus = pdu.integer();
  pdu.integer();
  response.varbinds.clear();
  for (Reader list(pdu.content(kSequence)); !list.atEnd();) {
    Reader varbind(list.content(kSequence));
    const std::string_view name = varbind.content(kName);
    const unsigned char type = varbind.tag();
    response.varbinds.push_back({name, type, varbind.content()});
  }
}

}  // namespace Bench
