#pragma once

#include <string_view>

#include "Qel/Document.h"
#include "Qel/Entity.h"
#include "Qel/Name.h"
#include "Qel/Ptr.h"

namespace System {

// {"type": "System::ResetCauseHistory",
//  "rebootHistory": {"0": {"causeQ": [{"description": "...", "time": 1700000000.9,
//                                      "recommendedAction": "...", "detail": "..."}]}}}
//
// `description` and `time` are required; the two other texts default to empty. Qel/Limits.h tells
// how many there may be of each, and how long. A reload whose index
// stays present keeps its ResetInstance: only its causes change, as a whole.
//
// Flat fields: "n" reloads, then for each reload index R "R:n" causes, and for each cause C of it
// "R:C:d" description, "R:C:t" time, "R:C:a" recommended action, "R:C:b" detail. An empty history
// has no field.
class ResetCauseHistoryCodec final : public Qel::DocumentCodec {
 public:
  // Times beyond it, either way, are no seconds of any calendar.
  static constexpr double kMostTime = 9.0e15;

  std::string_view pathEnd() const override { return "sys/reset/history"; }
  Qel::Ptr<Qel::Entity> newEntity(const Qel::Name& name) const override;
  Change decode(const Qel::Document& document) const override;
  Fields fieldsOf(const Qel::Document& document) const override;
  Qel::Document documentOf(const Fields& fields) const override;
  Qel::Document canonicalFormOf(const Qel::Document& document) const override;
};

}  // namespace System
