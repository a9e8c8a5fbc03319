#include "NorvekGeneralMIB/NorvekGeneralMIB_HandlerRegistration.h"

#include "NorvekGeneralMIB/NorvekGeneralMIB.h"

namespace NorvekGeneralMIB {

void NorvekGeneralMIB_HandlerRegistration::initHandler(Qel::String context) {
  init_NorvekGeneralMIB(context);
}

}  // namespace NorvekGeneralMIB
