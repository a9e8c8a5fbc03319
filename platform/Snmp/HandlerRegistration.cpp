#include "Snmp/HandlerRegistration.h"

namespace Snmp {

HandlerRegistration::~HandlerRegistration() = default;

}  // namespace Snmp
