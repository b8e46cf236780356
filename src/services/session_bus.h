#pragma once
// Reaching the user's session bus without waiting or failing when there is none.

#include <optional>
#include <string>

namespace tavrin {

// False when no bus can be there: every address is a socket path that does not exist, or no
// address is known at all (`given`, else $DBUS_SESSION_BUS_ADDRESS, else $XDG_RUNTIME_DIR/bus).
// A failed connection attempt costs the bus library memory that it never frees, so hopeless
// attempts are not made.
bool mayReachSessionBus(const std::optional<std::string>& given);

}  // namespace tavrin
