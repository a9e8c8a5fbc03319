#include "tools/CommandLine.h"

#include <fcntl.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <istream>
#include <optional>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "Kavra/FileContent.h"
#include "Kavra/FileDescriptor.h"
#include "Kavra/Path.h"
#include "Kavra/Store.h"
#include "Kavra/StoreUrl.h"
#include "Qel/ActivityManager.h"
#include "Qel/Clock.h"
#include "Qel/Escape.h"
#include "Qel/Limits.h"
#include "Qel/Number.h"
#include "Qel/Ptr.h"
#include "Qel/Types.h"
#include "tools/AgentStatus.h"
#include "tools/Check.h"
#include "tools/Commands.h"
#include "tools/Errors.h"
#include "tools/Report.h"
#include "tools/Screen.h"
#include "tools/Serve.h"
#include "tools/Show.h"
#include "tools/SnmpAgent.h"
#include "tools/Suggestion.h"
#include "tools/Time.h"
#include "tools/Watch.h"

namespace Tools {

namespace {

using Qel::Limits::kMostFileOctets;

U32 u32Of(const char* option, const std::string& text) {
  const auto number = Qel::numberOf<U32>(text);
  if (!number) {
    throw CommandError(std::string(option) + ": " + Qel::quoted(text) +
                       " is not a number from 0 to 4294967295");
  }
  return *number;
}

double timeOf(const std::string& text) {
  if (const auto seconds = secondsOf(text)) return *seconds;
  throw CommandError("--time: " + Qel::quoted(text) +
                     " is neither a number of seconds since 1970 nor a time like "
                     "2026-11-21T16:00:00Z");
}

std::vector<double> timesOf(const std::vector<std::string>& texts) {
  std::vector<double> times;
  times.reserve(texts.size());
  for (const std::string& text : texts) times.push_back(timeOf(text));
  return times;
}

bool boolOf(const char* option, const std::string& text) {
  if (text == "true") return true;
  if (text == "false") return false;
  throw CommandError(std::string(option) + ": " + Qel::quoted(text) + " is not true or false");
}

bool formatIsJson(const std::string& text) {
  if (text == "json") return true;
  if (text == "table") return false;
  throw CommandError("--format: " + Qel::quoted(text) + " is not json or table");
}

// Standard input, which is a stream and no descriptor here.
std::string readAll(std::istream& in, const std::string& name) {
  std::string text;
  char chunk[65536];
  while (in.read(chunk, sizeof chunk), in.gcount() > 0) {
    text.append(chunk, static_cast<std::size_t>(in.gcount()));
    if (text.size() > kMostFileOctets) throw CommandError(name + ": too long");
  }
  if (in.bad()) throw CommandError(name + ": cannot be read");
  return text;
}

std::string readFile(const std::string& name) {
  const Kavra::FileDescriptor file(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
  try {
    if (!file) throw std::system_error(errno, std::generic_category());
    if (auto text = Kavra::readUpTo(file, kMostFileOctets)) return *std::move(text);
  } catch (const std::system_error& error) {
    throw CommandError(name + ": " + error.code().message());
  }
  throw CommandError(name + ": too long");
}

// Builds the parser, and binds to each command what it does with the texts that were typed. They
// are taken as they are: the parser has its own idea of texts like "[]", which a cause may well be.
class Program {
 public:
  Program(std::istream& in, std::ostream& out, std::ostream& err, const Screen& screen)
      : in_(in), out_(out), err_(err), screen_(screen) {
    app_.require_subcommand(1);
    app_.set_version_flag("--version", "kavra " KAVRA_VERSION, "Print the version and stop");
    app_.fallthrough();
    db_ = app_.add_option("--db")->type_name("URL");
    db_->description(
        "file:PATH, redis://HOST[:PORT] or redis+unix:PATH (default: what KAVRA_DB in the "
        "environment names, else file:kavra.json)");
    auth_ = named(app_.add_option("--db-auth")->type_name("FILE"));
    auth_->description("two lines, the user and the password for a Redis server");
    addReading();
    addWriting();
    addServing();
    addCells();
    addStatus();
    addShow();
    addCheck();
  }

  CLI::App& app() { return app_; }
  // The exit status of a command that did what it was asked to.
  int status() const noexcept { return status_; }
  // Tells of what went wrong, and returns the exit status.
  int fail(const std::string& problem) {
    const auto commands = app_.get_subcommands();
    if (!commands.empty() && commands.front()->get_name() == kCheck) {
      // Whoever calls it reads nothing but standard output.
      conclude(uncheckable(problem));
      out_.flush();
      return status_;
    }
    err_ << "kavra: " << Qel::printableLine(problem) << '\n';
    return 1;
  }

  // The parser asks for a command even where there is a word that is none.
  std::string problemOf(const CLI::ParseError& error) const {
    const auto words = app_.remaining();
    if (!app_.get_subcommands().empty() || words.empty()) return error.what();
    std::vector<std::string> names;
    for (const CLI::App* each : app_.get_subcommands(nullptr)) names.push_back(each->get_name());
    return "there is no command " + Qel::quoted(words.front()) +
           didYouMean(suggestionFor(words.front(), names));
  }

 private:
  CLI::App* command(const char* name, const char* description) {
    return app_.add_subcommand(name, description);
  }
  static CLI::Option* option(CLI::App* command, const char* name, const char* type,
                             const char* description) {
    return command->add_option(name)->type_name(type)->description(description);
  }
  static CLI::Option* repeated(CLI::App* command, const char* name, const char* type,
                               const char* description) {
    return option(command, name, type, description)->take_all();
  }
  static CLI::Option* cellOption(CLI::App* command) {
    return option(command, "--cell", "N", "the cell: the number of the supervisor");
  }
  static CLI::Option* flag(CLI::App* command, const char* names, const std::string& description) {
    return command->add_flag(names)->description(description);
  }
  static CLI::Option* forceFlag(CLI::App* command) {
    return flag(command, "--force",
                "also where a living publisher (kavra serve) owns the path, which "
                "it can on a server only");
  }

  // The name of a file; an empty one is a slip, as of a shell variable that is not set.
  static CLI::Option* named(CLI::Option* option) {
    return option->check([](const std::string& typed) {
      return std::string(typed.empty() ? "the value is empty" : "");
    });
  }

  static std::optional<std::string> typed(const CLI::Option* option) {
    return option->count() == 0 ? std::optional<std::string>() : option->results().front();
  }
  static std::string text(const CLI::Option* option) { return typed(option).value_or(""); }
  static U32 cellOf(const CLI::Option* option) { return u32Of("--cell", text(option)); }

  static std::string defaultDatabase() {
    const char* named = std::getenv("KAVRA_DB");
    return named == nullptr || *named == '\0' ? "file:kavra.json" : named;
  }
  Kavra::StoreUrl url() const {
    return Kavra::StoreUrl(typed(db_).value_or(defaultDatabase()), text(auth_));
  }
  Commands commands() const { return {url().store(clock_), url().text(), clock_, out_, err_}; }
  // Of a command that may be forced.
  Commands commands(const CLI::Option* force) const {
    const auto store = url().store(clock_);
    store->forceIs(force->count() > 0);
    return {store, url().text(), clock_, out_, err_};
  }

  void addReading() {
    CLI::App* ls = command("ls", "print the paths that are published");
    const CLI::Option* lsPrefix = option(ls, "prefix", "PREFIX", kPrefixHelp);
    const CLI::Option* lsLong =
        flag(ls, "-l,--long",
             "in front of each path, when it was published and how long ago that is; in a file: "
             "database, when the file was written");
    const CLI::Option* lsUtc = flag(ls, "--utc", "times in UTC rather than in local time");
    ls->callback([=, this] {
      if (lsLong->count() == 0) return commands().ls(text(lsPrefix));
      commands().lsLong(text(lsPrefix), lsUtc->count() > 0);
    });

    CLI::App* get = command("get", "print a document");
    const CLI::Option* getPath = option(get, "path", "PATH", kPathHelp)->required();
    get->callback([=, this] { commands().get(text(getPath)); });

    CLI::App* watching =
        command("watch", "print what is published, then each change, as JSON lines");
    const CLI::Option* watchPrefix = option(watching, "prefix", "PREFIX", kPrefixHelp);
    watching->callback([=, this] { watch(url(), text(watchPrefix), clock_, out_); });
  }

  void addWriting() {
    CLI::App* put = command("put", "publish a document, from standard input without FILE");
    const CLI::Option* putPath = option(put, "path", "PATH", kPathHelp)->required();
    const CLI::Option* putFile = named(option(put, "file", "FILE", "the document, as JSON"));
    const CLI::Option* putForce = forceFlag(put);
    put->callback([=, this] {
      const auto file = typed(putFile);
      const std::string source = file.value_or("standard input");
      commands(putForce).put(text(putPath), file ? readFile(*file) : readAll(in_, source), source);
    });

    CLI::App* del = command("del", "take back a document");
    const CLI::Option* delPath = option(del, "path", "PATH", kPathHelp)->required();
    const CLI::Option* delForce = forceFlag(del);
    del->callback([=, this] { commands(delForce).del(text(delPath)); });
  }

  void addServing() {
    CLI::App* serving =
        command("serve", "publish the documents of a file, now and whenever the file changes");
    const CLI::Option* servedFile =
        named(option(serving, "file", "FILE",
                     "{path: document, ...} as JSON; one that is not there yet "
                     "is waited for")
                  ->required());
    CLI::Option* cell =
        option(serving, "--cell", "N",
               "own all of cell/N/: what FILE does not have is taken away there, "
               "and on a server, where alone there are claims, others are kept from "
               "editing it (default: own the paths that FILE has, or had "
               "meanwhile)");
    CLI::Option* prefix =
        option(serving, "--prefix", "PATH",
               "own all below PATH in the same way; a claim to it there is on a server only");
    prefix->excludes(cell);
    serving->callback(
        [=, this] { serve(url(), text(servedFile), ownedPrefix(cell, prefix), clock_, err_); });
  }

  // With '/' at its end, or empty where none is asked for.
  static std::string ownedPrefix(const CLI::Option* cell, const CLI::Option* prefix) {
    if (cell->count() > 0) return "cell/" + std::to_string(cellOf(cell)) + "/";
    const auto typedPrefix = typed(prefix);
    if (!typedPrefix) return {};
    std::string path = *typedPrefix;
    if (path.ends_with('/')) path.pop_back();
    Kavra::needPath(Qel::String(path));
    return path + "/";
  }

  void addCells() {
    CLI::App* record = command("record-reset", "record a new reload of a cell");
    const CLI::Option* recordCell = cellOption(record)->required();
    const CLI::Option* causes = repeated(record, "--cause", "TEXT", kCauseHelp)->required();
    const CLI::Option* times = repeated(record, "--time", "TIME", kTimeHelp);
    const CLI::Option* recordForce = forceFlag(record);
    record->callback([=, this] {
      commands(recordForce)
          .recordReset(cellOf(recordCell), causes->results(), timesOf(times->results()));
    });

    CLI::App* add = command("add-cause", "add a cause to the latest reload of a cell");
    const CLI::Option* addCell = cellOption(add)->required();
    const CLI::Option* cause = option(add, "--cause", "TEXT", kCauseHelp)->required();
    const CLI::Option* time = option(add, "--time", "TIME", kTimeHelp);
    const CLI::Option* addForce = forceFlag(add);
    add->callback([=, this] {
      const auto when = typed(time);
      commands(addForce).addCause(cellOf(addCell), text(cause),
                                  when ? std::optional(timeOf(*when)) : std::nullopt);
    });
    addRedundancy();
  }

  void addRedundancy() {
    CLI::App* set = command("set-redundancy", "set the redundancy status of a cell");
    const CLI::Option* cell = cellOption(set)->required();
    const CLI::Option* protocol =
        option(set, "--protocol", "P", "the redundancy protocol, a number; 3 is hot standby");
    const CLI::Option* capable =
        option(set, "--switchover-capable", "true|false", "whether the peer could take over now");
    const CLI::Option* force = forceFlag(set);
    set->callback([=, this] {
      const auto number = typed(protocol);
      const auto flag = typed(capable);
      commands(force).setRedundancy(
          cellOf(cell), number ? std::optional(u32Of("--protocol", *number)) : std::nullopt,
          flag ? std::optional(boolOf("--switchover-capable", *flag)) : std::nullopt);
    });
  }

  void addStatus() {
    CLI::App* status = command("status", "print how the database stands");
    CLI::Option* peer =
        named(option(status, "--peer-db", "URL", "tell of the peer supervisor's database as well"));
    CLI::Option* auth = named(
        option(status, "--peer-db-auth", "FILE", "like --db-auth, for --peer-db (default: none)"));
    auth->needs(peer);
    CLI::Option* agent = status->add_option("--agent")->type_name("[SOCKET]")->expected(0, 1);
    agent->description(
        "tell what a running agent serves, from its status socket (default: the one in " +
        std::string(kStatusFolder) + "); exit 0 only if all of it is fresh");
    CLI::Option* format = option(status, "--format", "json|table",
                                 "how to print what the agent tells (default: table)");
    format->needs(agent);
    CLI::Option* json = status->add_flag("--json")->needs(agent)->excludes(format);
    json->description("the same as --format json");
    agent->excludes(peer);
    status->callback([=, this] {
      if (agent->count() > 0) {
        const bool asJson = json->count() > 0 || formatIsJson(typed(format).value_or("table"));
        return printAgentStatus(text(agent), asJson, out_);
      }
      if (peer->count() == 0) return commands().status();
      const Kavra::StoreUrl peerUrl(text(peer), text(auth));
      commands().status(peerUrl.store(clock_), peerUrl.text());
    });
  }

  void addShow() {
    CLI::App* showing = command("show", "print why and when the supervisors reloaded, for people");
    const CLI::Option* cell = option(showing, "--cell", "N", kShownCellHelp);
    CLI::Option* json = flag(showing, "--json", "as a JSON document");
    flag(showing, "--utc", "times in UTC rather than in local time")->excludes(json);
    option(showing, "--color", "WHEN",
           "auto (default: on a terminal without NO_COLOR), always, never")
        ->excludes(json);
    const CLI::Option* evidence =
        flag(showing, "--evidence", "what each cause was concluded from, which no agent shows");
    const CLI::Option* agent = addAgent(showing);
    showing->callback([=, this] {
      if (evidence->count() > 0 && agent->count() > 0) {
        throw CommandError("--evidence: an agent shows no evidence; ask its database");
      }
      const auto style = json->count() > 0 ? std::nullopt : std::optional(styleOf(showing));
      show(reportFor(cell, agent, showing), style, *clock_, out_);
    });
  }

  void addCheck() {
    CLI::App* checking = command(
        kCheck, "tell systems like Nagios whether a supervisor reloaded: OK, WARNING, CRITICAL");
    const CLI::Option* cell = option(checking, "--cell", "N", kShownCellHelp);
    const CLI::Option* since =
        option(checking, "--since", "LENGTH", "how far back: 90s, 30min, 1h, 2d (default: 1h)");
    const CLI::Option* isRequestedOk =
        flag(checking, "--requested-ok", "a reload by request is OK rather than WARNING");
    const CLI::Option* agent = addAgent(checking);
    checking->callback([=, this] {
      const CheckOptions options{lengthTyped(since), isRequestedOk->count() > 0};
      conclude(check(reportFor(cell, agent, checking), clock_->now(), options));
    });
  }
  static double lengthTyped(const CLI::Option* since) {
    const std::string length = typed(since).value_or("1h");
    if (const auto seconds = lengthOf(length)) return *seconds;
    throw CommandError("--since: " + Qel::quoted(length) +
                       " is not a length of time like 90s, "
                       "30min, 1h or 2d");
  }
  void conclude(const CheckResult& result) {
    out_ << result.text;
    status_ = static_cast<int>(result.state);
  }

  Report reportFor(const CLI::Option* cell, const CLI::Option* agent, const CLI::App* command) {
    const auto number = cell->count() > 0 ? std::optional(cellOf(cell)) : std::nullopt;
    return agent->count() > 0 ? reportOf(sessionOf(command), number) : commands().report(number);
  }
  // Lets a command ask an agent.
  const CLI::Option* addAgent(CLI::App* command) {
    CLI::Option* agent = named(option(
        command, "--snmp", "HOST",
        "ask this agent rather than the database: [TRANSPORT:]HOST[:PORT], as snmpwalk takes it; "
        "communities and passphrases, and what else is not given, come from snmp.conf"));
    agent->excludes(db_)->excludes(auth_);
    addSession(command, agent);
    return agent;
  }

  // The options of a session, as net-snmp's own commands have them, but those that are secrets.
  static void addSession(CLI::App* command, CLI::Option* agent) {
    for (const auto& [name, type, help] :
         {std::tuple("-v", "1|2c|3",
                     "the version (default: snmp.conf's; 3 where a user is named, else 2c)"),
          {"-u", "USER", "the user, for version 3"},
          {"-l", "LEVEL", "noAuthNoPriv, authNoPriv or authPriv"},
          {"-a", "PROTOCOL", "of authentication: SHA-256, ..."},
          {"-x", "PROTOCOL", "of privacy: AES, ..."},
          {"-n", "CONTEXT", "the context"},
          {"-t", "SECONDS", "how long to wait before asking again"},
          {"-r", "RETRIES", "how often to ask again"}}) {
      named(option(command, name, type, help))->needs(agent);
    }
    for (const std::string name : {"-c", "-A", "-X"}) {
      const auto refuse = [name](const std::string&) -> std::string {
        throw CommandError(name +
                           ": a secret is not for the command line, where everybody sees it: see "
                           "defCommunity, defAuthPassphrase and defPrivPassphrase in snmp.conf(5)");
      };
      option(command, name.c_str(), "SECRET", "")->check(refuse)->group("");
    }
  }

  static SnmpOptions sessionOf(const CLI::App* command) {
    const auto of = [&](const char* name) { return typed(command->get_option(name)); };
    return {text(command->get_option("--snmp")),
            of("-v"),
            of("-u"),
            of("-l"),
            of("-a"),
            of("-x"),
            of("-n"),
            of("-t"),
            of("-r")};
  }

  ReportStyle styleOf(const CLI::App* showing) const {
    const std::string when = typed(showing->get_option("--color")).value_or("auto");
    if (when != "auto" && when != "always" && when != "never") {
      throw CommandError("--color: " + Qel::quoted(when) + " is not auto, always or never");
    }
    const bool isColoured = when == "always" || (when == "auto" && screen_.takesColour);
    return {screen_.columns, isColoured, showing->get_option("--utc")->count() > 0,
            showing->get_option("--evidence")->count() > 0};
  }

  static constexpr char kCheck[] = "check";
  static constexpr char kShownCellHelp[] =
      "this supervisor alone; with --snmp, 0 is the one that answers";
  static constexpr char kPathHelp[] = "names joined by '/', as kavra ls prints them";
  static constexpr char kPrefixHelp[] = "only paths that begin so (default: all)";
  static constexpr char kCauseHelp[] = "the description of a cause";
  static constexpr char kTimeHelp[] =
      "when, in seconds since 1970 or as 2026-11-21T16:00:00[.5][Z|+01:00], in local time without "
      "a zone (default: now)";

  std::istream& in_;
  std::ostream& out_;
  std::ostream& err_;
  const Screen screen_;
  const Qel::Ptr<Qel::Clock const> clock_ = Qel::activityManager()->clock();
  CLI::App app_{"The command line of the state database", "kavra"};
  CLI::Option* db_ = nullptr;
  CLI::Option* auth_ = nullptr;
  int status_ = 0;
};

}  // namespace

int runCommandLine(int argc, const char* const* argv, std::istream& in, std::ostream& out,
                   std::ostream& err, const Screen& screen) {
  Program program(in, out, err, screen);
  try {
    if (argc < 2) {
      out << program.app().help();
    } else {
      program.app().parse(argc, argv);
    }
    if (!out.flush()) throw CommandError("standard output takes no more");
    return program.status();
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return program.app().exit(error, out, err);
    return program.fail(program.problemOf(error));
  } catch (const Kavra::OwnedException& error) {
    return program.fail(std::string(error.what()) + "; --force edits it all the same");
  } catch (const std::exception& error) {
    return program.fail(error.what());
  }
}

}  // namespace Tools
