#include "services/notification_service.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string_view>
#include <mutex>
#include <vector>

#include <sdbus-c++/sdbus-c++.h>

#include "services/session_bus.h"

namespace tavrin {

namespace {

constexpr const char* members[] = {"queueUpdated", "processingComplete", "presetChanged"};

std::unique_ptr<sdbus::IConnection> connect(const std::optional<std::string>& address) {
    if (!mayReachSessionBus(address)) throw sdbus::Error("org.freedesktop.DBus.Error.NoServer", "no session bus");
    return address ? sdbus::createSessionBusConnectionWithAddress(*address) : sdbus::createSessionBusConnection();
}

}  // namespace

// The handlers, shared with tasks posted to the loop, so that a signal that arrives as the
// service goes finds them gone instead of finding freed memory.
struct NotificationService::Observers {
    std::mutex mutex;
    bool closed = false;
    ObserverToken nextToken = 1;
    std::map<ObserverToken, std::pair<std::string, std::shared_ptr<Handler>>> handlers;

    // On the loop's thread.
    void deliver(const std::string& member) {
        std::vector<std::shared_ptr<Handler>> due;
        {
            std::lock_guard lock(mutex);
            if (closed) return;
            for (const auto& [token, entry] : handlers)
                if (entry.first == member) due.push_back(entry.second);
        }
        for (const auto& handler : due) {
            // A handler removed by one called before it in this round stays silent.
            bool stillThere = false;
            {
                std::lock_guard lock(mutex);
                for (const auto& [token, entry] : handlers) stillThere = stillThere || entry.second == handler;
            }
            if (stillThere) (*handler)();
        }
    }
};

// Two connections: one that only sends, used from any thread under a lock, and one whose own
// thread receives, so that neither is used by two threads at once.
struct NotificationService::Bus {
    std::optional<std::string> address;
    std::mutex postMutex;
    bool postUnavailable = false;
    std::unique_ptr<sdbus::IConnection> postConnection;
    std::unique_ptr<sdbus::IObject> object;

    std::mutex observeMutex;
    bool observeUnavailable = false;
    std::unique_ptr<sdbus::IConnection> observeConnection;
    std::optional<sdbus::Slot> match;

    ~Bus() {
        if (observeConnection) {
            try {
                observeConnection->leaveEventLoop();
            } catch (...) {
            }
        }
        match.reset();
    }
};

NotificationService::NotificationService(EventLoop& loop, std::optional<std::string> busAddress)
    : loop_(loop), bus_(std::make_unique<Bus>()), observers_(std::make_shared<Observers>()) {
    bus_->address = std::move(busAddress);
}

NotificationService::~NotificationService() {
    {
        std::lock_guard lock(observers_->mutex);
        observers_->closed = true;
    }
    bus_.reset();
}

bool NotificationService::isConnected() const {
    std::scoped_lock lock(bus_->postMutex, bus_->observeMutex);
    return bus_->postConnection != nullptr || bus_->observeConnection != nullptr;
}

void NotificationService::post(const char* member) {
    std::lock_guard lock(bus_->postMutex);
    if (bus_->postUnavailable) return;
    try {
        if (!bus_->postConnection) {
            bus_->postConnection = connect(bus_->address);
            bus_->object = sdbus::createObject(*bus_->postConnection, TavrinNotification::objectPath);
            for (const char* name : members) bus_->object->registerSignal(TavrinNotification::interfaceName, name, "");
            bus_->object->finishRegistration();
        }
        bus_->object->emitSignal(member).onInterface(TavrinNotification::interfaceName);
        // Nothing else drives this connection: send now rather than at some later call.
        while (bus_->postConnection->processPendingRequest()) {
        }
    } catch (const sdbus::Error&) {
        // No bus, or it went away: an announcement is a courtesy and its loss is no failure.
        bus_->object.reset();
        bus_->postConnection.reset();
        bus_->postUnavailable = true;
    }
}

void NotificationService::postQueueUpdated() { post("queueUpdated"); }
void NotificationService::postProcessingComplete() { post("processingComplete"); }
void NotificationService::postPresetChanged() { post("presetChanged"); }

NotificationService::ObserverToken NotificationService::observe(const char* member, Handler handler) {
    loop_.assertOnLoopThread("NotificationService.observe");
    ObserverToken token = 0;
    {
        std::lock_guard lock(observers_->mutex);
        token = observers_->nextToken++;
        observers_->handlers.emplace(token, std::make_pair(std::string(member), std::make_shared<Handler>(std::move(handler))));
    }
    std::lock_guard lock(bus_->observeMutex);
    if (bus_->observeConnection || bus_->observeUnavailable) return token;
    try {
        auto connection = connect(bus_->address);
        const std::string rule = std::string("type='signal',path='") + TavrinNotification::objectPath + "',interface='" +
                                 TavrinNotification::interfaceName + "'";
        // Runs on the bus thread: the signal goes to the loop, where the handlers live.
        bus_->match = connection->addMatch(rule, [&loop = loop_, observers = std::weak_ptr(observers_)](sdbus::Message& message) {
            auto member = message.getMemberName();
            loop.post([observers, member = std::move(member)] {
                if (auto alive = observers.lock()) alive->deliver(member);
            });
        });
        connection->enterEventLoopAsync();
        bus_->observeConnection = std::move(connection);
    } catch (const sdbus::Error&) {
        bus_->match.reset();
        bus_->observeUnavailable = true;
    }
    return token;
}

NotificationService::ObserverToken NotificationService::observeQueueUpdated(Handler handler) {
    return observe("queueUpdated", std::move(handler));
}
NotificationService::ObserverToken NotificationService::observeProcessingComplete(Handler handler) {
    return observe("processingComplete", std::move(handler));
}
NotificationService::ObserverToken NotificationService::observePresetChanged(Handler handler) {
    return observe("presetChanged", std::move(handler));
}

void NotificationService::removeObserver(ObserverToken token) {
    loop_.assertOnLoopThread("NotificationService.removeObserver");
    std::lock_guard lock(observers_->mutex);
    observers_->handlers.erase(token);
}

}  // namespace tavrin
