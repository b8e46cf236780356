#include "app_bus.h"

#include <sdbus-c++/sdbus-c++.h>

#include "services/app_handoff.h"
#include "services/event_loop.h"
#include "services/session_bus.h"

namespace tavrin {

struct AppBus::Bus {
    std::unique_ptr<sdbus::IConnection> connection;
    std::unique_ptr<sdbus::IObject> object;
};

AppBus::AppBus(EventLoop& loop, URLHandler handler, std::optional<std::string> busAddress)
    : loop_(loop), handler_(std::move(handler)), busAddress_(std::move(busAddress)) {}

AppBus::~AppBus() {
    if (bus_ && bus_->connection) {
        try {
            bus_->connection->leaveEventLoop();
        } catch (const sdbus::Error&) {
        }
    }
}

AppBus::Claim AppBus::claim() {
    if (!mayReachSessionBus(busAddress_)) return Claim::noBus;
    auto bus = std::make_unique<Bus>();
    try {
        bus->connection = busAddress_ ? sdbus::createSessionBusConnectionWithAddress(*busAddress_)
                                      : sdbus::createSessionBusConnection();
    } catch (const sdbus::Error&) {
        return Claim::noBus;
    }
    // The bus thread only posts: the links are carried out on the loop, in order.
    auto& loop = loop_;
    auto handler = handler_;
    auto deliver = [&loop, handler](const std::string& url) { loop.post([handler, url] { handler(url); }); };
    try {
        bus->object = sdbus::createObject(*bus->connection, AppBusName::objectPath);
        bus->object->registerMethod(AppBusName::openURL).onInterface(AppBusName::interface).implementedAs(
            [deliver](const std::string& url) { deliver(url); });
        bus->object->registerMethod("OpenURLs").onInterface(AppBusName::interface).implementedAs(
            [deliver](const std::vector<std::string>& urls) {
                for (const auto& url : urls) deliver(url);
            });
        bus->object->finishRegistration();
    } catch (const sdbus::Error&) {
        return Claim::noBus;
    }
    try {
        bus->connection->requestName(AppBusName::service);
    } catch (const sdbus::Error&) {
        return Claim::ownedElsewhere;
    }
    bus->connection->enterEventLoopAsync();
    bus_ = std::move(bus);
    return Claim::owned;
}

bool AppBus::handOver(const std::vector<std::string>& urls, const std::optional<std::string>& busAddress) {
    bool all = true;
    for (const auto& url : urls)
        all = handURLToApp(url, busAddress, std::chrono::seconds(10)) == AppHandoffOutcome::handedOver && all;
    return all;
}

}  // namespace tavrin
