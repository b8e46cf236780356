#pragma once
// Random (version 4) identifiers for temporary names and records.

#include <array>
#include <cstdint>
#include <string>

namespace tavrin {

struct Uuid {
    std::array<std::uint8_t, 16> bytes{};

    static Uuid random();
    // Upper-case canonical form, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
    std::string uuidString() const;
    bool operator==(const Uuid&) const = default;
};

}  // namespace tavrin
