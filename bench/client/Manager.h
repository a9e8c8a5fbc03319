#pragma once

#include <string>
#include <string_view>

#include "bench/client/Message.h"

namespace Bench {

constexpr unsigned char kOctetString = 0x04;

// Asks an agent on 127.0.0.1 one question after the other, each time waiting for the answer.
class Manager {
 public:
  // Raises std::system_error.
  explicit Manager(unsigned short port);
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;
  ~Manager();

  // The answer, valid until the next question. Raises std::system_error when none comes within five
  // seconds or nobody listens, std::runtime_error for an answer to something else and for an error.
  const Response& ask(Question question, std::string_view name, U32 repetitions = 0);

 private:
  const int socket_;
  U32 id_ = 0x01000000;
  std::string request_;
  std::string received_;
  Response response_;
};

}  // namespace Bench
