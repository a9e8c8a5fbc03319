#pragma once

#include "Qel/Entity.h"
#include "Qel/Name.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Redundancy/RedundancyProtocol.h"

namespace Redundancy {

// The redundancy status of a supervisor as the platform publishes it.
//
// Each setter compares, stores and then notifies; equal values are silent.
class RedundancyStatus final : public Qel::Entity {
 public:
  // An observer overrides what it follows; every reaction is empty here. Only the first two are
  // ever called by this stand-in, which has no other attribute.
  class NotifieeConst : public Qel::Entity::NotifieeConst {
   public:
    using Qel::Entity::NotifieeConst::NotifieeConst;
    void notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) override;
    // The watched status, or null.
    Qel::Ptr<RedundancyStatus const> redundancyStatus() const;

    virtual void onProtocol() {}
    virtual void onSwitchoverCapable() {}
    virtual void onMode() {}
    virtual void onSwitchoverStage() {}
    virtual void onHwMode() {}
    virtual void onActiveCellId() {}
    virtual void onPeerMode() {}
    virtual void onPeerState() {}
    virtual void onPeerActive() {}
    virtual void onInitialized() {}
  };

  explicit RedundancyStatus(const Qel::Name& name) : Qel::Entity(name) {}

  RedundancyProtocol protocol() const noexcept { return protocol_; }
  void protocolIs(RedundancyProtocol protocol) { statusIs(protocol, switchoverCapable_); }

  // Whether the peer could take over now.
  bool switchoverCapable() const noexcept { return switchoverCapable_; }
  void switchoverCapableIs(bool capable) { statusIs(protocol_, capable); }

  // Stores both before anyone is told of either. Tells of both, whatever observers raise, and
  // then raises the first error.
  void statusIs(RedundancyProtocol protocol, bool switchoverCapable);

  const Qel::TypeNode* fwkType() const override;

 private:
  RedundancyProtocol protocol_ = RedundancyProtocol::none;
  bool switchoverCapable_ = false;
};

}  // namespace Redundancy
