#pragma once
// The Presets pane: the list of presets (starters first, locked), and for the selected one its
// name, the categories it removes and the single items it removes or keeps. Starters cannot be
// changed: their editor is read-only and says why in the service's words, with "Duplicate" at
// hand. Every refusal of the preset service shows in words.

#include <QWidget>

#include <memory>
#include <optional>
#include <vector>

#include "services/preset_service.h"

class QCheckBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;

namespace tavrin {

class PresetsPane final : public QWidget {
    Q_OBJECT
public:
    explicit PresetsPane(PresetService& presets, QWidget* parent = nullptr);

    // Reads the presets again, keeping the selection where it can. Edits not yet saved stay in
    // the editor while their preset is still there (another process changed something else).
    void reload();
    bool hasUnsavedEdits() const { return dirty_; }
    void select(const Uuid& id);
    std::shared_ptr<MetadataPreset> selectedPreset() const;

    // The actions, as the buttons run them.
    void createPreset();
    void duplicateSelected();
    void deleteSelected();
    void saveSelected();

    QListWidget* list() const { return list_; }
    QLineEdit* nameField() const { return name_; }
    QCheckBox* categoryBox(MetadataCategory category) const;
    QPlainTextEdit* keysToRemoveField() const { return keysToRemove_; }
    QPlainTextEdit* keysToKeepField() const { return keysToKeep_; }
    QLabel* lockedLabel() const { return locked_; }
    QLabel* messageLabel() const { return message_; }
    QPushButton* saveButton() const { return save_; }
    QPushButton* deleteButton() const { return delete_; }
    QPushButton* duplicateButton() const { return duplicate_; }

private:
    void build();
    void showSelected();
    void showError(const std::string& text);
    std::vector<std::string> namesExcept(const MetadataPreset* preset) const;

    PresetService& presets_;
    bool dirty_ = false;
    bool showing_ = false;
    std::vector<std::shared_ptr<MetadataPreset>> shown_;

    QListWidget* list_ = nullptr;
    QLineEdit* name_ = nullptr;
    std::vector<std::pair<MetadataCategory, QCheckBox*>> categories_;
    QPlainTextEdit* keysToRemove_ = nullptr;
    QPlainTextEdit* keysToKeep_ = nullptr;
    QLabel* locked_ = nullptr;
    QLabel* message_ = nullptr;
    QPushButton* new_ = nullptr;
    QPushButton* duplicate_ = nullptr;
    QPushButton* delete_ = nullptr;
    QPushButton* save_ = nullptr;
};

}  // namespace tavrin
