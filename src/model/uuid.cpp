#include "model/uuid.h"

#include <cerrno>
#include <stdexcept>
#include <sys/random.h>

namespace tavrin {

Uuid Uuid::random() {
    Uuid u;
    std::size_t got = 0;
    while (got < u.bytes.size()) {
        ssize_t n = getrandom(u.bytes.data() + got, u.bytes.size() - got, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            throw std::runtime_error("The system's random source is unavailable");
        }
        got += static_cast<std::size_t>(n);
    }
    u.bytes[6] = (u.bytes[6] & 0x0F) | 0x40;
    u.bytes[8] = (u.bytes[8] & 0x3F) | 0x80;
    return u;
}

std::string Uuid::uuidString() const {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
        out += hex[bytes[i] >> 4];
        out += hex[bytes[i] & 15];
    }
    return out;
}

}  // namespace tavrin
