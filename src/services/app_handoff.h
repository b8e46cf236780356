#pragma once
// Hands tavrin: links to the desktop app, which owns its name on the session bus. A link that the
// app takes is carried out there, with its queue and windows; the command line carries out the
// others itself.

#include <chrono>
#include <optional>
#include <string>

namespace tavrin {

struct AppBusName {
    static constexpr const char* service = "com.tavrin.Tavrin";
    static constexpr const char* objectPath = "/com/tavrin/Tavrin";
    static constexpr const char* interface = "com.tavrin.Tavrin";
    static constexpr const char* openURL = "OpenURL";
};

enum class AppHandoffOutcome {
    handedOver,     // the app answered the call
    appNotRunning,  // no bus, or the name has no owner and the bus cannot start it
    appFailed,      // the name was there but the call failed or timed out
};

// Calls OpenURL(url) on the app when its name has an owner or the bus can start it (an
// activation file is installed). `busAddress` replaces the session bus's own address. Never
// throws.
AppHandoffOutcome handURLToApp(const std::string& url, const std::optional<std::string>& busAddress = std::nullopt,
                               std::chrono::milliseconds timeout = std::chrono::seconds(25));

}  // namespace tavrin
