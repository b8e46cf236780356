#pragma once
// One app per user: the first process owns com.tavrin.Tavrin on the session bus and takes the
// links later starts (and `tavrin open-url`) hand over, through OpenURL(s) and OpenURLs(as).
// Calls arrive on the bus's own thread and are carried out on the app's loop. Without a bus the
// app runs alone and nothing fails.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tavrin {

class EventLoop;

class AppBus {
public:
    using URLHandler = std::function<void(const std::string& url)>;

    enum class Claim {
        owned,        // this process is the app; links arrive at the handler
        ownedElsewhere,  // another process is the app
        noBus,        // no bus: run alone
    };

    // `busAddress` replaces the session bus's address (tests).
    AppBus(EventLoop& loop, URLHandler handler, std::optional<std::string> busAddress = std::nullopt);
    ~AppBus();
    AppBus(const AppBus&) = delete;
    AppBus& operator=(const AppBus&) = delete;

    // Exports the object and asks for the name.
    Claim claim();

    // Hands each link to the app that owns the name; false when one was not taken.
    static bool handOver(const std::vector<std::string>& urls, const std::optional<std::string>& busAddress);

private:
    struct Bus;
    EventLoop& loop_;
    URLHandler handler_;
    std::optional<std::string> busAddress_;
    std::unique_ptr<Bus> bus_;
};

}  // namespace tavrin
