#include "host/snmpd-module/Directives.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

#include "host/Errors.h"
#include "host/NetSnmp.h"

namespace Host {
namespace {

struct Directive {
  const char* name;  // in any case
  const char* option;
  const char* value;
};

// An option that begins like another one comes before it.
constexpr Directive kDirectives[] = {
    {"norvekDbAuth", "--db-auth", "FILE"},
    {"norvekDb", "--db", "URL"},
    {"norvekPeerDbAuth", "--peer-db-auth", "FILE"},
    {"norvekPeerDb", "--peer-db", "URL"},
    {"norvekCellId", "--cell-id", "N"},
    {"norvekCellType", "--cell-type", "TEXT"},
    {"norvekStatusSocket", "--status-socket", "PATH"},
    {"norvekTrace", "--trace", "FACILITY=LEVEL"},
    {"norvekPlugin", "--plugin", "FILE"},
};

}  // namespace

Directives* Directives::present_ = nullptr;

Directives::Directives() {
  present_ = this;
  for (const auto& [name, option, value] : kDirectives) {
    snmpd_register_config_handler(name, &Directives::take, nullptr, value);
  }
}

Directives::~Directives() {
  for (const Directive& directive : kDirectives) snmpd_unregister_config_handler(directive.name);
  present_ = nullptr;
}

void Directives::take(const char* typed, char* value) {
  const auto* directive = std::ranges::find_if(kDirectives, [typed](const Directive& known) {
    return ::strcasecmp(known.name, typed) == 0;
  });
  if (present_ == nullptr || directive == std::end(kDirectives)) return;
  present_->arguments_.push_back(fmt::format("{}={}", directive->option, value));
}

Options Directives::options() const {
  const auto isDatabase = [](const std::string& argument) { return argument.starts_with("--db="); };
  if (std::ranges::none_of(arguments_, isDatabase)) {
    throw UsageError("no line norvekDb after the line dlmod: nothing is served");
  }
  return readOptions(arguments_);
}

std::string inDirectives(std::string text) {
  for (const auto& [name, option, value] : kDirectives) {
    const std::string_view typed(option);
    for (std::size_t at = 0; (at = text.find(typed, at)) != std::string::npos;) {
      text.replace(at, typed.size(), name);
    }
  }
  return text;
}

}  // namespace Host
