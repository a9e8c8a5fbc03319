#include "resetcause/CommandLine.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <exception>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Kavra/Json/Text.h"
#include "Kavra/StoreUrl.h"
#include "Qel/ActivityManager.h"
#include "Qel/Clock.h"
#include "Qel/Escape.h"
#include "Qel/Failure.h"
#include "Qel/Number.h"
#include "Qel/Ptr.h"
#include "Qel/Types.h"
#include "resetcause/BootOrder.h"
#include "resetcause/Child.h"
#include "resetcause/Heartbeat.h"
#include "resetcause/Judgement.h"
#include "resetcause/Record.h"
#include "resetcause/Report.h"
#include "resetcause/Request.h"
#include "resetcause/Root.h"

namespace ResetCause {

namespace {

using Words = std::vector<std::string>;

// Asks again as root, with the command left to whoever asked; polkit says who may run it.
constexpr char kRequestAsRoot[] = "/usr/lib/norvek-reset-cause/request-as-root";

U32 numberIn(const char* option, const std::string& text, U32 most) {
  const auto number = Qel::numberOf<U32>(text);
  if (!number || *number == 0 || *number > most) {
    throw CLI::ValidationError(std::string(option) + ": " + Qel::quoted(text) +
                               " is not a number from 1 to " + std::to_string(most));
  }
  return *number;
}

// Builds the parser, and binds to each command what it does.
class Program {
 public:
  Program(std::ostream& out, std::ostream& err) : out_(out), err_(err) {
    app_.require_subcommand(1);
    app_.set_version_flag("--version", "norvek-reset-cause " RESETCAUSE_VERSION,
                          "Print the version and stop");
    app_.fallthrough();
    root_ = app_.add_option("--root")->type_name("DIR");
    root_->description("look below DIR, as at the disk of another machine (default: /)");
    addJudging();
    addRecord();
    addRequest();
    addHeartbeat();
  }

  CLI::App& app() { return app_; }
  void tell(const std::string& why) const {
    err_ << "norvek-reset-cause: " << Qel::printableLine(why) << std::endl;
  }

 private:
  static std::string text(const CLI::Option* option, const std::string& otherwise = {}) {
    return option->count() == 0 ? otherwise : option->results().front();
  }
  Root root() const {
    if (root_->count() == 0) return Root();
    std::error_code error;
    if (!std::filesystem::is_directory(text(root_), error)) {
      throw CLI::ValidationError("--root: " + Qel::quoted(text(root_)) + " is no folder");
    }
    return Root(text(root_));
  }
  // Raises SourceException where the kernel tells none.
  std::string boot() const {
    std::string id = bootIdOf(root());
    if (id.empty()) throw SourceException("which boot this is cannot be told");
    return id;
  }

  void addJudging() {
    CLI::App* find =
        app_.add_subcommand("find", "print why this machine reloaded, and the evidence");
    const CLI::Option* json = find->add_flag("--json")->description("as JSON");
    find->callback([=, this] {
      const Judgement judgement = judge(root(), *clock_);
      if (json->count() == 0) return print(judgement, out_);
      out_ << Kavra::Json::writePrintable(documentOf(judgement), Kavra::Json::Form::pretty) << '\n';
    });
    app_.add_subcommand("explain", "print each rule, and why it matched or not")->callback([this] {
      print(explain(root(), *clock_), out_);
    });
  }

  void addRecord() {
    CLI::App* command =
        app_.add_subcommand("record", "judge once a boot, and record the reload in a database");
    const CLI::Option* db = command->add_option("--db")->type_name("URL")->required()->description(
        "file:PATH, redis://HOST[:PORT], redis+unix:PATH; beside a publisher the file it serves");
    const CLI::Option* auth =
        command->add_option("--db-auth")
            ->type_name("FILE")
            ->description("two lines, the user and the password for a Redis server");
    const CLI::Option* cell =
        command->add_option("--cell")->type_name("N")->required()->description(
            "the number of this supervisor; 1 on a machine without a peer");
    command->callback([=, this] {
      const U32 number = numberIn("--cell", text(cell), 0xffffffff);
      const auto store = Kavra::StoreUrl(text(db), text(auth)).store(clock_);
      const Judgement judgement = judge(root(), *clock_);
      // Kept first, so that a database which is down is told the same later.
      std::optional<std::string> problem;
      if (!judgement.isKept) problem = Qel::failureOf([&] { keep(root(), judgement); });
      ResetCause::record(*store, number, judgement);
      Requests(root()).keepOnly(judgement.boots.id, judgement.boots.previousId);
      out_ << "cell " << number << ": " << descriptionOf(judgement.verdict.cause) << '\n';
      if (problem) throw SourceException(Qel::String("it is recorded, but not kept: " + *problem));
    });
  }

