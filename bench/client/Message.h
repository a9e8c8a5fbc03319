#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "Qel/Types.h"

// SNMPv2c messages, as much as a manager needs that asks for one name at a time and must not be
// slower than the agent that it measures. Names are the octets of their encoding (X.690, 8.19).
namespace Bench {

enum class Question : unsigned char { get = 0xa0, getNext = 0xa1, getBulk = 0xa5 };

struct Varbind {
  std::string_view name;
  unsigned char type;
  std::string_view value;
};

struct Response {
  U32 id = 0;
  U32 errorStatus = 0;
  std::vector<Varbind> varbinds;
};

// The name that begins with 1.3 and goes on with these sub-identifiers.
std::string nameOf(std::initializer_list<U32> rest);

// Writes the message that asks for `name` into `message`. `id` has its highest bit clear and one of
// the next eight set: it takes four octets. `repetitions` is for getBulk alone.
void writeRequest(std::string& message, Question question, U32 id, std::string_view name,
                  U32 repetitions);

// What an agent answered; it points into `message`. Raises std::runtime_error for what is no
// response.
void readResponse(std::string_view message, Response& response);

}  // namespace Bench
