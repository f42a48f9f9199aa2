// Calls a fixed tour of registered methods on sample blocks.
#pragma once

#include <ostream>

namespace qvthost {

// Prints each step whose declaration is registered; true when every step
// left the references balanced.
bool RunTour(std::ostream &out);

}  // namespace qvthost
