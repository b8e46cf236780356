#include "services/session_bus.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace tavrin {

bool mayReachSessionBus(const std::optional<std::string>& given) {
    std::string addresses;
    if (given) addresses = *given;
    else if (const char* env = std::getenv("DBUS_SESSION_BUS_ADDRESS"); env && *env) addresses = env;
    else if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime)
        addresses = std::string("unix:path=") + runtime + "/bus";
    else return false;
    std::size_t start = 0;
    while (start <= addresses.size()) {
        const auto end = std::min(addresses.find(';', start), addresses.size());
        const auto address = addresses.substr(start, end - start);
        start = end + 1;
        if (address.empty()) continue;
        constexpr std::string_view pathPrefix = "unix:path=";
        if (!address.starts_with(pathPrefix)) return true;  // not judged here: let the library try
        auto path = address.substr(pathPrefix.size());
        path = path.substr(0, path.find(','));
        struct stat info {};
        if (::stat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode)) return true;
    }
    return false;
}

}  // namespace tavrin
