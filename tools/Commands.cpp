#include "tools/Commands.h"

#include <fmt/format.h>

#include <cstddef>
#include <utility>

#include "Kavra/CheckedDocument.h"
#include "Kavra/Json/Text.h"
#include "Kavra/Path.h"
#include "Kavra/Status.h"
#include "Qel/String.h"
#include "tools/Errors.h"
#include "tools/HistoryEdit.h"

namespace Tools {

namespace {

using Kavra::Store;
using Kavra::Json::Form;
using Qel::Document;

constexpr char kHistoryType[] = "System::ResetCauseHistory";
constexpr char kRedundancyType[] = "Redundancy::RedundancyStatus";

std::string historyPath(U32 cell) { return fmt::format("cell/{}/sys/reset/history", cell); }
std::string redundancyPath(U32 cell) { return fmt::format("cell/{}/redundancy/status", cell); }

[[noreturn]] void throwNotPublished(const std::string& path) {
  throw CommandError(path + " is not published");
}

Document parsed(const std::string& json, const std::string& source) {
  try {
    return Kavra::Json::read(json);
  } catch (const Kavra::Json::Exception& error) {
    throw CommandError(source + ": " + error.what());
  }
}

void needGood(const std::string& path, const Document& present, const char* type) {
  const Kavra::CheckedDocument checked(Qel::String(path), present);
  if (checked.fits() && checked.type == type) return;
  const std::string why = checked.fits() ? "is of type " + checked.type.stdString()
                                         : "does not fit: " + checked.misfit.stdString();
  throw CommandError(fmt::format("{}: the published document {}", path, why));
}

}  // namespace

void Commands::ls(const std::string& prefix) {
  for (const auto& [path, document] : store_->documents(Qel::String(prefix))) {
    out_ << path << '\n';
  }
}

void Commands::get(const std::string& path) {
  Kavra::needPath(Qel::String(path));
  const Store::Documents documents = store_->documents(Qel::String(path));
  const auto found = documents.find(Qel::String(path));
  if (found == documents.end()) throwNotPublished(path);
  out_ << Kavra::Json::write(found->second, Form::pretty) << '\n';
}

void Commands::put(const std::string& path, const std::string& json, const std::string& source) {
  const Document document = parsed(json, source);
  store_->documentIs(Qel::String(path), document);
}

void Commands::del(const std::string& path) {
  if (store_->documentDel(Qel::String(path))) return;
  Kavra::needPath(Qel::String(path));
  throwNotPublished(path);
}

void Commands::edit(const std::string& path, const char* type,
                    const std::function<Document(const Document*)>& edit) {
  store_->update({Qel::String(path)}, [&](Store::Documents& documents) {
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
  std::vector<Cause> recorded;
  for (std::size_t i = 0; i < causes.size(); ++i) {
    recorded.push_back({Qel::String(causes[i]), i < times.size() ? times[i] : now});
  }
  edit(historyPath(cell), kHistoryType,
       [&](const Document* present) { return withReload(present, recorded); });
}

void Commands::addCause(U32 cell, const std::string& cause, const std::optional<double>& time) {
  const Cause added{Qel::String(cause), time.value_or(clock_->now())};
  const std::string path = historyPath(cell);
  edit(path, kHistoryType, [&](const Document* present) { return withCause(present, added); });
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

void Commands::status(const std::string& url) {
  out_ << Kavra::Json::write(Kavra::documentOf(store_->status(), Qel::String(url)), Form::pretty)
       << '\n';
}

void Commands::status(const std::string& url, const Qel::Ptr<Store>& peer,
                      const std::string& peerUrl) {
  Document::Map both = Kavra::documentOf(store_->status(), Qel::String(url));
  both.emplace_back("peer", Kavra::documentOf(peer->status(), Qel::String(peerUrl)));
  out_ << Kavra::Json::write(both, Form::pretty) << '\n';
}

}  // namespace Tools
