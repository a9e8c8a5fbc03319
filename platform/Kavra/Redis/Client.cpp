#include "Kavra/Redis/Client.h"

#include <limits>
#include <utility>

#include "Kavra/AddressLookup.h"
#include "Kavra/Redis/MultiExec.h"
#include "Kavra/Store.h"
#include "Qel/Failure.h"

namespace Kavra::Redis {

namespace {

// The link's own timers end every wait.
constexpr double kForever = std::numeric_limits<double>::infinity();

AddressLookup::Addresses addressesOf(const Address& address) {
  if (!address.isNamed()) return address.resolve();
  auto addresses = address.lookup().wait(AddressLookup::kPatience);
  if (!addresses) address.failUnanswered();
  return std::move(*addresses);
}

}  // namespace

Client::Client(const ConnectionOptions& server) : name_(server.address.text()) {
  if (const auto failure = Qel::failureOf([&] { connect(server.address); })) fail(*failure);
  for (const Reply& reply : request(server.loginCommands())) {
    if (reply.isError()) fail(reply.text);
  }
}

void Client::fail(const std::string& problem) const {
  throw StoreException(name_ + ": " + problem);
}

void Client::connect(const Address& address) {
  loop_.emplace(nullptr);
  for (const SocketAddress& socketAddress : addressesOf(address)) {
    connectTo(socketAddress);
    if (!lost_) return;
  }
  throw StoreException(*lost_);
}

void Client::connectTo(const SocketAddress& address) {
  lost_.reset();
  const auto failure = Qel::failureOf([&] {
    link_ = Qel::make<Link>(
        *loop_, address, [this](const std::string& why) { lost_ = why; }, Link::Stall::insideReply);
    while (!lost_ && !link_->isConnected()) loop_->runOnce(kForever);
  });
  if (failure) lost_ = failure;
}

std::vector<Reply> Client::request(const std::vector<Command>& commands) {
  std::optional<Link::Replies> answer;
  const auto failure = Qel::failureOf([&] {
    if (lost_) return;
    link_->requestIs(commands, [&](Link::Replies replies) { answer = std::move(replies); });
    while (!lost_ && !answer) loop_->runOnce(kForever);
  });
  if (failure) {
    link_ = nullptr;
    lost_ = failure;
  }
  if (!answer) fail(*lost_);
  return std::move(*answer);
}

std::optional<Reply> Client::transaction(const std::vector<Command>& commands) {
  std::vector<Reply> replies = request(multiExec(commands));
  if (isRefusedForMemory(replies)) return {};
  try {
    if (execReply(replies, commands.size()).isNil()) {
      throw StoreException("the transaction was discarded");
    }
    return std::move(replies.back());
  } catch (const StoreException& error) {
    fail(error.what());
  }
}

}  // namespace Kavra::Redis
