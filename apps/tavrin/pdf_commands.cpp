#include "pdf_commands.h"

#include <cstdlib>
#include <fmt/core.h>
#include <iostream>

#include "cli.h"
#include "model/pipeline_error.h"
#include "model/text_encoding.h"
#include "pipeline/tavrin_engine.h"

namespace tavrin::cli {

std::optional<std::string> resolvePassword(const std::optional<std::string>& option) {
    if (option && *option == "-") {
        std::string line;
        if (!std::getline(std::cin, line)) return std::nullopt;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        return line;
    }
    if (option) return option;
    if (const char* fromEnvironment = std::getenv(kPasswordVariable)) return std::string(fromEnvironment);
    return std::nullopt;
}

namespace {

int report(const std::function<CleaningResult()>& operation, const PDFPasswordOptions& options, const char* verb) {
    try {
        const CleaningResult result = operation();
        std::cout << fmt::format("{}  {} → {} ({} removed, {} retained)\n", verb, printablePath(options.input),
                                 printablePath(result.outputURL), result.removedItems.size(),
                                 result.retainedItems.size());
        return kSuccess;
    } catch (...) {
        std::cerr << fmt::format("tavrin: {}: {}\n", printablePath(options.input),
                                 printableText(describeError(std::current_exception())));
        return kFailure;
    }
}

}  // namespace

int runPDFAddPassword(const PDFPasswordOptions& options) {
    const PDFPasswordPolicy policy{resolvePassword(options.user), options.owner};
    if (!policy.hasAnyPassword()) {
        std::cerr << "tavrin: give a password with --user or --owner (or --user - to read it from standard input)\n";
        return kUsage;
    }
    TavrinEngine engine;
    const CleaningProfile profile = CleaningProfile::from(options.profile);
    return report([&] { return engine.addPasswordToPDF(options.input, profile, policy, options.output); }, options,
                  "protected");
}

int runPDFRemovePassword(const PDFPasswordOptions& options) {
    const auto password = resolvePassword(options.password);
    if (!password) {
        std::cerr << "tavrin: give the current password with --password, --password - (standard input) or "
                  << kPasswordVariable << "\n";
        return kUsage;
    }
    TavrinEngine engine;
    const CleaningProfile profile = CleaningProfile::from(options.profile);
    return report([&] { return engine.removePasswordFromPDF(options.input, *password, profile, options.output); },
                  options, "unlocked");
}

}  // namespace tavrin::cli
