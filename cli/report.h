// The load as the host saw it: the resolver's questions, the record version
// told, and the registrations.
#pragma once

#include <ostream>

namespace qvthost {

void PrintLoad(std::ostream &out, bool nilResolver, bool declarations);
// Host faults and undelivered exceptions; true when there were none.
bool PrintFaults(std::ostream &out);

}  // namespace qvthost
