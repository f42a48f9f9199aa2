// Ways for a test to make the host misbehave on purpose.
#include <utility>

#include "simhost/state.h"

namespace simhost {

using namespace detail;

void ThrowOnNextCall(std::string entry, std::function<void()> raise) {
    HostLock lock(State().mutex);
    State().armedEntry = std::move(entry);
    State().armedThrow = std::move(raise);
    UpdatePlain();
}

}  // namespace simhost
