#pragma once

#include <optional>
#include <string>

namespace tavrin {

// The protection a written PDF gets. An empty string counts as absent; neither password asks
// for unencrypted output.
struct PDFPasswordPolicy {
    std::optional<std::string> userPassword;
    std::optional<std::string> ownerPassword;

    bool hasUserPassword() const { return userPassword && !userPassword->empty(); }
    bool hasOwnerPassword() const { return ownerPassword && !ownerPassword->empty(); }
    bool hasAnyPassword() const { return hasUserPassword() || hasOwnerPassword(); }
    bool operator==(const PDFPasswordPolicy&) const = default;
};

}  // namespace tavrin
