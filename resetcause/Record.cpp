#include "resetcause/Record.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "Kavra/CheckedDocument.h"
#include "Qel/Document.h"
#include "Qel/Escape.h"
#include "Qel/Limits.h"
#include "Qel/Utf8.h"
#include "System/HistoryEdit.h"
#include "resetcause/Report.h"
#include "resetcause/Root.h"

namespace ResetCause {

namespace {

using Qel::Document;
using Qel::String;

constexpr char kHistory[] = "System::ResetCauseHistory";

// By which the reload is known again.
std::string markOf(const Boots& boots) { return fmt::format("boot: {}\n", boots.id); }

double timeOf(const Cause& cause, const Boots& boots) {
  if (cause.time) return *cause.time;
  return cause.since.value_or(boots.start);
}

// Whole characters of the text, up to so many octets.
std::string cutTo(std::string text, std::size_t most) {
  if (text.size() <= most) return text;
  std::size_t end = 0;
  while (true) {
    const std::size_t size =
        std::max<std::size_t>(1, Qel::utf8CharacterSize(std::string_view(text).substr(end)));
    if (end + size > most) break;
    end += size;
  }
  text.resize(end);
  return text;
}

std::vector<System::RecordedCause> recordedOf(const Judgement& judgement) {
  std::vector<System::RecordedCause> causes;
  const auto add = [&](const Cause& cause) {
    const std::string detail = markOf(judgement.boots) + detailText(cause, judgement.boots);
    causes.push_back({String(descriptionOf(cause)), timeOf(cause, judgement.boots),
                      String(cutTo(Qel::printableLine(cause.action), Qel::Limits::kMostTextOctets)),
                      String(cutTo(detail, Qel::Limits::kMostTextOctets))});
  };
  add(judgement.verdict.cause);
  for (const Cause& cause : judgement.verdict.beside) add(cause);
  return causes;
}

bool isRecorded(const Document& history, const std::string& mark) {
  const auto* reloads = history.memberAs<Document::Map>("rebootHistory");
  if (reloads == nullptr) return false;
  return std::ranges::any_of(*reloads, [&](const Document::Map::value_type& reload) {
    const auto* causes = reload.second.memberAs<Document::List>("causeQ");
    if (causes == nullptr || causes->empty()) return false;
    const auto* detail = causes->front().memberAs<String>("detail");
    return detail != nullptr && detail->view().starts_with(mark);
  });
}

void needHistory(const String& path, const Document& present) {
  const Kavra::CheckedDocument checked(path, present);
  if (checked.fits() && checked.type.view() == kHistory) return;
  throw SourceException(String(fmt::format(
      "{}: what is published there is no history; kavra del takes it away", path.view())));
}

}  // namespace

std::string descriptionOf(const Cause& cause) {
  return cutTo(Qel::printableLine(cause.text), Qel::Limits::kMostDescriptionOctets);
}

void record(Kavra::Store& store, U32 cell, const Judgement& judgement) {
  const String path(fmt::format("cell/{}/sys/reset/history", cell));
  store.update({path}, [&](Kavra::Store::Documents& documents) {
    const auto found = documents.find(path);
    const Document* present = found == documents.end() ? nullptr : &found->second;
    if (present != nullptr) {
      needHistory(path, *present);
      if (isRecorded(*present, markOf(judgement.boots))) return;
    }
    documents.insert_or_assign(path, System::withReload(present, recordedOf(judgement)));
  });
}

}  // namespace ResetCause
