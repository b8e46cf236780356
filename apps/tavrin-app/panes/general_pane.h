#pragma once
// The General pane: how cleaned files are saved and named, how many are cleaned at once, the
// default preset, the e-mail program, launch at login and the tray icon. Each control saves its
// setting the moment it changes.

#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

#include "autostart_entry.h"
#include "services/preset_service.h"
#include "settings_access.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QSpinBox;

namespace tavrin {

class GeneralPane final : public QWidget {
    Q_OBJECT
public:
    // `autostart` is optional: without it the launch-at-login box only records the setting.
    GeneralPane(SettingsAccess& settings, PresetService& presets, std::optional<AutostartEntry> autostart,
                QWidget* parent = nullptr);

    // Reads the record and the presets again (another process changed them).
    void reload();

    QComboBox* outputModeBox() const { return outputMode_; }
    QComboBox* suffixBox() const { return suffix_; }
    QLineEdit* customSuffixField() const { return customSuffix_; }
    QLabel* suffixErrorLabel() const { return suffixError_; }
    QSpinBox* concurrencyBox() const { return concurrency_; }
    QCheckBox* applyDefaultPresetBox() const { return autoProcess_; }
    QComboBox* defaultPresetBox() const { return defaultPreset_; }
    QCheckBox* stripEditHistoryBox() const { return stripHistory_; }
    QComboBox* emailClientBox() const { return emailClient_; }
    QCheckBox* launchAtLoginBox() const { return launchAtLogin_; }
    QCheckBox* trayIconBox() const { return trayIcon_; }
    QLabel* problemLabel() const { return problem_; }

private:
    void build();
    void save(const std::function<void(AppSettings&)>& change);
    void customSuffixEdited();
    void updateSuffixExample();

    SettingsAccess& settings_;
    PresetService& presets_;
    std::optional<AutostartEntry> autostart_;
    bool loading_ = false;

    QComboBox* outputMode_ = nullptr;
    QComboBox* suffix_ = nullptr;
    QLineEdit* customSuffix_ = nullptr;
    QLabel* suffixError_ = nullptr;
    QLabel* suffixExample_ = nullptr;
    QSpinBox* concurrency_ = nullptr;
    QCheckBox* autoProcess_ = nullptr;
    QComboBox* defaultPreset_ = nullptr;
    QCheckBox* stripHistory_ = nullptr;
    QComboBox* emailClient_ = nullptr;
    QCheckBox* launchAtLogin_ = nullptr;
    QCheckBox* trayIcon_ = nullptr;
    QLabel* problem_ = nullptr;
};

// None when `suffix` may end a copy's name; otherwise the naming rules' own words.
std::optional<std::string> customSuffixProblem(const std::string& suffix);

}  // namespace tavrin
