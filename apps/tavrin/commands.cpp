#include "commands.h"

#include <chrono>
#include <cstdlib>
#include <fmt/core.h>
#include <iostream>
#include <unistd.h>

#include "cli.h"
#include "data/shared_container.h"
#include "data/store_defaults.h"
#include "model/file_system.h"
#include "model/file_type_detector.h"
#include "model/pipeline_error.h"
#include "model/snapshot.h"
#include "model/temporary_file.h"
#include "model/text_encoding.h"
#include "services/in_place_replacement.h"
#include "pipeline/batch_runner.h"
#include "pipeline/tavrin_engine.h"
#include "exiftool/process_runner.h"
#include "input_list.h"
#include "input_paths.h"
#include "jsonl_output.h"
#include "pdf_commands.h"
#include "report.h"

namespace tavrin::cli {

using nlohmann::json;

namespace {

// The exiftool to use: the given path made absolute, or for "auto" the first executable
// "exiftool" on PATH. PATH is searched only when asked.
std::optional<std::string> resolveExifTool(const std::optional<std::string>& option) {
    if (!option) return std::nullopt;
    if (*option != "auto") {
        std::error_code ec;
        const auto absolute = std::filesystem::absolute(*option, ec);
        return ec ? *option : absolute.string();
    }
    const char* pathVar = std::getenv("PATH");
    std::string paths = pathVar ? pathVar : "";
    std::size_t start = 0;
    while (start <= paths.size()) {
        const auto end = paths.find(':', start);
        const auto dir = paths.substr(start, end == std::string::npos ? std::string::npos : end - start);
        const auto candidate = std::filesystem::path(dir.empty() ? "." : dir) / "exiftool";
        if (isExecutableFile(candidate)) return std::filesystem::absolute(candidate).string();
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return std::nullopt;
}

std::string errorText(std::exception_ptr error) { return describeError(error); }

// The reason a PipelineError gives apart from its fixed text; absent for any other error.
std::optional<std::string> errorReason(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const PipelineError& e) {
        if (auto reason = e.reason(); !reason.empty()) return reason;
    } catch (const InPlaceReplacementError& e) {
        if (!e.reason().empty()) return e.reason();
    } catch (...) {
    }
    return std::nullopt;
}

// Draws "[#####     ] 5/10" on stderr, only when stderr is a terminal.
class ProgressBar {
public:
    ProgressBar(std::size_t total, bool enabled) : total_(total), enabled_(enabled && ::isatty(STDERR_FILENO)) {}
    void advance(std::size_t done) {
        if (!enabled_) return;
        const std::size_t width = 30;
        const std::size_t filled = total_ ? done * width / total_ : width;
        std::cerr << fmt::format("\r[{}{}] {}/{}", std::string(filled, '#'), std::string(width - filled, ' '), done,
                                 total_)
                  << std::flush;
    }
    ~ProgressBar() {
        if (enabled_) std::cerr << "\r" << std::string(48, ' ') << "\r" << std::flush;
    }

private:
    std::size_t total_;
    bool enabled_;
};

// An encrypted PDF is cleaned with its password, and the cleaned copy keeps that password as
// the one that opens it.
CleaningResult cleanProtectedPDF(const TavrinEngine& engine, const FileReport& report, const CleaningProfile& profile,
                                 const std::optional<std::string>& password) {
    if (!password)
        throw std::runtime_error(fmt::format("{} is password protected: give its password with --password, "
                                             "--password - (standard input) or {}",
                                             report.sourcePath.filename().string(), kPasswordVariable));
    return engine.cleanEncryptedPDF(report.sourcePath, *password, profile, PDFPasswordPolicy{*password, std::nullopt},
                                    *report.outputPath);
}

// The setting stripEditHistoryInPlace of the user's store, read without creating the store;
// false, its default, when there is none.
bool settingsStripEditHistory() {
    try {
        const auto url = SharedContainerConfig::applicationStoreURL();
        std::error_code ec;
        if (!std::filesystem::is_regular_file(url, ec)) return false;
        auto container = ModelContainerFactory::atURL(url);
        const auto settings = currentSettings(container->mainContext());
        return settings && settings->stripEditHistoryInPlace;
    } catch (...) {
        return false;
    }
}

}  // namespace

EngineConfiguration configurationFor(const CommonOptions& options) {
    if (auto path = resolveExifTool(options.exifTool))
        return EngineConfiguration::pro(*path).withExifToolTimeout(std::chrono::seconds(options.exifToolTimeout));
    return EngineConfiguration::standard();
}

std::optional<std::string> exifToolOptionProblem(const CommonOptions& options) {
    if (!options.exifTool) return std::nullopt;
    const auto path = resolveExifTool(options.exifTool);
    if (!path) return "--exiftool auto: no executable exiftool found on PATH";
    if (!isExecutableFile(*path))
        return fmt::format("--exiftool: {} is not an executable file; give the path of exiftool, or 'auto' to "
                           "search PATH", *options.exifTool);
    return std::nullopt;
}

int runFormats(const CommonOptions& options) {
    TavrinEngine engine(configurationFor(options));
    const auto readable = engine.supportedInspectionTypes();
    const auto cleanable = engine.supportedCleaningTypes();
    json rows = json::array();
    if (!options.json)
        std::cout << fmt::format("{:<40} {:<24} {:<15} {:<8} {}\n", "TYPE", "CATEGORY", "SUPPORT", "INSPECT", "CLEAN");
    for (FileType type : fileTypes::allCases()) {
        const auto caps = FormatCapabilities::capabilities(type);
        const bool canInspect = readable.count(type) > 0;
        // Cleaning is available only where a writer exists and the strict gate lets it through.
        const bool canClean = cleanable.count(type) > 0 && caps.allowsStrictVerifiedCleaning();
        std::string extensions;
        for (auto e : fileExtensions(type)) extensions += (extensions.empty() ? "" : ", ") + std::string(e);
        if (options.json) {
            rows.push_back({{"fileType", std::string(rawValue(type))},
                            {"displayName", std::string(displayName(type))},
                            {"category", std::string(rawValue(category(type)))},
                            {"extensions", fileExtensions(type)},
                            {"supportLevel", std::string(rawValue(caps.supportLevel))},
                            {"canInspect", canInspect},
                            {"canClean", canClean},
                            {"hasWriter", cleanable.count(type) > 0}});
        } else {
            std::cout << fmt::format("{:<40} {:<24} {:<15} {:<8} {}\n",
                                     fmt::format("{} ({})", displayName(type), extensions),
                                     displayName(category(type)), displayName(caps.supportLevel),
                                     canInspect ? "yes" : "no", canClean ? "yes" : "no");
        }
    }
    if (options.json) std::cout << dumpJSON(rows) << "\n";
    return kSuccess;
}

int runInspect(const CommonOptions& options, const std::vector<std::filesystem::path>& givenFiles) {
    const auto started = std::chrono::steady_clock::now();
    const auto list = collectInputs(givenFiles, options.batch, false);
    if (list.error) {
        std::cerr << "tavrin: " << *list.error << "\n";
        return kFailure;
    }
    std::vector<std::filesystem::path> files;
    for (const auto& input : list.files) files.push_back(input.path);
    JsonLinesWriter lines(std::cout);
    TavrinEngine engine(configurationFor(options));
    json out = json::array();
    int status = kSuccess;
    for (const auto& file : files) {
        try {
            if (fs::isDirectory(file)) throw PipelineError::sourceFileNotAccessible(file);
            MetadataTree tree = engine.inspect(file);
            if (options.batch.jsonl) {
                json line = tree;
                line["path"] = file.string();
                lines.write(line);
            } else if (options.json) out.push_back(tree);
            else if (!options.batch.quiet) printTree(std::cout, file, tree);
        } catch (...) {
            status = kFailure;
            const std::string text = errorText(std::current_exception());
            const auto reason = errorReason(std::current_exception());
            const json entry = inspectErrorJSON(file, text, reason);
            if (options.batch.jsonl) lines.write(entry);
            else if (options.json) out.push_back(entry);
            else printError(std::cerr, file, text);
        }
        if (!options.json && !options.batch.jsonl && !options.batch.quiet && files.size() > 1) std::cout << "\n";
    }
    if (options.json) std::cout << dumpJSON(out) << "\n";
    printRunSummary(options.batch, files.size(), std::chrono::steady_clock::now() - started);
    return status;
}

int runClean(const CleanOptions& options) {
    if (options.outputDir && !fs::isDirectory(*options.outputDir)) {
        std::cerr << "tavrin: "
                  << printableText(PipelineError::outputDirectoryNotAccessible(*options.outputDir).description())
                  << "\n";
        return kFailure;
    }
    CleaningProfile profile = CleaningProfile::from(options.profile);
    profile.specificKeysToKeep.insert(options.keep.begin(), options.keep.end());
    profile.specificKeysToRemove.insert(options.remove.begin(), options.remove.end());
    // In place, the document's own edit history stays unless asked otherwise: the file remains
    // the user's working copy.
    bool historyRetained = false;
    if (options.inPlace && !options.stripEditHistory && !settingsStripEditHistory())
        std::tie(profile, historyRetained) = profile.retainingDocumentHistory();
    const InPlaceReplacement replacement;

    const auto started = std::chrono::steady_clock::now();
    const BatchOptions& batch = options.common.batch;
    const auto list = collectInputs(options.paths, batch);
    if (list.error) {
        std::cerr << "tavrin: " << *list.error << "\n";
        return kFailure;
    }
    const auto& inputs = list.files;
    if (inputs.empty() && batch.shard) {  // this worker's share of the list is empty
        printRunSummary(batch, 0, std::chrono::steady_clock::now() - started);
        return kSuccess;
    }
    TavrinEngine engine(configurationFor(options.common));
    if (inputs.empty()) {
        std::cerr << "tavrin: no files found in the given folders (hidden files are skipped)\n";
        return kFailure;
    }

    // Names are reserved up front, in input order, so parallel work never races for one name.
    std::vector<FileReport> reports(inputs.size());
    std::set<std::filesystem::path> reserved;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        reports[i].sourcePath = inputs[i].path;
        reports[i].error = inputs[i].error;
        if (inputs[i].error) continue;
        reports[i].outputPath =
            options.inPlace ? inputs[i].path : reserveOutputPath(inputs[i].path, options.outputDir, reserved);
    }

