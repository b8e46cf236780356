#include "handoff/email_integration.h"

#include <set>

#include "handoff/tavrin_url.h"

namespace tavrin {

std::string_view rawValue(EmailClient client) {
    switch (client) {
        case EmailClient::thunderbird: return "thunderbird";
        case EmailClient::evolution: return "evolution";
        case EmailClient::other: return "other";
    }
    return "other";
}

std::string_view displayName(EmailClient client) {
    switch (client) {
        case EmailClient::thunderbird: return "Thunderbird";
        case EmailClient::evolution: return "Evolution";
        case EmailClient::other: return "Other (Default)";
    }
    return "Other (Default)";
}

EmailClient emailClientFromRawValue(std::string_view raw) {
    if (raw == "thunderbird") return EmailClient::thunderbird;
    if (raw == "evolution") return EmailClient::evolution;
    return EmailClient::other;
}

EmailIntegrationError::EmailIntegrationError(Case c, std::string detail) : TypedError(c, std::move(detail)) {
    setText(description());
}

EmailIntegrationError EmailIntegrationError::automationFailed(std::string text) {
    return {Case::automationFailed, std::move(text)};
}
EmailIntegrationError EmailIntegrationError::clientNotInstalled(std::string name) {
    return {Case::clientNotInstalled, std::move(name)};
}
EmailIntegrationError EmailIntegrationError::mailtoURLFailed() { return {Case::mailtoURLFailed, {}}; }
EmailIntegrationError EmailIntegrationError::unsupportedPlatform() { return {Case::unsupportedPlatform, {}}; }
EmailIntegrationError EmailIntegrationError::noCleanedFiles() { return {Case::noCleanedFiles, {}}; }

std::string EmailIntegrationError::description() const {
    switch (errorCase()) {
        case Case::automationFailed: return "Email automation failed: " + detail();
        case Case::clientNotInstalled: return detail() + " does not appear to be installed.";
        case Case::mailtoURLFailed: return "Could not open the default email client.";
        case Case::unsupportedPlatform: return "Email integration is not supported on this platform.";
        case Case::noCleanedFiles: return "No cleaned files are available to attach.";
    }
    return {};
}

std::string fileURI(const std::filesystem::path& path) {
    return "file://" + percentEncode(path.lexically_normal().string());
}

namespace EmailRoutes {

namespace {

std::string withoutSingleQuotes(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == '\'') out += "\u2019";
        else out += c;
    }
    return out;
}

}  // namespace

std::vector<std::string> thunderbird(const std::vector<std::filesystem::path>& attachments, std::string_view subject,
                                     const std::optional<std::string>& body) {
    std::string fields = "subject='" + withoutSingleQuotes(subject) + "'";
    if (body) fields += ",body='" + withoutSingleQuotes(*body) + "'";
    if (!attachments.empty()) {
        fields += ",attachment='";
        for (std::size_t i = 0; i < attachments.size(); ++i) fields += (i ? "," : "") + fileURI(attachments[i]);
        fields += "'";
    }
    return {"thunderbird", "-compose", fields};
}

std::string evolutionMailtoURL(const std::vector<std::filesystem::path>& attachments, std::string_view subject,
                               const std::optional<std::string>& body) {
    std::string url = "mailto:?subject=" + percentEncode(subject);
    if (body) url += "&body=" + percentEncode(*body);
    for (const auto& attachment : attachments) url += "&attach=" + percentEncode(fileURI(attachment));
    return url;
}

std::vector<std::string> evolution(const std::vector<std::filesystem::path>& attachments, std::string_view subject,
                                   const std::optional<std::string>& body) {
    return {"evolution", evolutionMailtoURL(attachments, subject, body)};
}

std::vector<std::string> xdgEmail(const std::vector<std::filesystem::path>& attachments, std::string_view subject,
                                  const std::optional<std::string>& body) {
    std::vector<std::string> argv{"xdg-email", "--subject", std::string(subject)};
    if (body) {
        argv.push_back("--body");
        argv.push_back(*body);
    }
    for (const auto& attachment : attachments) {
        argv.push_back("--attach");
        argv.push_back(attachment.lexically_normal().string());
    }
    return argv;
}

std::string mailtoURL(std::string_view subject, const std::optional<std::string>& body) {
    std::string url = "mailto:?subject=" + percentEncode(subject);
    if (body) url += "&body=" + percentEncode(*body);
    return url;
}

std::vector<std::vector<std::string>> revealCommands(const std::vector<std::filesystem::path>& attachments) {
    std::vector<std::vector<std::string>> commands;
    std::set<std::string> seen;
    for (const auto& attachment : attachments) {
        const auto folder = attachment.lexically_normal().parent_path().string();
        if (folder.empty() || !seen.insert(folder).second) continue;
        commands.push_back({"xdg-open", fileURI(folder)});
    }
    return commands;
}

}  // namespace EmailRoutes

void ComposeService::compose(const std::vector<std::optional<std::filesystem::path>>& cleanedItems,
                             EmailClient client) {
    std::vector<std::filesystem::path> attachments;
    for (const auto& item : cleanedItems)
        if (item) attachments.push_back(*item);
    if (attachments.empty()) throw EmailIntegrationError::noCleanedFiles();
    compose(attachments, client, std::string("Cleaned Files"), std::nullopt);
}

void ComposeService::compose(const std::vector<std::filesystem::path>& attachments, EmailClient client,
                             const std::optional<std::string>& subject, const std::optional<std::string>& body) {
    const std::string subjectText = subject.value_or("");
    switch (client) {
        case EmailClient::thunderbird:
        case EmailClient::evolution: {
            const auto argv = client == EmailClient::thunderbird ? EmailRoutes::thunderbird(attachments, subjectText, body)
                                                                  : EmailRoutes::evolution(attachments, subjectText, body);
            if (!launcher_.isInstalled(argv.front()))
                throw EmailIntegrationError::clientNotInstalled(std::string(displayName(client)));
            if (!launcher_.launch(argv))
                throw EmailIntegrationError::automationFailed("could not start " + argv.front());
            return;
        }
        case EmailClient::other: {
            if (launcher_.isInstalled("xdg-email") &&
                launcher_.launch(EmailRoutes::xdgEmail(attachments, subjectText, body)))
                return;
            // A mailto: URL cannot carry attachments: the folders holding them are shown instead.
            if (!launcher_.launch({"xdg-open", EmailRoutes::mailtoURL(subjectText, body)}))
                throw EmailIntegrationError::mailtoURLFailed();
            for (const auto& command : EmailRoutes::revealCommands(attachments)) launcher_.launch(command);
            return;
        }
    }
}

}  // namespace tavrin
