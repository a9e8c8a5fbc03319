#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Redis/RespParser.h"
#include "Qel/Document.h"

namespace kavratest {

// A reply in the protocol's own form.
inline std::string bulk(const std::string& text) {
  return "$" + std::to_string(text.size()) + "\r\n" + text + "\r\n";
}
inline std::string array(const std::vector<std::string>& elements) {
  std::string text = "*" + std::to_string(elements.size()) + "\r\n";
  for (const std::string& element : elements) text += element;
  return text;
}
inline constexpr char kNilArray[] = "*-1\r\n";

// Answers as a server would that holds a state and some documents: enough of the commands that a
// follower sends. XREAD gets no answer: the test rings when it wants to.
class ScriptedServer {
 public:
  std::string epoch = "epoch";
  std::string lastId = "1-1";
  std::map<std::string, Qel::DocumentCodec::Fields> hashes;  // by key

  void documentIs(const Qel::String& path, const Qel::Document& document) {
    hashes[Kavra::Redis::keyOf(path)] = Kavra::Redis::fieldsOf(path, document);
  }
  // The answers to a piece of what came on a connection.
  std::string answersTo(unsigned connection, std::string_view piece) {
    Session& session = sessions_[connection];
    session.reader.feed(piece);
    std::string answers;
    while (const auto command = session.reader.take()) answers += answer(session, *command);
    return answers;
  }
  // Forgets the connections that there were.
  void forget() { sessions_.clear(); }

 private:
  struct Session {
    Kavra::Redis::RespParser reader{1U << 20U};
    std::optional<std::vector<std::string>> queued;
  };

  std::string answer(Session& session, const Kavra::Redis::Reply& command) const {
    const std::string& name = command.elements.at(0).text;
    if (name == "MULTI") {
      session.queued.emplace();
      return "+OK\r\n";
    }
    if (name == "EXEC") return array(*std::exchange(session.queued, std::nullopt));
    std::string reply = replyTo(name, command);
    if (!session.queued) return reply;
    session.queued->push_back(std::move(reply));
    return "+QUEUED\r\n";
  }
  std::string replyTo(const std::string& name, const Kavra::Redis::Reply& command) const {
    if (name == "PING") return "+PONG\r\n";
    if (name == "GET") return bulk(epoch);
    if (name == "XINFO") return array({bulk("last-generated-id"), bulk(lastId)});
    if (name == "XREAD") return {};
    const auto found = hashes.find(command.elements.at(1).text);
    std::vector<std::string> texts;
    if (found == hashes.end()) return array(texts);
    for (const auto& [field, value] : found->second) {
      texts.push_back(bulk(field));
      texts.push_back(bulk(value));
    }
    return array(texts);
  }

  std::map<unsigned, Session> sessions_;
};

}  // namespace kavratest
