#pragma once
// The File manager pane: the three routes from the file manager to Tavrin with their live state,
// buttons that run `tavrin integrate install` and `uninstall`, and the usage notes.

#include <QWidget>

#include <filesystem>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include "handoff/desktop_integration.h"
#include "handoff/program_launcher.h"

class QLabel;
class QPushButton;

namespace tavrin {

class FileManagerPane final : public QWidget {
    Q_OBJECT
public:
    // `readStatus` reads what is installed now; `tavrinProgram` is the command-line program whose
    // `integrate` verbs the buttons run through `launcher` (off the GUI thread).
    FileManagerPane(std::function<IntegrationStatus()> readStatus, ProgramLauncher& launcher,
                    std::filesystem::path tavrinProgram, QWidget* parent = nullptr);
    ~FileManagerPane() override;

    // Reads each route's state again.
    void recheck();
    // Runs `tavrin integrate <verb>`; `finished` is emitted when it ends.
    void runIntegrate(const std::string& verb);

    QLabel* statusLabel(FinderSetupRoute route) const;
    QLabel* messageLabel() const { return message_; }
    QPushButton* installButton() const { return install_; }
    QPushButton* uninstallButton() const { return uninstall_; }

signals:
    void finished(bool succeeded);

protected:
    // The states are read again each time the pane comes into view.
    void showEvent(QShowEvent* event) override;

private:
    void build();
    void integrateEnded(const QString& verb, std::optional<int> status);

    std::function<IntegrationStatus()> readStatus_;
    ProgramLauncher& launcher_;
    std::filesystem::path tavrinProgram_;
    std::thread worker_;

    std::vector<std::pair<FinderSetupRoute, QLabel*>> status_;
    QLabel* managers_ = nullptr;
    QLabel* message_ = nullptr;
    QPushButton* install_ = nullptr;
    QPushButton* uninstall_ = nullptr;
    QPushButton* recheck_ = nullptr;
};

}  // namespace tavrin
