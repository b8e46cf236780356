#include "check_command.h"

#include <chrono>
#include <fmt/core.h>
#include <iostream>
#include <unistd.h>

#include "input_list.h"
#include "jsonl_output.h"
#include "model/cleaning_profile.h"
#include "model/file_system.h"
#include "model/pipeline_error.h"
#include "pipeline/tavrin_engine.h"

namespace tavrin::cli {

using nlohmann::json;

namespace {

struct CheckReport {
    std::filesystem::path path;
    std::optional<FileType> fileType;
    bool cleanable = false;  // `tavrin clean` accepts this type
    std::vector<MetadataItem> wouldRemove;
    std::vector<MetadataItem> wouldKeep;
    std::optional<std::string> error;
    std::optional<std::string> reason;
};

CheckReport checkFile(const TavrinEngine& engine, const std::set<FileType>& cleanable, const CleaningProfile& profile,
                      const InputFile& input) {
    CheckReport report{input.path};
    if (input.error) {
        report.error = input.error;
        return report;
    }
    try {
        if (fs::isDirectory(input.path)) throw PipelineError::sourceFileNotAccessible(input.path);
        const MetadataTree tree = engine.inspect(input.path);
        report.fileType = tree.fileType;
        report.cleanable = cleanable.count(tree.fileType) > 0 &&
                           FormatCapabilities::capabilities(tree.fileType).allowsStrictVerifiedCleaning();
        for (auto& item : tree.allItems())
            (profile.shouldRemove(item) ? report.wouldRemove : report.wouldKeep).push_back(std::move(item));
    } catch (const PipelineError& e) {
        report.error = e.description();
        if (auto reason = e.reason(); !reason.empty()) report.reason = reason;
    } catch (...) {
        report.error = describeError(std::current_exception());
    }
    return report;
}

json itemJSON(const MetadataItem& item) {
    return {{"id", item.id},
            {"displayName", item.displayName},
            {"category", std::string(rawValue(item.category))},
            {"value", item.value.description()}};
}

json reportJSON(const CheckReport& r) {
    json removed = json::array();
    for (const auto& item : r.wouldRemove) removed.push_back(itemJSON(item));
    return {{"path", r.path.string()},
            {"fileType", r.fileType ? json(std::string(rawValue(*r.fileType))) : json(nullptr)},
            {"clean", !r.error && r.wouldRemove.empty()},
            {"cleanable", r.cleanable},
            {"wouldRemove", removed},
            {"keptCount", r.wouldKeep.size()},
            {"error", r.error ? json(*r.error) : json(nullptr)},
            {"reason", r.reason ? json(*r.reason) : json(nullptr)}};
}

void printHuman(const CheckReport& r, const BatchOptions& batch, bool colour) {
    if (r.error) {
        std::cerr << fmt::format("{} {}: {}{}\n", coloured("error   ", 31, colour && ::isatty(2)), r.path.string(),
                                 *r.error, r.reason ? fmt::format(" ({})", *r.reason) : "");
        return;
    }
    if (r.wouldRemove.empty()) {
        if (!batch.quiet) std::cout << fmt::format("{} {}\n", coloured("clean   ", 32, colour), r.path.string());
    } else {
        std::cout << fmt::format("{} {}: {} item{} would be removed{}\n", coloured("dirty   ", 33, colour),
                                 r.path.string(), r.wouldRemove.size(), r.wouldRemove.size() == 1 ? "" : "s",
                                 r.cleanable ? "" : " (tavrin clean refuses this type; it is inspected only)");
        if (!batch.quiet)
            for (const auto& item : r.wouldRemove)
                std::cout << fmt::format("         {} ({})\n", item.displayName, displayName(item.category));
    }
    if (batch.verbose)
        for (const auto& item : r.wouldKeep)
            std::cout << fmt::format("         kept: {} ({})\n", item.displayName, displayName(item.category));
}

}  // namespace

int runCheck(const CheckOptions& options) {
    const auto started = std::chrono::steady_clock::now();
    const BatchOptions& batch = options.common.batch;
    CleaningProfile profile = CleaningProfile::from(options.profile);
    profile.specificKeysToKeep.insert(options.keep.begin(), options.keep.end());
    profile.specificKeysToRemove.insert(options.remove.begin(), options.remove.end());

    const auto inputs = collectInputs(options.paths, batch);
    if (inputs.error) {
        std::cerr << "tavrin: " << *inputs.error << "\n";
        return kCheckError;
    }
    TavrinEngine engine(configurationFor(options.common));
    const auto cleanable = engine.supportedCleaningTypes();
    const bool colour = useColour();
    JsonLinesWriter lines(std::cout);
    json all = json::array();
    std::size_t dirty = 0, errors = 0;
    for (const auto& input : inputs.files) {
        const CheckReport report = checkFile(engine, cleanable, profile, input);
        errors += report.error ? 1 : 0;
        dirty += !report.error && !report.wouldRemove.empty() ? 1 : 0;
        if (batch.jsonl) lines.write(reportJSON(report));
        else if (options.common.json) all.push_back(reportJSON(report));
        else printHuman(report, batch, colour);
    }
    if (options.common.json) std::cout << all.dump(2, ' ', false, json::error_handler_t::replace) << "\n";
    if (!options.common.json && !batch.jsonl && !batch.quiet)
        std::cout << fmt::format("{} of {} file{} would have something removed{}\n", dirty, inputs.files.size(),
                                 inputs.files.size() == 1 ? "" : "s",
                                 errors ? fmt::format(", {} could not be checked", errors) : "");
    printRunSummary(batch, inputs.files.size(), std::chrono::steady_clock::now() - started);
    if (errors) return kCheckError;
    return dirty ? kCheckWouldRemove : kCheckClean;
}

}  // namespace tavrin::cli

#include <CLI/CLI.hpp>

namespace tavrin::cli {

CLI::App* addCheckCommand(CLI::App& app, CheckOptions& options) {
    auto* check = app.add_subcommand(
        "check",
        "Say whether each file is clean: list what a clean under the profile would remove, writing nothing. "
        "Exit status 0 when nothing would be removed, 1 when something would, 2 when a file could not be checked.");
    check->add_option("--profile", options.profile,
                      "maximum-privacy (default), standard-sharing, client-deliverable or location-only");
    check->add_option("--keep", options.keep, "Keep this item id or key (repeatable)")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    check->add_option("--remove", options.remove, "Also remove this item id or key (repeatable)")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    check->add_flag("--json", options.common.json, "Print a JSON array, one entry per file");
    check->add_option("--exiftool", options.common.exifTool, "Use the exiftool at PATH (or 'auto') as a fallback");
    check->add_option("--exiftool-timeout", options.common.exifToolTimeout,
                      "Seconds one exiftool run may take (default 60)")
        ->check(CLI::Range(1u, 3600u));
    addBatchOptions(*check, options.common.batch);
    check->add_option("PATH", options.paths, "Files or folders (folders are walked; hidden files are skipped)");
    return check;
}

}  // namespace tavrin::cli
