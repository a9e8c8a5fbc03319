#pragma once

#include "Qel/Name.h"
#include "Qel/NotifieeConst.h"
#include "Qel/NotifieeList.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"

namespace Qel {

// A named, observable object that may stand under a parent.
//
// The parent is a plain pointer: it owns the child through the attribute named by
// parentAttribute() and detaches it (parentIs(null)) before it goes.
class Entity : public PtrInterface {
 public:
  // Base of the observers of entities; each entity type adds the notifications of its attributes.
  class NotifieeConst : public PtrInterface::NotifieeConst {
   public:
    using PtrInterface::NotifieeConst::NotifieeConst;
    // Binds to an Entity; anything else counts as null.
    void notifierIs(Ptr<PtrInterface const> notifier) override;
  };

  explicit Entity(const Name& name);
  ~Entity() override;

  virtual Name name() const { return name_; }
  // Takes the name that a restored state gives the entity.
  virtual void nameIsFromBackup(Name name);

  Entity* parent() const noexcept { return parent_; }
  const String& parentAttribute() const noexcept { return parentAttribute_; }
  void parentIs(Entity* parent, const String& parentAttribute);
  // Called after the parent changed.
  virtual void handleParent() {}

  // Passes the event on to every registered notifiee, whatever it says.
  void zeroReferencesIs(bool zeroReferences) override;
  NotifieeList* notifieeList() const override { return &notifiees_; }

 protected:
  // Calls `call` on every active observer of type Notifiee.
  template <class Notifiee, class Call>
  void notify(const Call& call) const {
    notifiees_.visitAs<Notifiee>(call);
  }
  // Deregisters every observer; the last words of an entity come before this.
  void notifieesDelAll() noexcept { notifiees_.clear(); }

 private:
  Name name_;
  Entity* parent_ = nullptr;
  String parentAttribute_;
  // Observing does not change what is observed.
  mutable NotifieeList notifiees_;
};

}  // namespace Qel
