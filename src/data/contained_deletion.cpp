#include "data/contained_deletion.h"

#include <algorithm>
#include <system_error>

#include "data/shared_container.h"

namespace tavrin {

namespace {

std::optional<std::filesystem::path> resolvedPath(const std::filesystem::path& path) {
    if (!path.is_absolute()) return std::nullopt;
    std::error_code ec;
    auto resolved = std::filesystem::weakly_canonical(path, ec);
    if (ec) return std::nullopt;
    return resolved.lexically_normal();
}

bool strictlyInside(const std::filesystem::path& path, const std::filesystem::path& root) {
    auto p = path.begin(), r = root.begin();
    for (; r != root.end(); ++r, ++p) {
        if (r->empty()) continue;  // a trailing separator of the root
        if (p == path.end() || *p != *r) return false;
    }
    // Something must remain below the root: the root itself is never deleted.
    return std::any_of(p, path.end(), [](const auto& part) { return !part.empty(); });
}

}  // namespace

DeletionContainment::DeletionContainment(std::vector<std::filesystem::path> allowedRoots) {
    for (auto& root : allowedRoots)
        if (auto resolved = resolvedPath(root)) roots_.push_back(std::move(*resolved));
}

DeletionContainment DeletionContainment::forContainer(const SharedContainer& container) {
    std::error_code ec;
    auto temporary = std::filesystem::temp_directory_path(ec);
    std::vector<std::filesystem::path> roots{container.stagingDirectoryURL};
    if (!ec) roots.push_back(temporary);
    return DeletionContainment(std::move(roots));
}

bool DeletionContainment::contains(const std::filesystem::path& path) const {
    const auto resolved = resolvedPath(path);
    if (!resolved) return false;
    return std::any_of(roots_.begin(), roots_.end(), [&](const auto& root) { return strictlyInside(*resolved, root); });
}

bool DeletionContainment::removeItem(const std::filesystem::path& path) const noexcept {
    try {
        if (!contains(path)) return false;
        // Remove what the check saw: the resolved path, not one that a link could redirect.
        const auto resolved = *resolvedPath(path);
        std::error_code ec;
        return std::filesystem::remove_all(resolved, ec) > 0 && !ec;
    } catch (...) {
        return false;
    }
}

}  // namespace tavrin