  void addRequest() {
    CLI::App* command = app_.add_subcommand(
        "request", "note who asks for a reload and why, then run COMMAND to have it");
    command->footer(
        "Without COMMAND, `systemctl reboot` is run: the machine goes down at once.\n"
        "Options of COMMAND are to follow a --.");
    const CLI::Option* reason =
        command->add_option("--reason")->type_name("TEXT")->required()->description("why");
    const CLI::Option* rest =
        command->add_option("command")->type_name("COMMAND")->take_all()->expected(-1);
    command->callback([=, this] {
      const std::string why = text(reason);
      if (trimmed(why).empty() || why.size() > kMostReasonOctets) {
        throw CLI::ValidationError("--reason: 1 to " + std::to_string(kMostReasonOctets) +
                                   " octets are wanted");
      }
      if (!root().isThisMachine() && rest->count() == 0) {
        throw CLI::ValidationError("--root: name the COMMAND: another machine is not restarted");
      }
      ask({boot(), loginUser(), why, clock_->now()},
          rest->count() == 0 ? Words{"systemctl", "reboot"} : rest->results());
    });
  }

  // Whoever may restart the machine may note it, too: polkit knows. Returns where there is none.
  void askPolkit(const std::string& reason, const Words& command) const {
    if (!root().isThisMachine() || ::geteuid() == 0 || ::access(kRequestAsRoot, X_OK) != 0) return;
    Words words{"pkexec", kRequestAsRoot, reason};
    words.insert(words.end(), command.begin(), command.end());
    become(words);
  }

  // The record comes first, since the machine may be gone before the command returns.
  void ask(const Request& request, const Words& command) const {
    const Requests requests(root());
    try {
      requests.add(request);
    } catch (const std::system_error& error) {
      if (error.code() == std::errc::permission_denied) askPolkit(request.reason, command);
      throw;
    }
    const int status = statusOf(command);
    if (status == 0) return;
    requests.remove(request.boot);
    throw SourceException(Qel::String(command.front() + " ended with " + std::to_string(status) +
                                      ": the request is taken back"));
  }

  void addHeartbeat() {
    CLI::App* command =
        app_.add_subcommand("heartbeat", "note that this boot lives, once or again and again");
    const CLI::Option* every = command->add_option("--every")->type_name("SECONDS")->description(
        "again and again, until it is ended (default: once)");
    command->callback([=, this] {
      const Heartbeat heart(root());
      const std::string id = boot();
      if (every->count() == 0) return heart.beat(id, *clock_);
      constexpr U32 kHour = 3600;
      const std::chrono::seconds pause(numberIn("--every", text(every), kHour));
      beatEvery(pause, heart, id);
    });
  }

  // A disk that is full or away may come back; what is wrong with it is told once.
  [[noreturn]] void beatEvery(std::chrono::seconds pause, const Heartbeat& heart,
                              const std::string& id) const {
    std::optional<std::string> told;
    for (;;) {
      const auto why = Qel::failureOf([&] { heart.beat(id, *clock_); });
      if (why && why != told) tell(*why + "; trying again");
      told = why;
      std::this_thread::sleep_for(pause);
    }
  }

  std::ostream& out_;
  std::ostream& err_;
  const Qel::Ptr<Qel::Clock const> clock_ = Qel::activityManager()->clock();
  CLI::App app_{"Why this machine reloaded", "norvek-reset-cause"};
  CLI::Option* root_ = nullptr;
};

}  // namespace

int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  Program program(out, err);
  const auto fail = [&](const char* why, int status) {
    program.tell(why);
    return status;
  };
  try {
    program.app().parse(argc, argv);
    if (!out.flush()) return fail("standard output takes no more", 1);
    return 0;
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return program.app().exit(error, out, err);
    return fail(error.what(), 2);
  } catch (const std::exception& error) {
    return fail(error.what(), 1);
  }
}

}  // namespace ResetCause
