#pragma once
// After "Clean & Share": the clean temporary copies, ready to go. "Email…" opens the preferred
// mail program with them attached, "Show in Folder" opens their folder, and the list drags out
// as files. The share store sweeps them away by age.

#include <QDialog>

#include <filesystem>
#include <vector>

class QListWidget;

namespace tavrin {

class AppContext;

class ShareSheet : public QDialog {
    Q_OBJECT
public:
    ShareSheet(AppContext& app, std::vector<std::filesystem::path> files, QWidget* parent = nullptr);
    QListWidget* list() const { return list_; }

private:
    void email();
    void showInFolder();

    AppContext& app_;
    std::vector<std::filesystem::path> files_;
    QListWidget* list_;
};

}  // namespace tavrin
