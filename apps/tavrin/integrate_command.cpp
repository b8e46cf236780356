// `tavrin integrate install|uninstall|status`: the per-user desktop integration.
#include <fmt/core.h>
#include <iostream>

#include "cli.h"
#include "handoff/desktop_integration.h"
#include "handoff/url_dispatch.h"
#include "handoff_commands.h"

namespace tavrin::cli {

namespace {

std::filesystem::path runningProgram() {
    std::error_code ec;
    auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::filesystem::path("tavrin") : self;
}

IntegrationPrograms programsFor(const IntegrateOptions& options) {
    IntegrationPrograms programs;
    programs.tavrin = runningProgram();
    if (options.shareProgram) {
        std::error_code ec;
        programs.tavrinShare = std::filesystem::absolute(*options.shareProgram, ec);
    } else {
        const auto sibling = programs.tavrin.parent_path() / "tavrin-share";
        const auto onPath = findExecutable("tavrin-share");
        programs.tavrinShare = std::filesystem::exists(sibling) || !onPath ? sibling : *onPath;
    }
    return programs;
}

void printList(const char* heading, const std::vector<std::string>& items) {
    for (const auto& item : items) std::cout << fmt::format("{} {}\n", heading, printable(item));
}

int printReport(const IntegrationReport& report) {
    printList("Wrote", report.written);
    printList("Removed", report.removed);
    for (const auto& note : report.notes) std::cout << printable(note) << "\n";
    for (const auto& problem : report.problems) std::cerr << "tavrin: " << printable(problem) << "\n";
    return report.problems.empty() ? kSuccess : kFailure;
}

}  // namespace

int runIntegrate(const IntegrateOptions& options) {
    auto locations = IntegrationLocations::fromEnvironment();
    if (!locations) {
        std::cerr << "tavrin: no home folder is known (set HOME or XDG_DATA_HOME and XDG_CONFIG_HOME)\n";
        return kFailure;
    }
    SpawnProgramLauncher launcher;
    DesktopIntegration integration(*locations, launcher);
    if (options.verb == "install") {
        const auto programs = programsFor(options);
        const int status = printReport(integration.install(programs));
        if (!std::filesystem::exists(programs.tavrinShare))
            std::cout << fmt::format("Note: {} does not exist yet; the Open With entry starts it once it does.\n",
                                     printable(programs.tavrinShare.string()));
        std::cout << "Close any open file manager window and open it again to see the menu.\n";
        return status;
    }
    if (options.verb == "uninstall") return printReport(integration.uninstall());
    const auto status = integration.status();
    for (auto route : FinderSetupModel::routes) {
        const auto state = FinderSetupModel::status(route, status.routes);
        std::string detail;
        if (route == FinderSetupRoute::fileManagerMenu && !status.fileManagers.empty()) {
            for (const auto& manager : status.fileManagers) detail += (detail.empty() ? "" : ", ") + manager;
            detail = " (" + detail + ")";
        }
        std::cout << fmt::format("{}: {}{}\n", FinderSetupModel::title(route), label(state), detail);
    }
    return kSuccess;
}

HandoffCommands::HandoffCommands(CLI::App& app) {
    openURLCommand_ = app.add_subcommand(
        "open-url", "Carry out a tavrin: link (cleaned copies go beside the files; nothing is cleaned in place)");
    openURLCommand_->add_option("--menu", openURL_->menuAction,
                                "Act as the file manager's menu entry: open, or clean:PRESET; the arguments are files");
    openURLCommand_->add_flag("--here{false}", openURL_->handToApp,
                              "Carry the link out in this process, even when the Tavrin app runs");
    openURLCommand_->add_option("ARGS", openURL_->arguments, "The tavrin: link, or with --menu the files")->required();

    integrateCommand_ = app.add_subcommand(
        "integrate", "Add Tavrin to your file managers' menus and the handler of tavrin: links, for your user only");
    integrateCommand_->add_option("ACTION", integrate_->verb, "install, uninstall or status")
        ->required()
        ->check(CLI::IsMember({"install", "uninstall", "status"}));
    integrateCommand_->add_option("--share-program", integrate_->shareProgram,
                                  "Path of tavrin-share for the Open With entry (default: beside tavrin)");
}

std::optional<int> HandoffCommands::runIfChosen() const {
    if (*openURLCommand_) return runOpenURL(*openURL_);
    if (*integrateCommand_) return runIntegrate(*integrate_);
    return std::nullopt;
}

}  // namespace tavrin::cli
