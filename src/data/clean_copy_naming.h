#pragma once
// The names of cleaned copies, checks of names that a user types, and what is done with an
// output. Pure logic on paths and texts: the caller passes in what exists on disk.

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace tavrin {

class CleanCopySuffix {
public:
    enum class Kind { clean, final, custom };

    CleanCopySuffix() : kind_(Kind::clean) {}  // `clean`

    static CleanCopySuffix clean() { return CleanCopySuffix(Kind::clean, {}); }
    static CleanCopySuffix final() { return CleanCopySuffix(Kind::final, {}); }
    static CleanCopySuffix custom(std::string text) { return CleanCopySuffix(Kind::custom, std::move(text)); }
    // "final" gives `final`, "custom" gives `custom` with `customValue`, anything else `clean`.
    static CleanCopySuffix resolved(std::string_view token, std::string_view customValue);

    Kind kind() const { return kind_; }
    const std::string& customText() const { return text_; }
    std::string_view storageToken() const;  // "clean", "final", "custom"
    std::string_view displayName() const;   // "-clean", "-final", "Custom…"
    std::string appendedText() const;       // "-clean", "-final", or the custom text as given

    bool operator==(const CleanCopySuffix&) const = default;

private:
    CleanCopySuffix(Kind kind, std::string text) : kind_(kind), text_(std::move(text)) {}
    Kind kind_;
    std::string text_;
};

// {"clean":{}}, {"final":{}}, {"custom":{"_0":"text"}}.
void to_json(nlohmann::json& j, const CleanCopySuffix& suffix);
void from_json(const nlohmann::json& j, CleanCopySuffix& suffix);

class CleanCopyNamingError : public std::exception {
public:
    enum class Case { emptyName, illegalCharacters, reservedName };
    explicit CleanCopyNamingError(Case c);
    Case errorCase() const { return case_; }
    std::string errorDescription() const;
    const char* what() const noexcept override { return text_.c_str(); }

private:
    Case case_;
    std::string text_;
};

namespace CleanCopyNaming {

inline constexpr std::string_view illegalCharacters = "/:";
// "." and "..".
const std::set<std::string>& reservedComponents();

// Trimmed at both ends, then without slashes and colons; inner blanks stay; may be empty.
std::string sanitizedSuffix(std::string_view suffix);
// base + suffix (+ "." + extension) beside the file. A suffix that sanitizes to nothing becomes
// "-clean", so a copy never takes its source's name. Disk contents are not considered.
std::filesystem::path defaultCopyURL(const std::filesystem::path& file, const CleanCopySuffix& suffix);
// A name typed by the user, in `directory`, with `requiredExtension` replacing a typed one, and
// " 2", " 3", … appended until it differs, ignoring case, from every path in `existingPaths`.
// Throws CleanCopyNamingError.
std::filesystem::path resolvedCopyURL(std::string_view enteredName, const std::filesystem::path& directory,
                                      std::string_view requiredExtension, const std::set<std::string>& existingPaths);

}  // namespace CleanCopyNaming

enum class OutputBehavior { replace, alongside, ask, temporaryShare };

std::string_view rawValue(OutputBehavior behavior);
bool preservesOriginal(OutputBehavior behavior);  // false only for `replace`
bool retainsOutput(OutputBehavior behavior);      // false only for `temporaryShare`
// An unknown text gives `replace`, which does not preserve the user's file: readers of stored
// values must take care.
OutputBehavior outputBehaviorResolved(std::string_view raw);
std::optional<OutputBehavior> outputBehaviorFromRawValue(std::string_view raw);

}  // namespace tavrin