    auto cleanOne = [&](std::size_t i) {
        FileReport& report = reports[i];
        if (report.error) return;
        try {
            // The checks come first: a named pipe or a device is refused before anything opens it
            // to read, the encryption test included.
            report.fileType = engine.checkSource(report.sourcePath);
            // In place, the verified copy is written privately first and only then swapped in.
            std::optional<ScopedDirectory> staging;
            FileReport target = report;
            if (options.inPlace) {
                staging.emplace(TemporaryFile::makeTemporaryDirectory("tavrin_in_place"));
                target.outputPath = staging->path() / report.sourcePath.filename();
            }
            if (report.fileType == FileType::pdf && TavrinEngine::isPDFEncrypted(report.sourcePath)) {
                report.result = cleanProtectedPDF(engine, target, profile, options.password);
            } else {
                report.result = engine.cleanToFile(report.sourcePath, profile, *target.outputPath);
            }
            if (options.inPlace) {
                try {
                    report.replaced = replacement.replace(report.sourcePath, *target.outputPath);
                } catch (...) {
                    report.result.reset();
                    throw;
                }
                report.result->outputURL = report.sourcePath;
                report.editHistoryRetained = historyRetained;
            }
        } catch (...) {
            report.error = errorText(std::current_exception());
            report.reason = errorReason(std::current_exception());
        }
    };

