#include "tools/Commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include "Kavra/CheckedDocument.h"
#include "Kavra/Json/Text.h"
#include "Kavra/Path.h"
#include "Kavra/Status.h"
#include "Qel/Escape.h"
#include "Qel/Failure.h"
#include "Qel/Number.h"
#include "Qel/String.h"
#include "System/HistoryEdit.h"
#include "tools/Errors.h"
#include "tools/Suggestion.h"
#include "tools/Time.h"

namespace Tools {

namespace {

using Kavra::Store;
using Kavra::Json::Form;
using Qel::Document;

constexpr char kHistoryType[] = "System::ResetCauseHistory";
constexpr char kRedundancyType[] = "Redundancy::RedundancyStatus";

constexpr char kCells[] = "cell/";

std::string historyPath(U32 cell) { return fmt::format("cell/{}/sys/reset/history", cell); }
std::string redundancyPath(U32 cell) { return fmt::format("cell/{}/redundancy/status", cell); }

// The cell that a path is of.
std::optional<U32> cellOf(std::string_view path) {
  if (!path.starts_with(kCells)) return {};
  path.remove_prefix(std::size(kCells) - 1);
  return Qel::numberOf<U32>(path.substr(0, path.find('/')));
}

// What the path of a cell's document is for; null for any other path.
const char* typeFor(const std::string& path) {
  const auto cell = cellOf(path);
  if (!cell) return nullptr;
  if (path == historyPath(*cell)) return kHistoryType;
  return path == redundancyPath(*cell) ? kRedundancyType : nullptr;
}

std::string nothingUnder(const std::string& path) { return "nothing is published under " + path; }

std::vector<std::string> pathsOf(const Store::Listing& listing) {
  std::vector<std::string> paths;
  for (const auto& [path, time] : listing) paths.push_back(path.stdString());
  return paths;
}

// The paths, and those above them.
std::vector<std::string> prefixesOf(const Store::Listing& listing) {
  std::set<std::string> prefixes;
  for (const std::string& path : pathsOf(listing)) {
    for (std::size_t end = path.find('/'); end != std::string::npos;
         end = path.find('/', end + 1)) {
      prefixes.insert(path.substr(0, end));
    }
    prefixes.insert(path);
  }
  return {prefixes.begin(), prefixes.end()};
}

void needReachable(const Kavra::Status& status, const std::string& url) {
  if (status.reachable) return;
  throw CommandError(status.problem.empty() ? url + " cannot be read" : status.problem.stdString());
}

Document parsed(const std::string& json, const std::string& source) {
  try {
    return Kavra::Json::read(json);
  } catch (const Kavra::Json::Exception& error) {
    throw CommandError(source + ": " + error.what());
  }
}

// Whoever follows the path would refuse a document of another type. What fits none is for the store
// to refuse.
void needTypeForPath(const std::string& path, const Document& document) {
  const char* type = typeFor(path);
  if (type == nullptr) return;
  const Kavra::CheckedDocument checked(Qel::String(path), document);
  if (!checked.fits() || checked.type == type) return;
  throw CommandError(fmt::format("{}: the path is for {}, the document is of type {}", path, type,
                                 checked.type.view()));
}

std::string problemOf(const std::string& path, const Document& present, const char* type) {
  // What the store gives in the place of what it cannot read.
  const auto* unreadable = present.memberAs<Qel::String>("unreadable");
  if (unreadable != nullptr && present.member("type") == nullptr) {
    return "what is published there cannot be read: " + unreadable->stdString();
  }
  const Kavra::CheckedDocument checked(Qel::String(path), present);
  if (!checked.fits()) return "the published document does not fit: " + checked.misfit.stdString();
  if (checked.type == type) return {};
  return "the published document is of type " + checked.type.stdString();
}

void needGood(const std::string& path, const Document& present, const char* type) {
  const std::string problem = problemOf(path, present, type);
  if (problem.empty()) return;
  throw CommandError(
      fmt::format("{}: {}; kavra del takes it away, kavra put replaces it", path, problem));
}

}  // namespace

Store::Listing Commands::listing(const std::string& prefix) {
  Store::Listing listing = store_->listing(Qel::String(prefix));
  if (!listing.empty() || prefix.empty()) return listing;
  if (const auto near = suggestionFor(prefix, prefixesOf(store_->listing({})))) {
    err_ << "kavra: " << Qel::printableLine(nothingUnder(prefix) + didYouMean(near)) << '\n';
  }
  return listing;
}

void Commands::ls(const std::string& prefix) {
  for (const auto& [path, time] : listing(prefix)) {
    out_ << Qel::printableLine(path.view()) << '\n';
  }
}

void Commands::lsLong(const std::string& prefix, bool utc) {
  const double now = clock_->now();
  for (const auto& [path, time] : listing(prefix)) {
    const std::string when = time ? timeText(*time, utc) : "-";
    out_ << fmt::format("{:<{}}  {:>6}  {}\n", when, utc ? 20 : 25,
                        time ? ageText(now - *time) : "-", Qel::printableLine(path.view()));
  }
}

void Commands::throwNotPublished(const std::string& path) {
  std::vector<std::string> paths;
  // What cannot be listed suggests nothing.
  (void)Qel::failureOf([&] { paths = pathsOf(store_->listing({})); });
  throw CommandError(nothingUnder(path) + didYouMean(suggestionFor(path, paths)));
}

void Commands::get(const std::string& path) {
  Kavra::needPath(Qel::String(path));
  const Store::Documents documents = store_->documents(Qel::String(path));
  const auto found = documents.find(Qel::String(path));
  if (found == documents.end()) throwNotPublished(path);
  out_ << Kavra::Json::writePrintable(found->second, Form::pretty);
}

void Commands::update(const std::string& path, const Store::Edit& edit) {
  store_->update({Qel::String(path)}, edit);
  tellCreated();
}

void Commands::tellCreated() {
  if (store_->wasCreated()) err_ << "kavra: created " << Qel::printableLine(url_) << '\n';
}

void Commands::put(const std::string& path, const std::string& json, const std::string& source) {
  const Document document = parsed(json, source);
  needTypeForPath(path, document);
  store_->documentIs(Qel::String(path), document);
  tellCreated();
}

void Commands::del(const std::string& path) {
  if (store_->documentDel(Qel::String(path))) return;
  Kavra::needPath(Qel::String(path));
  throwNotPublished(path);
}

void Commands::edit(const std::string& path, const char* type,
                    const std::function<Document(const Document*)>& edit) {
  update(path, [&](Store::Documents& documents) {
    const auto found = documents.find(Qel::String(path));
    const Document* present = found == documents.end() ? nullptr : &found->second;
    if (present != nullptr) needGood(path, *present, type);
    documents.insert_or_assign(Qel::String(path), edit(present));
  });
}

void Commands::recordReset(U32 cell, const std::vector<std::string>& causes,
                           const std::vector<double>& times) {
  if (times.size() > causes.size()) {
    throw CommandError(
        fmt::format("more times than causes: {} for {}", times.size(), causes.size()));
  }
  const double now = clock_->now();
  std::vector<System::RecordedCause> recorded;
  for (std::size_t i = 0; i < causes.size(); ++i) {
    recorded.push_back({Qel::String(causes[i]), i < times.size() ? times[i] : now});
  }
  edit(historyPath(cell), kHistoryType,
       [&](const Document* present) { return System::withReload(present, recorded); });
}

void Commands::addCause(U32 cell, const std::string& cause, const std::optional<double>& time) {
  const System::RecordedCause added{Qel::String(cause), time.value_or(clock_->now())};
  const std::string path = historyPath(cell);
  edit(path, kHistoryType,
       [&](const Document* present) { return System::withCause(present, added); });
}

void Commands::setRedundancy(U32 cell, const std::optional<U32>& protocol,
                             const std::optional<bool>& switchoverCapable) {
  edit(redundancyPath(cell), kRedundancyType, [&](const Document* present) {
    const Document* presentProtocol = present == nullptr ? nullptr : present->member("protocol");
    const Document* presentCapable =
        present == nullptr ? nullptr : present->member("switchoverCapable");
    Document newProtocol = presentProtocol == nullptr ? Document(U32{0}) : *presentProtocol;
    Document newCapable = presentCapable == nullptr ? Document(false) : *presentCapable;
    if (protocol) newProtocol = *protocol;
    if (switchoverCapable) newCapable = *switchoverCapable;
    return Document(Document::Map{{"type", kRedundancyType},
                                  {"protocol", std::move(newProtocol)},
                                  {"switchoverCapable", std::move(newCapable)}});
  });
}

Report Commands::report(const std::optional<U32>& cell) {
  Report report{url_, {}, {}};
  const std::string prefix = cell ? historyPath(*cell) : kCells;
  for (const auto& [path, document] : store_->documents(Qel::String(prefix))) {
    const auto number = cellOf(path.view());
    if (!number || path.stdString() != historyPath(*number)) continue;
    const std::string problem = problemOf(path.stdString(), document, kHistoryType);
    if (problem.empty()) {
      report.cells.push_back({*number, false, reloadsOf(document)});
    } else {
      report.problems.push_back(path.stdString() + ": " + problem);
    }
  }
  if (cell && report.cells.empty() && report.problems.empty()) throwNotPublished(prefix);
  std::ranges::sort(report.cells, {}, &ReportedCell::cell);
  return report;
}

void Commands::status() {
  const Kavra::Status status = store_->status();
  out_ << Kavra::Json::writePrintable(Kavra::documentOf(status, Qel::String(url_)), Form::pretty);
  needReachable(status, url_);
}

void Commands::status(const Qel::Ptr<Store>& peer, const std::string& peerUrl) {
  const Kavra::Status own = store_->status();
  const Kavra::Status other = peer->status();
  Document::Map both = Kavra::documentOf(own, Qel::String(url_));
  both.emplace_back("peer", Kavra::documentOf(other, Qel::String(peerUrl)));
  out_ << Kavra::Json::writePrintable(both, Form::pretty);
  needReachable(own, url_);
  needReachable(other, peerUrl);
}

}  // namespace Tools
