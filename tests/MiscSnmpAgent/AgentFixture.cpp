#include "MiscSnmpAgent/AgentFixture.h"

#include <utility>

#include "Qel/ActivityManager.h"
#include "Qel/Format.h"
#include "System/ResetCauseHistoryCodec.h"
#include "support/RunStep.h"

namespace MiscSnmp::Agent {

namespace {

Qel::String historyPath(U32 cell) { return Qel::format("cell/%u/sys/reset/history", cell); }

Qel::Document causeDocument(const System::ResetCause& cause) {
  return Qel::Document::Map{{"description", cause.description()}, {"time", cause.time()}};
}

}  // namespace

std::string textOf(const ReloadCauseKey& key) {
  return Qel::format("%u.%u.%u", key.unitIndex(), key.instanceIndex(), key.causeIndex())
      .stdString();
}

TableHook::TableHook(const Qel::Ptr<GeneralMib>& model, Call call)
    : GeneralMib::NotifieeConst(Qel::NotifierReference::plain), call_(std::move(call)) {
  notifierIs(model);
  isRegisteredNotifieeIs(true);
  hasNotificationActiveIs(true);
}

LastWords::LastWords(const Qel::Ptr<Qel::PtrInterface const>& entity, std::function<void()> call)
    : Qel::Entity::NotifieeConst(Qel::NotifierReference::plain), call_(std::move(call)) {
  notifierIs(entity);
  isRegisteredNotifieeIs(true);
  hasNotificationActiveIs(true);
}

void AgentFixture::RecordedCell::reloadIs(U32 index,
                                          std::initializer_list<System::ResetCause> causes) {
  fixture_.recorded_[id_][index] = causes;
  fixture_.publish(id_);
}

void AgentFixture::RecordedCell::reloadDel(U32 index) {
  fixture_.recorded_[id_].erase(index);
  fixture_.publish(id_);
}

void AgentFixture::RecordedCell::causeIs(const System::ResetCause& cause) {
  fixture_.recorded_[id_][0].push_back(cause);
  fixture_.publish(id_);
}

AgentFixture::AgentFixture()
    : status_(Qel::make<Redundancy::RedundancyStatus>("status")),
      model_(generalMibFactory("generalMib")),
      history_(Qel::make<System::ResetCauseHistory>("history")),
      feed_(Qel::make<support::DocumentFeed>()),
      entityManager_(Qel::make<Kavra::EntityManager>(feed_)) {
  Cell::cellIdIs(1);
  tableWatch_ = Qel::make<TableHook>(model_, [this](const ReloadCauseKey& key) {
    log_.note((model_->reloadCauseTable()[key] ? "+ " : "- ") + textOf(key));
  });
}

AgentFixture::~AgentFixture() { Cell::cellIdIs(1); }

void AgentFixture::settle() {
  while (Qel::activityManager()->run() > 0) {
  }
}

Qel::Ptr<ResetHistorySm> AgentFixture::made() {
  return ResetHistorySm::ResetHistorySmIs(status_, model_, history_, entityManager_, cellType_);
}

Qel::Ptr<ResetHistorySm> AgentFixture::started() {
  auto machine = made();
  machine->hasNotificationActiveIs(true);
  settle();
  return machine;
}

void AgentFixture::publish(U32 id) {
  Qel::Document::Map reloads;
  for (const auto& [index, causes] : recorded_[id]) {
    Qel::Document::List queue;
    for (const auto& cause : causes) queue.push_back(causeDocument(cause));
    reloads.emplace_back(Qel::format("%u", index),
                         Qel::Document::Map{{"causeQ", std::move(queue)}});
  }
  const Qel::Document document = Qel::Document::Map{{"type", "System::ResetCauseHistory"},
                                                    {"rebootHistory", std::move(reloads)}};
  if (id == Cell::cellId()) {
    System::ResetCauseHistoryCodec().decode(document)(*history_, support::runStep);
  } else {
    feed_->documentIs(historyPath(id), document);
  }
}

void AgentFixture::peerPublishesAnotherType() {
  feed_->documentIs(historyPath(3 - Cell::cellId()),
                    Qel::Document::Map{{"type", "Redundancy::RedundancyStatus"},
                                       {"protocol", U32{0}},
                                       {"switchoverCapable", false}});
}

bool AgentFixture::isOn(const Qel::Ptr<Qel::PtrInterface const>& object) {
  return object && object->hasNotificationActive();
}

std::vector<std::string> AgentFixture::rows() const {
  std::vector<std::string> rows;
  for (auto row = model_->reloadCauseTable().iteratorConst(); row; ++row) {
    rows.push_back(textOf(row.key()) + " " + row->causeDesc().stdString() + " @" +
                   std::to_string(row->reloadTime()));
  }
  return rows;
}

void AgentFixture::rowIs(const ReloadCauseKey& key) {
  model_->reloadCauseTableIs(key, Qel::make<System::ResetInstance>(0U));
}

}  // namespace MiscSnmp::Agent