    // Lines are printed in input order as results arrive: a finished file waits for those before
    // it. onFinished runs one call at a time, so the cursor needs no lock of its own.
    {
        ProgressBar progress(reports.size(), reports.size() > 1 && !batch.quiet);
        JsonLinesWriter lines(std::cout);
        std::vector<bool> done(reports.size(), false);
        std::size_t printed = 0;
        BatchRunOptions run;
        run.maxParallel = options.jobs;
        run.onFinished = [&](std::size_t index, std::size_t completed) {
            done[index] = true;
            for (; printed < reports.size() && done[printed]; ++printed) {
                if (batch.jsonl) {
                    lines.write(cleanReportJSON(reports[printed]));
                    continue;
                }
                if (options.common.json || (batch.quiet && reports[printed].result)) continue;
                if (::isatty(STDERR_FILENO) && reports.size() > 1) std::cerr << "\r" << std::string(48, ' ') << "\r";
                printCleanLine(std::cout, std::cerr, reports[printed]);
                if (batch.verbose) printRemovedItems(std::cout, reports[printed]);
            }
            std::cout.flush();
            progress.advance(completed);
        };
        runBatch(reports.size(), cleanOne, run);
    }

    std::size_t failed = 0;
    json out = json::array();
    for (const auto& r : reports) {
        failed += r.result ? 0 : 1;
        if (options.common.json) out.push_back(cleanReportJSON(r));
    }
    if (options.common.json) {
        std::cout << dumpJSON(out) << "\n";
    } else if (!batch.jsonl && !batch.quiet) {
        std::cout << fmt::format("{} of {} file{} cleaned and verified{}\n", reports.size() - failed, reports.size(),
                                 reports.size() == 1 ? "" : "s", failed ? fmt::format(", {} failed", failed) : "");
        if (historyRetained && failed < reports.size())
            std::cout << "Document edit history was kept; --strip-edit-history removes it too.\n";
    }
    printRunSummary(batch, reports.size(), std::chrono::steady_clock::now() - started);
    return failed == 0 && !reports.empty() ? kSuccess : kFailure;
}

}  // namespace tavrin::cli
