#include "data/clean_copy_naming.h"

#include <nlohmann/json.hpp>

#include "data/metadata_preset.h"

namespace tavrin {

CleanCopySuffix CleanCopySuffix::resolved(std::string_view token, std::string_view customValue) {
    if (token == "final") return final();
    if (token == "custom") return custom(std::string(customValue));
    return clean();
}

std::string_view CleanCopySuffix::storageToken() const {
    switch (kind_) {
        case Kind::clean: return "clean";
        case Kind::final: return "final";
        case Kind::custom: return "custom";
    }
    return {};
}

std::string_view CleanCopySuffix::displayName() const {
    switch (kind_) {
        case Kind::clean: return "-clean";
        case Kind::final: return "-final";
        case Kind::custom: return "Custom\u2026";
    }
    return {};
}

std::string CleanCopySuffix::appendedText() const {
    switch (kind_) {
        case Kind::clean: return "-clean";
        case Kind::final: return "-final";
        case Kind::custom: return text_;
    }
    return {};
}

void to_json(nlohmann::json& j, const CleanCopySuffix& suffix) {
    if (suffix.kind() == CleanCopySuffix::Kind::custom)
        j = {{"custom", {{"_0", suffix.customText()}}}};
    else
        j = {{std::string(suffix.storageToken()), nlohmann::json::object()}};
}

void from_json(const nlohmann::json& j, CleanCopySuffix& suffix) {
    if (!j.is_object() || j.size() != 1) throw nlohmann::json::type_error::create(302, "a clean copy suffix", &j);
    const auto entry = j.begin();
    const std::string key = entry.key();
    const nlohmann::json& value = entry.value();
    if (key == "clean") suffix = CleanCopySuffix::clean();
    else if (key == "final") suffix = CleanCopySuffix::final();
    else if (key == "custom") suffix = CleanCopySuffix::custom(value.at("_0").get<std::string>());
    else throw nlohmann::json::type_error::create(302, "an unknown clean copy suffix", &j);
}

CleanCopyNamingError::CleanCopyNamingError(Case c) : case_(c), text_(errorDescription()) {}

std::string CleanCopyNamingError::errorDescription() const {
    switch (case_) {
        case Case::emptyName: return "Enter a name for the clean copy.";
        case Case::illegalCharacters: return "The name can\u2019t contain \u201C/\u201D or \u201C:\u201D.";
        case Case::reservedName: return "Enter a different name for the clean copy.";
    }
    return {};
}

namespace CleanCopyNaming {

namespace {

bool holdsIllegal(std::string_view text) { return text.find_first_of(illegalCharacters) != std::string_view::npos; }

std::string lowerASCII(std::string text) {
    for (auto& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return text;
}

// A file URL's path extension: after the last point of the last component, none for a name
// that starts with its only point.
std::string pathExtension(const std::filesystem::path& path) {
    std::string ext = path.filename().extension().string();
    return ext.size() > 1 ? ext.substr(1) : std::string();
}

std::string withoutExtension(const std::filesystem::path& path) {
    const std::string name = path.filename().string();
    const std::string ext = pathExtension(path);
    return ext.empty() ? name : name.substr(0, name.size() - ext.size() - 1);
}

}  // namespace

const std::set<std::string>& reservedComponents() {
    static const std::set<std::string> reserved{".", ".."};
    return reserved;
}

std::string sanitizedSuffix(std::string_view suffix) {
    std::string out;
    for (char c : trimmedWhitespace(suffix))
        if (illegalCharacters.find(c) == std::string_view::npos) out += c;
    return out;
}

std::filesystem::path defaultCopyURL(const std::filesystem::path& file, const CleanCopySuffix& suffix) {
    const auto directory = file.parent_path();
    const std::string base = withoutExtension(file);
    const std::string extension = pathExtension(file);
    std::string appended = sanitizedSuffix(suffix.appendedText());
    if (appended.empty()) appended = "-clean";
    std::string name = base + appended;
    if (!extension.empty()) name += "." + extension;
    return directory / name;
}

std::filesystem::path resolvedCopyURL(std::string_view enteredName, const std::filesystem::path& directory,
                                      std::string_view requiredExtension, const std::set<std::string>& existingPaths) {
    using E = CleanCopyNamingError::Case;
    const std::string trimmed = trimmedWhitespace(enteredName);
    if (trimmed.empty()) throw CleanCopyNamingError(E::emptyName);
    if (holdsIllegal(trimmed)) throw CleanCopyNamingError(E::illegalCharacters);
    if (reservedComponents().count(trimmed)) throw CleanCopyNamingError(E::reservedName);
    std::string base = trimmed;
    if (!requiredExtension.empty()) {
        base = withoutExtension(std::filesystem::path(trimmed));
        if (base.empty()) base = trimmed;
    }
    if (reservedComponents().count(base)) throw CleanCopyNamingError(E::reservedName);

    std::set<std::string> taken;
    for (const auto& p : existingPaths) taken.insert(lowerASCII(p));
    auto candidateFor = [&](const std::string& name) {
        std::string file = name;
        if (!requiredExtension.empty()) file += "." + std::string(requiredExtension);
        return directory / file;
    };
    auto candidate = candidateFor(base);
    for (std::size_t n = 2;; ++n) {
        if (!taken.count(lowerASCII(candidate.lexically_normal().string()))) return candidate;
        candidate = candidateFor(base + " " + std::to_string(n));
    }
}

}  // namespace CleanCopyNaming

std::string_view rawValue(OutputBehavior behavior) {
    switch (behavior) {
        case OutputBehavior::replace: return "replace";
        case OutputBehavior::alongside: return "alongside";
        case OutputBehavior::ask: return "ask";
        case OutputBehavior::temporaryShare: return "temporaryShare";
    }
    return {};
}

bool preservesOriginal(OutputBehavior behavior) { return behavior != OutputBehavior::replace; }
bool retainsOutput(OutputBehavior behavior) { return behavior != OutputBehavior::temporaryShare; }

std::optional<OutputBehavior> outputBehaviorFromRawValue(std::string_view raw) {
    for (auto b : {OutputBehavior::replace, OutputBehavior::alongside, OutputBehavior::ask, OutputBehavior::temporaryShare})
        if (rawValue(b) == raw) return b;
    return std::nullopt;
}

OutputBehavior outputBehaviorResolved(std::string_view raw) {
    return outputBehaviorFromRawValue(raw).value_or(OutputBehavior::replace);
}

}  // namespace tavrin
