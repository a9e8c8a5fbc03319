#include "Kavra/Redis/Link.h"

#include <utility>

#include "Kavra/Store.h"
#include "Qel/Assert.h"
#include "Qel/Failure.h"

namespace Kavra::Redis {

namespace {

constexpr char kNoAnswer[] = "no answer within 3 s";

}  // namespace

Link::Link(Qel::EventLoop& loop, const SocketAddress& address, LostCall lost, Stall stall)
    : loop_(loop), connection_(std::in_place, address), lost_(std::move(lost)), stallAt_(stall) {
  readable_ = loop_.readableIs(connection_->fd(), [this] { handleReadable(); });
  // Writable for the first time: connected, or not to be.
  writable_ = loop_.writableIs(connection_->fd(), [this] { handleWritable(); });
  alarm_ = alarm(kConnectPatience, "cannot connect within 1.5 s");
}

void Link::requestIs(const std::vector<Command>& commands, AnswerCall answered) {
  QEL_ASSERT(!answered_);
  if (!connection_) return;
  connection_->commandsAre(commands);
  expected_ = commands.size();
  answered_ = std::move(answered);
  // While the connection is being made, the loop says when to begin.
  if (!connected_) return;
  begin();
  if (!writable_) loseOnFailure([this] { send(); });
}

void Link::handleWritable() {
  const Qel::Ptr<Link> alive(this);
  loseOnFailure([this] {
    if (!connected_) {
      connection_->needConnected();
      connected_ = true;
      begin();
    }
    send();
  });
}

void Link::send() {
  if (!connection_->send()) {
    writable_ = nullptr;
  } else if (!writable_) {
    writable_ = loop_.writableIs(connection_->fd(), [this] { handleWritable(); });
  }
  goOn();
}

void Link::begin() {
  octetsAtBegin_ = connection_->octets();
  alarm_ = alarm(kPatience, kNoAnswer);
}

void Link::goOn() {
  if (answered_ && connection_->octets() - octetsAtBegin_ >= kFairOctets) begin();
}

void Link::handleReadable() {
  const Qel::Ptr<Link> alive(this);
  bool complete = false;
  loseOnFailure([&] { complete = receive(); });
  if (!complete) return;
  stall_ = nullptr;
  alarm_ = nullptr;
  // The next request may be made from inside the call.
  std::exchange(answered_, nullptr)(std::exchange(replies_, {}));
}

bool Link::receive() {
  if (!connection_->receive()) return false;
  goOn();
  const bool complete = takeReplies();
  stall_ = stallAt_ == Stall::anywhere || connection_->isInsideReply()
               ? alarm(kStallPatience, "an answer stopped in the middle for 1 s")
               : nullptr;
  return complete;
}

bool Link::takeReplies() {
  while (auto reply = connection_->takeReply()) {
    if (!answered_ || replies_.size() == expected_) {
      throw StoreException("an answer that nobody asked for");
    }
    replies_.push_back(std::move(*reply));
  }
  return answered_ && replies_.size() == expected_;
}

Qel::Ptr<Qel::EventWatch> Link::alarm(double seconds, const char* problem) {
  return loop_.timerIs(seconds, [this, problem] {
    const Qel::Ptr<Link> alive(this);
    lose(problem);
  });
}

void Link::loseOnFailure(const std::function<void()>& step) {
  if (const auto failure = Qel::failureOf(step)) lose(*failure);
}

void Link::lose(const std::string& why) {
  // Whoever is told may let go of the link.
  const Qel::Ptr<Link> alive(this);
  readable_ = nullptr;
  writable_ = nullptr;
  alarm_ = nullptr;
  stall_ = nullptr;
  connection_.reset();
  answered_ = nullptr;
  // A server that has no use for the connection says so before it closes it.
  const bool told = !replies_.empty() && replies_.back().isError();
  std::exchange(lost_, nullptr)(told ? replies_.back().text : why);
}

}  // namespace Kavra::Redis
