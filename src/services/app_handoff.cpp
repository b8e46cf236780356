#include "services/app_handoff.h"

#include <algorithm>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

#include "services/session_bus.h"

namespace tavrin {

AppHandoffOutcome handURLToApp(const std::string& url, const std::optional<std::string>& busAddress,
                               std::chrono::milliseconds timeout) {
    if (!mayReachSessionBus(busAddress)) return AppHandoffOutcome::appNotRunning;
    std::unique_ptr<sdbus::IConnection> connection;
    try {
        connection = busAddress ? sdbus::createSessionBusConnectionWithAddress(*busAddress)
                                : sdbus::createSessionBusConnection();
    } catch (const sdbus::Error&) {
        return AppHandoffOutcome::appNotRunning;
    }
    try {
        auto bus = sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
        bool present = false;
        bus->callMethod("NameHasOwner").onInterface("org.freedesktop.DBus").withArguments(std::string(AppBusName::service)).storeResultsTo(present);
        if (!present) {
            std::vector<std::string> activatable;
            bus->callMethod("ListActivatableNames").onInterface("org.freedesktop.DBus").storeResultsTo(activatable);
            present = std::find(activatable.begin(), activatable.end(), AppBusName::service) != activatable.end();
        }
        if (!present) return AppHandoffOutcome::appNotRunning;
    } catch (const sdbus::Error&) {
        return AppHandoffOutcome::appNotRunning;
    }
    try {
        auto app = sdbus::createProxy(*connection, AppBusName::service, AppBusName::objectPath);
        app->callMethod(AppBusName::openURL).onInterface(AppBusName::interface).withTimeout(timeout).withArguments(url);
        return AppHandoffOutcome::handedOver;
    } catch (const sdbus::Error&) {
        return AppHandoffOutcome::appFailed;
    }
}

}  // namespace tavrin
