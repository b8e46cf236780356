#pragma once
// Installing, removing and reading the per-user desktop integration: the tavrin: link handler,
// the "Open With" entry, the right-click menus of the file managers and the icon. Nothing needs
// root; only files that Tavrin wrote are ever replaced or removed, and in the files Tavrin shares
// with others (Thunar's uca.xml, mimeapps.list) only its own entries are touched.

#include <string>
#include <vector>

#include "handoff/finder_setup_model.h"
#include "handoff/integration_files.h"
#include "handoff/program_launcher.h"

namespace tavrin {

struct IntegrationReport {
    std::vector<std::string> written;   // paths written or edited
    std::vector<std::string> removed;   // paths removed or edited
    std::vector<std::string> notes;     // what the user should know
    std::vector<std::string> problems;  // what did not work; a non-empty list means failure
};

struct IntegrationStatus {
    InstalledRoutes routes;
    std::vector<std::string> fileManagers;  // the file managers whose menu is in place
};

class DesktopIntegration {
public:
    DesktopIntegration(IntegrationLocations locations, ProgramLauncher& launcher)
        : locations_(std::move(locations)), launcher_(launcher) {}

    IntegrationReport install(const IntegrationPrograms& programs);
    IntegrationReport uninstall();
    IntegrationStatus status() const;

private:
    void installThunarActions(const IntegrationPrograms& programs, IntegrationReport& report);
    void removeThunarActions(IntegrationReport& report);
    void registerSchemeHandler(IntegrationReport& report);
    void removeSchemeHandler(IntegrationReport& report);
    std::string emptyThunarActions() const;

    IntegrationLocations locations_;
    ProgramLauncher& launcher_;
};

}  // namespace tavrin
