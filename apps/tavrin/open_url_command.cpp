// `tavrin open-url`: hands a tavrin: link to the app, or carries it out here when the app is not there. A link never cleans in
// place: cleaned copies go beside the files, or for "share" into a new temporary folder.
#include <fmt/core.h>
#include <iostream>
#include <set>
#include <stdlib.h>

#include "cli.h"
#include "handoff/finder_context_menu_model.h"
#include "handoff/url_dispatch.h"
#include "handoff_commands.h"
#include "open_url_handler.h"
#include "queue_url_handler.h"
#include "input_paths.h"
#include "model/cleaning_profile.h"
#include "model/pipeline_error.h"
#include "pipeline/tavrin_engine.h"
#include "services/app_handoff.h"
#include "report.h"

namespace tavrin::cli {

namespace {

void printRejected(const std::vector<RejectedFile>& rejected) {
    for (const auto& file : rejected)
        std::cout << fmt::format("Skipped {}: {}\n", printable(file.path.string()), file.reason);
}

// A file manager hands over paths, sometimes relative to its folder, sometimes as file: URIs.
std::filesystem::path menuArgumentPath(const std::string& argument) {
    if (argument.rfind("file://", 0) == 0) {
        if (auto decoded = percentDecode(std::string_view(argument).substr(7)); decoded && !decoded->empty())
            return *decoded;
    }
    std::error_code ec;
    auto absolute = std::filesystem::absolute(argument, ec);
    return ec ? std::filesystem::path(argument) : absolute;
}

}  // namespace

CommandLineURLHandler::CommandLineURLHandler() = default;
CommandLineURLHandler::~CommandLineURLHandler() = default;

int CommandLineURLHandler::openApp(bool requestsExternalHandoff) {
    std::cout << "Would bring Tavrin to the front"
              << (requestsExternalHandoff ? " and take the files handed over to it.\n" : ".\n");
    return kSuccess;
}

int CommandLineURLHandler::enqueue(const AdmittedFiles& files) {
    printRejected(files.rejected);
    for (const auto& file : files.files)
        std::cout << fmt::format("Not added to the queue: {}\n", printable(file.string()));
    std::cerr << "tavrin: adding files to the queue needs the Tavrin app's queue, which this program does not "
                 "have yet; nothing was added\n";
    return kFailure;
}

int CommandLineURLHandler::open(const AdmittedFiles& file) {
    printRejected(file.rejected);
    if (file.files.empty()) return kFailure;
    const auto& path = file.files.front();
    std::cout << fmt::format("Would open {} in Tavrin, showing:\n", printable(path.string()));
    try {
        printTree(std::cout, path, engine().inspect(path));
    } catch (...) {
        std::cout << fmt::format("{}: {}\n", printable(path.string()), describeError(std::current_exception()));
        return kFailure;
    }
    return kSuccess;
}

int CommandLineURLHandler::clean(const CleanRequest& request, const std::vector<RejectedFile>& rejected) {
    printRejected(rejected);
    const std::string presetName = request.presetName.value_or("maximum-privacy");
    if (!CleaningProfile::isPresetName(presetName))
        std::cout << fmt::format("Unknown preset \"{}\": cleaning with maximum-privacy.\n", printable(presetName, 200));
    const CleaningProfile profile = CleaningProfile::from(presetName);
    std::optional<std::filesystem::path> directory;
    if (request.shareOnly) {
        directory = makeShareFolder();
        if (!directory) {
            std::cerr << "tavrin: cannot create a temporary folder to share from\n";
            return kFailure;
        }
        std::cout << fmt::format("Cleaned copies to share go to {}\n", printable(directory->string()));
    }
    std::size_t failed = rejected.size();
    std::set<std::filesystem::path> reserved;
    for (const auto& source : request.fileURLs) {
        FileReport report;
        report.sourcePath = source;
        report.outputPath = reserveOutputPath(source, directory, reserved);
        try {
            if (report.outputPath->lexically_normal() == source.lexically_normal())
                throw PipelineError::outputDirectoryNotAccessible(*report.outputPath);
            report.result = engine().cleanToFile(source, profile, *report.outputPath);
        } catch (...) {
            report.error = describeError(std::current_exception());
            ++failed;
        }
        printCleanLine(std::cout, std::cerr, report);
    }
    const std::size_t total = request.fileURLs.size() + rejected.size();
    std::cout << fmt::format("{} of {} file{} cleaned and verified{}\n", total - failed, total,
                             total == 1 ? "" : "s", failed ? fmt::format(", {} failed", failed) : "");
    return failed == 0 ? kSuccess : kFailure;
}

int CommandLineURLHandler::unrecognized(std::string_view url, std::string_view why) {
    std::cerr << fmt::format("tavrin: cannot open {}: {}\n", printable(url, 200), why);
    return kFailure;
}

const TavrinEngine& CommandLineURLHandler::engine() {
    if (!engine_) engine_ = std::make_unique<TavrinEngine>();
    return *engine_;
}

std::optional<std::filesystem::path> CommandLineURLHandler::makeShareFolder() {
    std::error_code ec;
    auto base = std::filesystem::temp_directory_path(ec);
    if (ec) base = "/tmp";
    std::string pattern = (base / "tavrin-share-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) return std::nullopt;
    return std::filesystem::path(pattern);
}


int runOpenURL(const OpenURLOptions& options) {
    QueueURLHandler handler;
    return runOpenURL(options, handler);
}

namespace {

// The app takes the link when it can: it owns the queue and the windows the link may name. When
// it is not there, or does not answer, the link is carried out here.
int carryOut(const std::string& url, const OpenURLOptions& options, TavrinURLHandler& handler) {
    if (options.handToApp) {
        switch (handURLToApp(url)) {
            case AppHandoffOutcome::handedOver: return kSuccess;
            case AppHandoffOutcome::appNotRunning: break;
            case AppHandoffOutcome::appFailed:
                std::cerr << "tavrin: the Tavrin app did not take the link; carrying it out here\n";
                break;
        }
    }
    return dispatchTavrinURL(url, handler);
}

}  // namespace

int runOpenURL(const OpenURLOptions& options, TavrinURLHandler& handler) {
    if (!options.menuAction) {
        if (options.arguments.size() != 1) {
            std::cerr << "tavrin: open-url takes one tavrin: link\n";
            return kUsage;
        }
        return carryOut(options.arguments.front(), options, handler);
    }
    const auto action = FinderMenuAction::fromToken(*options.menuAction);
    if (!action) {
        std::cerr << fmt::format("tavrin: unknown menu action \"{}\"; use open or clean:PRESET\n",
                                 printable(*options.menuAction, 200));
        return kUsage;
    }
    std::vector<std::filesystem::path> files;
    for (const auto& argument : options.arguments) files.push_back(menuArgumentPath(argument));
    const auto urls = FinderContextMenuModel::urls(*action, files);
    if (urls.empty()) {
        std::cerr << "tavrin: no files were selected\n";
        return kFailure;
    }
    int status = kSuccess;
    for (const auto& url : urls) status = std::max(status, carryOut(url, options, handler));
    return status;
}

}  // namespace tavrin::cli
