// Whatever a server answers, its follower lives, and shows what a good server holds as soon as
// there is one. The input's records, each ended by the octet 0x1e, answer one piece after another
// of what the follower sends; one with the octet 0x1d ends the connection instead.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <utility>

#include "Kavra/EntityManager.h"
#include "Kavra/Redis/Feed.h"
#include "Qel/Assert.h"
#include "Qel/Clock.h"
#include "Qel/PollEventLoop.h"
#include "Qel/Trace.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/Redis/FakeServer.h"
#include "platform/Kavra/Redis/ScriptedServer.h"
#include "platform/Kavra/TimeShiftedEventLoop.h"

namespace {

constexpr char kEndOfRecord = '\x1e';
constexpr char kHangUp = '\x1d';
constexpr int kMostPasses = 100000;

// Pauses are over at once, and nobody runs out of patience: an answer comes at once or never.
class TimelessEventLoop final : public kavratest::TimeShiftedEventLoop {
 public:
  using TimeShiftedEventLoop::TimeShiftedEventLoop;

  Qel::Ptr<Qel::EventWatch> timerIs(double seconds, std::function<void()> call) override {
    constexpr double kNever = 1e6;
    return loop_.timerIs(isAlarm(seconds) ? kNever : 0.0, std::move(call));
  }
};

// Answers with the records of the input, and then as a good server does.
class Server {
 public:
  Server(Qel::EventLoop& loop, std::string_view records)
      : records_(records), fake_(loop, [this](unsigned connection, std::string_view request) {
          return answer(connection, request);
        }) {}

  std::string socket() const { return fake_.socket(); }
  bool isGood() const { return isGood_; }
  kavratest::ScriptedServer& script() { return script_; }

  // Nothing happens any more: whoever still waits would run out of patience.
  void handleSilence() {
    if (records_.empty()) isGood_ = true;
    fake_.closeAll();
  }

 private:
  std::string answer(unsigned connection, std::string_view request) {
    if (isGood_) return script_.answersTo(connection, request);
    const std::string record(records_.substr(0, records_.find(kEndOfRecord)));
    records_.remove_prefix(std::min(records_.size(), record.size() + 1));
    if (record.find(kHangUp) != std::string::npos) fake_.closeAll();
    return record;
  }

  std::string_view records_;
  bool isGood_ = false;
  kavratest::ScriptedServer script_;
  kavratest::FakeServer fake_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Qel::traceSinkIs([](const Qel::TraceRecord&) {});
  Qel::PollEventLoop poll;
  TimelessEventLoop loop(poll);
  Server server(poll, {reinterpret_cast<const char*>(data), size});
  server.script().epoch = std::to_string(std::random_device()());
  server.script().documentIs(kavratest::kHistoryPath, kavratest::history({"good at last"}));
  const kavratest::Reloads truth{{0, {"good at last"}}};
  {
    const auto manager = Qel::make<Kavra::EntityManager>(Qel::make<Kavra::Redis::Feed>(
        Kavra::Redis::ConnectionOptions{Kavra::Redis::Address::ofPath(server.socket()), {}}, loop,
        Qel::make<Qel::SystemClock>()));
    const auto history = manager->entityIs(kavratest::kHistoryPath, kavratest::kHistoryType);
    int passes = 0;
    while (!server.isGood() || kavratest::reloadsOf(history) != truth) {
      QEL_ASSERT(++passes < kMostPasses);
      if (poll.runOnce(0.0) == 0) server.handleSilence();
    }
  }
  while (poll.runOnce(0.0) != 0) {
  }
  return 0;
}
