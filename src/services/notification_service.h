#pragma once
// Tells the processes of one user that something changed (the queue, a finished run, a preset),
// as D-Bus session-bus signals without arguments: object path /com/tavrin/notifications,
// interface com.tavrin.notifications, members queueUpdated, processingComplete and
// presetChanged. A receiver learns only that something changed and reads the store again.
// Without a session bus, posting does nothing and observers never fire; nothing fails.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "services/event_loop.h"

namespace tavrin {

namespace TavrinNotification {
// The names of the announcements, as the rest of the system calls them.
inline constexpr const char* queueUpdated = "com.tavrin.queueUpdated";
inline constexpr const char* processingComplete = "com.tavrin.processingComplete";
inline constexpr const char* presetChanged = "com.tavrin.presetChanged";
inline constexpr const char* object = "com.tavrin.notifications";
inline constexpr const char* senderIdentifier = "com.halvorn.tavrin";
// Their form on the bus.
inline constexpr const char* objectPath = "/com/tavrin/notifications";
inline constexpr const char* interfaceName = "com.tavrin.notifications";
}  // namespace TavrinNotification

class NotificationService {
public:
    using ObserverToken = std::uint64_t;
    using Handler = std::function<void()>;

    // Observed signals are delivered on `loop`'s thread. `busAddress` names a bus other than the
    // user's session bus (tests start their own).
    explicit NotificationService(EventLoop& loop, std::optional<std::string> busAddress = std::nullopt);
    ~NotificationService();
    NotificationService(const NotificationService&) = delete;
    NotificationService& operator=(const NotificationService&) = delete;

    // Safe from any thread; never fail.
    void postQueueUpdated();
    void postProcessingComplete();
    void postPresetChanged();

    // On the loop's thread. The handler runs on the loop's thread, with no payload, for each
    // signal of that name from any process of the user (this one included) until removed.
    ObserverToken observeQueueUpdated(Handler handler);
    ObserverToken observeProcessingComplete(Handler handler);
    ObserverToken observePresetChanged(Handler handler);
    // On the loop's thread; after it returns the handler is not called again. Unknown tokens are
    // ignored.
    void removeObserver(ObserverToken token);

    // True once a connection to the bus was made (for posting or observing).
    bool isConnected() const;

private:
    struct Bus;
    struct Observers;
    void post(const char* member);
    ObserverToken observe(const char* member, Handler handler);

    EventLoop& loop_;
    std::unique_ptr<Bus> bus_;
    std::shared_ptr<Observers> observers_;
};

}  // namespace tavrin
