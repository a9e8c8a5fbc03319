#pragma once

#include <gtest/gtest.h>

#include <cstddef>

#include "Qel/ActivityManager.h"
#include "Qel/PtrInterface.h"

namespace support {

// Base of a fixture (beside testing::Test) that expects as many live counted objects at its end as
// there were at its start. It looks after the members of the fixture have gone, so they need no
// resetting in TearDown.
class LiveObjects {
 public:
  LiveObjects(const LiveObjects&) = delete;
  LiveObjects& operator=(const LiveObjects&) = delete;

 protected:
  LiveObjects() {
    // Made on first use and then kept by the process: not to be taken for a leak.
    Qel::activityManager();
    atStart_ = Qel::PtrInterface::liveObjects();
  }
  ~LiveObjects() { EXPECT_EQ(newObjects(), 0) << "objects were left over"; }

  // How many more objects live now than at the start.
  std::ptrdiff_t newObjects() const {
    return static_cast<std::ptrdiff_t>(Qel::PtrInterface::liveObjects()) -
           static_cast<std::ptrdiff_t>(atStart_);
  }

 private:
  std::size_t atStart_ = 0;
};

// The plain fixture with that expectation.
class LiveObjectsTest : public LiveObjects, public testing::Test {};

}  // namespace support
