#pragma once

namespace Host {

// Has net-snmp refuse, with file and line, every directive that it takes and this agent does not
// obey. Call before each pass in which net-snmp reads a configuration, and after it registered the
// directives of that pass.
void refuseWhatIsNotObeyed();

}  // namespace Host
