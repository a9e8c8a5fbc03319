#pragma once

#include <vector>

#include "MiscSnmp/GeneralMib.h"
#include "NorvekGeneralMIB/InProcessAgent.h"
#include "Qel/Dir.h"
#include "Qel/Ptr.h"
#include "Qel/Types.h"

namespace cost {

// An agent in this process that serves a table of `rows` causes of one reload, each "Fan failure",
// and a manager that asks it for one row after the other.
class GetNextWalk {
 public:
  explicit GetNextWalk(U32 rows);
  GetNextWalk(const GetNextWalk&) = delete;
  GetNextWalk& operator=(const GetNextWalk&) = delete;
  ~GetNextWalk();

  // Asks for the successor of each row but the last, in turn and in both columns alike, in `count`
  // requests of one varbind each. Expects the right one each time.
  void getNext(U32 count);

 private:
  const U32 rows_;
  const Qel::Ptr<Qel::Dir> root_ = Qel::make<Qel::Dir>("root");
  const Qel::Ptr<MiscSnmp::GeneralMib> model_ = MiscSnmp::generalMibFactory("generalMib");
};

}  // namespace cost
