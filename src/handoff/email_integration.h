#pragma once
// Handing cleaned files to a mail program. The builders are pure functions that turn the
// attachments into an argument vector; ComposeService picks the attachments and starts the
// program through a ProgramLauncher, never through a shell.

#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "handoff/program_launcher.h"
#include "model/typed_error.h"

namespace tavrin {

// The mail program a user prefers; the raw value is what settings store. An unknown raw value
// reads as `other`, the default.
enum class EmailClient { thunderbird, evolution, other };

std::string_view rawValue(EmailClient client);
std::string_view displayName(EmailClient client);
EmailClient emailClientFromRawValue(std::string_view raw);

enum class EmailIntegrationErrorCase { automationFailed, clientNotInstalled, mailtoURLFailed, unsupportedPlatform, noCleanedFiles };

class EmailIntegrationError : public TypedError<EmailIntegrationErrorCase> {
public:
    static EmailIntegrationError automationFailed(std::string text);
    static EmailIntegrationError clientNotInstalled(std::string name);
    static EmailIntegrationError mailtoURLFailed();
    static EmailIntegrationError unsupportedPlatform();
    static EmailIntegrationError noCleanedFiles();

    std::string description() const;

private:
    EmailIntegrationError(Case c, std::string detail);
};

// "file:///…" with every byte but unreserved characters and "/" percent-encoded, so that quotes,
// commas, spaces and semicolons of a file name never reach the program as syntax.
std::string fileURI(const std::filesystem::path& path);

namespace EmailRoutes {

// thunderbird -compose "subject='…',body='…',attachment='file:///…,file:///…'". Inside the
// single-quoted values Thunderbird knows no escape: a "'" of the subject or body becomes "’"; the
// attachments are encoded file URIs, which hold neither quotes nor commas.
std::vector<std::string> thunderbird(const std::vector<std::filesystem::path>& attachments, std::string_view subject,
                                     const std::optional<std::string>& body);
// mailto:?subject=…&body=…&attach=file:///…  for Evolution: each value percent-encoded again.
std::string evolutionMailtoURL(const std::vector<std::filesystem::path>& attachments, std::string_view subject,
                               const std::optional<std::string>& body);
std::vector<std::string> evolution(const std::vector<std::filesystem::path>& attachments, std::string_view subject,
                                   const std::optional<std::string>& body);
// xdg-email --subject … [--body …] --attach PATH … ; each path one argument of its own.
std::vector<std::string> xdgEmail(const std::vector<std::filesystem::path>& attachments, std::string_view subject,
                                  const std::optional<std::string>& body);
// mailto:?subject=…[&body=…], which cannot carry attachments.
std::string mailtoURL(std::string_view subject, const std::optional<std::string>& body);
// The folders to show so the user can attach by hand: each distinct parent folder once, in order.
std::vector<std::vector<std::string>> revealCommands(const std::vector<std::filesystem::path>& attachments);

}  // namespace EmailRoutes

class ComposeService {
public:
    explicit ComposeService(ProgramLauncher& launcher) : launcher_(launcher) {}

    // The cleaned copies of the items, skipping items without one; fails with noCleanedFiles when
    // none is left. The subject is "Cleaned Files".
    void compose(const std::vector<std::optional<std::filesystem::path>>& cleanedItems, EmailClient client);
    // Thunderbird and Evolution fail with clientNotInstalled before anything starts. `other` uses
    // xdg-email, and without it opens a mailto: URL and shows the files' folders.
    void compose(const std::vector<std::filesystem::path>& attachments, EmailClient client,
                 const std::optional<std::string>& subject, const std::optional<std::string>& body);

private:
    ProgramLauncher& launcher_;
};

}  // namespace tavrin
