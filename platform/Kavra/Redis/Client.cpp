#include "Kavra/Redis/Client.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "Kavra/Redis/MultiExec.h"
#include "Kavra/Store.h"

namespace Kavra::Redis {

namespace {

using std::chrono::duration;
using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

steady_clock::time_point patience() {
  return steady_clock::now() +
         duration_cast<steady_clock::duration>(duration<double>(Client::kPatience));
}

}  // namespace

Client::Client(const ConnectionOptions& server) : name_(server.address.text()) {
  connect(server.address);
  for (const Reply& reply : request(server.loginCommands())) {
    if (reply.isError()) fail(reply.text);
  }
}

void Client::fail(const std::string& problem) const {
  throw StoreException(name_ + ": " + problem);
}

void Client::connect(const Address& address) {
  std::string problem;
  try {
    for (const SocketAddress& socketAddress : address.resolve()) {
      if (tryToConnect(socketAddress, problem)) return;
    }
  } catch (const StoreException& error) {
    problem = error.what();
  }
  fail(problem);
}

bool Client::tryToConnect(const SocketAddress& address, std::string& problem) {
  try {
    connection_ = std::make_unique<Connection>(address);
    wait(POLLOUT, patience());
    connection_->needConnected();
    return true;
  } catch (const StoreException& error) {
    problem = error.what();
    return false;
  }
}

std::vector<Reply> Client::request(const std::vector<Command>& commands) {
  std::vector<Reply> replies;
  const Time deadline = patience();
  try {
    for (const Command& command : commands) connection_->commandIs(command);
    while (connection_->send()) wait(POLLOUT, deadline);
    while (replies.size() < commands.size()) {
      if (auto reply = connection_->takeReply()) {
        replies.push_back(std::move(*reply));
      } else {
        wait(POLLIN, deadline);
        connection_->receive();
      }
    }
    // It would be taken for the answer to the next request.
    if (connection_->takeReply()) throw StoreException("an answer that nobody asked for");
  } catch (const StoreException& error) {
    // A server that has no use for the connection says so before it closes it.
    const bool told = !replies.empty() && replies.back().isError();
    fail(told ? replies.back().text : error.what());
  }
  return replies;
}

std::optional<Reply> Client::transaction(const std::vector<Command>& commands) {
  const std::vector<Reply> replies = request(multiExec(commands));
  if (isRefusedForMemory(replies)) return {};
  try {
    const Reply& outcome = execReply(replies, commands.size());
    if (outcome.isNil()) throw StoreException("the transaction was discarded");
    return outcome;
  } catch (const StoreException& error) {
    fail(error.what());
  }
}

void Client::wait(short events, Time deadline) const {
  for (;;) {
    const auto left = duration_cast<milliseconds>(deadline - steady_clock::now()).count();
    pollfd entry{connection_->fd(), events, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(std::max<long>(left, 0)));
    if (ready > 0) return;
    if (ready == 0) throw StoreException("no answer within 3 s");
    if (errno != EINTR) throw StoreException(std::generic_category().message(errno));
  }
}

}  // namespace Kavra::Redis
