#include "intake/watched_folder_intake_decider.h"

#include <algorithm>
#include <cctype>
#include <set>

#include <fmt/format.h>

#include "model/file_type.h"

namespace tavrin {

namespace {

std::string lowercased(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

std::string trimmed(std::string_view text) {
    const auto isBlank = [](unsigned char c) { return std::isspace(c) != 0; };
    while (!text.empty() && isBlank(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && isBlank(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    return std::string(text);
}

}  // namespace

std::string_view rawValue(IgnoreReason reason) {
    switch (reason) {
        case IgnoreReason::hidden: return "hidden";
        case IgnoreReason::temporary: return "temporary";
        case IgnoreReason::unsupportedType: return "unsupportedType";
        case IgnoreReason::notVerifiedCleanable: return "notVerifiedCleanable";
        case IgnoreReason::tavrinOutput: return "tavrinOutput";
        case IgnoreReason::notARegularFile: return "notARegularFile";
    }
    return "hidden";
}

std::string describe(const WatchedFolderIntakeVerdict& verdict) {
    switch (verdict.kind()) {
        case WatchedFolderIntakeVerdict::Kind::ignore:
            return fmt::format("ignore({})", rawValue(*verdict.ignoreReason()));
        case WatchedFolderIntakeVerdict::Kind::waitForStability: return "waitForStability";
        case WatchedFolderIntakeVerdict::Kind::enqueue: return "enqueue";
    }
    return "?";
}

const std::vector<std::string_view>& WatchedFolderIntakeDecider::temporaryPrefixes() {
    static const std::vector<std::string_view> prefixes{"~$", ".~lock", "~"};
    return prefixes;
}

const std::vector<std::string_view>& WatchedFolderIntakeDecider::temporarySuffixes() {
    static const std::vector<std::string_view> suffixes{".partial", ".download", ".crdownload", ".tmp", ".part"};
    return suffixes;
}

WatchedFolderIntakeDecider::WatchedFolderIntakeDecider(double stabilityInterval, const std::vector<std::string>& outputSuffixes)
    : stabilityInterval_(std::max(0.0, stabilityInterval)) {
    std::vector<std::string> given{"-clean", "-final"};
    given.insert(given.end(), outputSuffixes.begin(), outputSuffixes.end());
    std::set<std::string> seen;
    for (const auto& suffix : given) {
        auto normalized = lowercased(trimmed(suffix));
        if (normalized.empty() || !seen.insert(normalized).second) continue;
        outputSuffixes_.push_back(std::move(normalized));
    }
}

WatchedFolderIntakeVerdict WatchedFolderIntakeDecider::filterVerdict(const std::filesystem::path& url,
                                                                     bool isRegularFile) const {
    if (!isRegularFile) return WatchedFolderIntakeVerdict::ignore(IgnoreReason::notARegularFile);
    const std::string name = url.filename().string();
    const std::string lower = lowercased(name);
    if (name.starts_with('.')) return WatchedFolderIntakeVerdict::ignore(IgnoreReason::hidden);
    for (auto prefix : temporaryPrefixes())
        if (lower.starts_with(prefix)) return WatchedFolderIntakeVerdict::ignore(IgnoreReason::temporary);
    for (auto suffix : temporarySuffixes())
        if (lower.ends_with(suffix)) return WatchedFolderIntakeVerdict::ignore(IgnoreReason::temporary);
    if (isTavrinOutput(name)) return WatchedFolderIntakeVerdict::ignore(IgnoreReason::tavrinOutput);

    std::string extension = url.extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    extension = lowercased(extension);
    auto type = fileTypeFromExtension(extension);
    if (!type) type = relatedFileTypeForExtension(extension);
    if (!type) return WatchedFolderIntakeVerdict::ignore(IgnoreReason::unsupportedType);
    // Automatic cleaning insists on the top level of support; a merely cleanable format may still
    // be queued by hand.
    if (FormatCapabilities::capabilities(*type).supportLevel != FormatSupportLevel::verifiedCleanable)
        return WatchedFolderIntakeVerdict::ignore(IgnoreReason::notVerifiedCleanable);
    return WatchedFolderIntakeVerdict::waitForStability();
}

WatchedFolderIntakeVerdict WatchedFolderIntakeDecider::stabilityVerdict(
    double now, const WatchedFolderFileState& current,
    const std::optional<std::pair<WatchedFolderFileState, double>>& previous) const {
    if (!previous || previous->first != current) return WatchedFolderIntakeVerdict::waitForStability();
    if (now - previous->second >= stabilityInterval_) return WatchedFolderIntakeVerdict::enqueue();
    return WatchedFolderIntakeVerdict::waitForStability();
}

bool WatchedFolderIntakeDecider::isTavrinOutput(std::string_view fileName) const {
    const std::string stem = lowercased(std::filesystem::path(std::string(fileName)).stem().string());
    return std::any_of(outputSuffixes_.begin(), outputSuffixes_.end(),
                       [&](const std::string& suffix) { return stem.ends_with(suffix); });
}

std::string WatchedFolderIntakeDecider::key() const {
    return fmt::format("{:.6f}|{}", stabilityInterval_, fmt::join(outputSuffixes_, "|"));
}

}  // namespace tavrin
