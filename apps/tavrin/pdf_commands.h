#pragma once
// `tavrin pdf add-password` and `tavrin pdf remove-password`, and where passwords come from.

#include <filesystem>
#include <optional>
#include <string>

namespace tavrin::cli {

// The environment variable that may hold a PDF password, so it need not appear in `ps`.
inline constexpr const char* kPasswordVariable = "TAVRIN_PDF_PASSWORD";

// "-" reads one line from standard input; no option falls back to TAVRIN_PDF_PASSWORD; any other
// text is the password. Empty when none was given.
std::optional<std::string> resolvePassword(const std::optional<std::string>& option);

struct PDFPasswordOptions {
    std::string profile = "maximum-privacy";
    std::optional<std::string> password;  // remove-password: the current password
    std::optional<std::string> user;      // add-password
    std::optional<std::string> owner;     // add-password
    std::filesystem::path input;
    std::filesystem::path output;
};

int runPDFAddPassword(const PDFPasswordOptions& options);
int runPDFRemovePassword(const PDFPasswordOptions& options);

}  // namespace tavrin::cli
