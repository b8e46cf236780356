#include "general_pane.h"

#include "secondary_text.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QSpinBox>
#include <QVBoxLayout>

#include "data/clean_copy_naming.h"
#include "data/store_values.h"

namespace tavrin {

namespace {
QString q(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<int>(text.size())); }
}  // namespace

std::optional<std::string> customSuffixProblem(const std::string& suffix) {
    // The suffix becomes part of a file name: the naming rules for a typed name decide.
    try {
        CleanCopyNaming::resolvedCopyURL(suffix, "/", "", {});
    } catch (const CleanCopyNamingError& e) {
        return e.errorDescription();
    }
    return std::nullopt;
}

GeneralPane::GeneralPane(SettingsAccess& settings, PresetService& presets, std::optional<AutostartEntry> autostart,
                         QWidget* parent)
    : QWidget(parent), settings_(settings), presets_(presets), autostart_(std::move(autostart)) {
    build();
    reload();
}

void GeneralPane::build() {
    setAccessibleName("General settings");
    auto* saving = new QGroupBox("Saving cleaned files");
    auto* savingForm = new QFormLayout(saving);
    auto* running = new QGroupBox("Cleaning");
    auto* runningForm = new QFormLayout(running);
    auto* desktop = new QGroupBox("Desktop");
    auto* desktopForm = new QFormLayout(desktop);
    for (auto* form : {savingForm, runningForm, desktopForm}) form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);

    outputMode_ = new QComboBox;
    for (auto mode : cleanOutputModes::allCases()) outputMode_->addItem(q(displayName(mode)), q(rawValue(mode)));
    outputMode_->setAccessibleName("Default clean");
    auto* outputLabel = new QLabel("Default &clean:");
    outputLabel->setBuddy(outputMode_);
    savingForm->addRow(outputLabel, outputMode_);

    suffix_ = new QComboBox;
    for (auto kind : cleanCopySuffixKinds::allCases()) suffix_->addItem(q(displayName(kind)), q(rawValue(kind)));
    suffix_->setAccessibleName("Clean copy suffix");
    customSuffix_ = new QLineEdit;
    customSuffix_->setAccessibleName("Custom suffix");
    customSuffix_->setPlaceholderText("-clean");
    customSuffix_->setMinimumWidth(180);
    auto* suffixRow = new QHBoxLayout;
    suffixRow->addWidget(suffix_);
    suffixRow->addWidget(customSuffix_);
    auto* suffixLabel = new QLabel("Copy &name ends in:");
    suffixLabel->setBuddy(suffix_);
    savingForm->addRow(suffixLabel, suffixRow);
    suffixError_ = new QLabel;
    suffixError_->setAccessibleName("Suffix problem");
    suffixError_->setStyleSheet("color: #b00020;");
    suffixError_->setWordWrap(true);
    suffixError_->hide();
    suffixExample_ = new QLabel;
    suffixExample_->setAccessibleName("Example copy name");
    showAsSecondary(suffixExample_);
    savingForm->addRow(QString(), suffixExample_);
    savingForm->addRow(QString(), suffixError_);
    stripHistory_ = new QCheckBox("Also strip &edit history when cleaning in place");
    stripHistory_->setAccessibleName("Strip edit history in place");
    savingForm->addRow(stripHistory_);

    concurrency_ = new QSpinBox;
    concurrency_->setRange(static_cast<int>(AppSettings::minimumConcurrentProcessing),
                           static_cast<int>(AppSettings::maximumConcurrentProcessing));
    concurrency_->setAccessibleName("Files cleaned at once");
    auto* concurrencyLabel = new QLabel("Files cleaned at &once:");
    concurrencyLabel->setBuddy(concurrency_);
    runningForm->addRow(concurrencyLabel, concurrency_);
    autoProcess_ = new QCheckBox("&Apply the default preset to files as they are added");
    autoProcess_->setAccessibleName("Apply the default preset on add");
    runningForm->addRow(autoProcess_);
    defaultPreset_ = new QComboBox;
    defaultPreset_->setAccessibleName("Default preset");
    defaultPreset_->setMinimumWidth(220);
    auto* presetLabel = new QLabel("Default &preset:");
    presetLabel->setBuddy(defaultPreset_);
    runningForm->addRow(presetLabel, defaultPreset_);

    emailClient_ = new QComboBox;
    for (auto client : preferredEmailClients::allCases()) emailClient_->addItem(q(displayName(client)), q(rawValue(client)));
    emailClient_->setAccessibleName("E-mail program");
    auto* emailLabel = new QLabel("&E-mail with:");
    emailLabel->setBuddy(emailClient_);
    desktopForm->addRow(emailLabel, emailClient_);
    launchAtLogin_ = new QCheckBox("&Launch Tavrin at login");
    launchAtLogin_->setAccessibleName("Launch at login");
    desktopForm->addRow(launchAtLogin_);
    trayIcon_ = new QCheckBox("Show Tavrin in the system &tray");
    trayIcon_->setAccessibleName("Show tray icon");
    desktopForm->addRow(trayIcon_);

    problem_ = new QLabel;
    problem_->setAccessibleName("Settings problem");
    problem_->setWordWrap(true);
    problem_->setStyleSheet("color: #b00020;");

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(saving);
    layout->addWidget(running);
    layout->addWidget(desktop);
    layout->addWidget(problem_);
    layout->addStretch(1);

    connect(outputMode_, &QComboBox::currentIndexChanged, this, [this] {
        const auto mode = cleanOutputModeFromRawValue(outputMode_->currentData().toString().toStdString());
        if (mode) save([&](AppSettings& s) { s.setCleanOutputMode(*mode); });
    });
    connect(suffix_, &QComboBox::currentIndexChanged, this, [this] {
        const auto kind = cleanCopySuffixKindFromRawValue(suffix_->currentData().toString().toStdString());
        customSuffix_->setEnabled(kind == CleanCopySuffixKind::custom);
        if (kind) save([&](AppSettings& s) { s.setCleanCopySuffix(*kind); });
        updateSuffixExample();
    });
    connect(customSuffix_, &QLineEdit::textEdited, this, [this] { customSuffixEdited(); });
    connect(concurrency_, &QSpinBox::valueChanged, this,
            [this](int value) { save([&](AppSettings& s) { s.setMaxConcurrentProcessing(value); }); });
    connect(autoProcess_, &QCheckBox::toggled, this, [this](bool on) {
        defaultPreset_->setEnabled(on);
        save([&](AppSettings& s) { s.autoProcessOnAdd = on; });
    });
    connect(defaultPreset_, &QComboBox::currentIndexChanged, this, [this] {
        const auto text = defaultPreset_->currentData().toString().toStdString();
        const auto id = text.empty() ? std::nullopt : uuidFromString(text);
        save([&](AppSettings& s) { s.defaultPresetId = id; });
    });
    connect(stripHistory_, &QCheckBox::toggled, this,
            [this](bool on) { save([&](AppSettings& s) { s.stripEditHistoryInPlace = on; }); });
    connect(emailClient_, &QComboBox::currentIndexChanged, this, [this] {
        const auto client = preferredEmailClientFromRawValue(emailClient_->currentData().toString().toStdString());
        if (client) save([&](AppSettings& s) { s.setPreferredEmailClient(*client); });
    });
    connect(launchAtLogin_, &QCheckBox::toggled, this, [this](bool on) {
        if (loading_) return;
        if (autostart_) {
            try {
                on ? autostart_->install() : autostart_->remove();
            } catch (const std::exception& e) {
                problem_->setText(QString::fromStdString(e.what()));
                const QSignalBlocker block(launchAtLogin_);
                launchAtLogin_->setChecked(!on);
                return;
            }
        }
        save([&](AppSettings& s) { s.launchAtLogin = on; });
    });
    connect(trayIcon_, &QCheckBox::toggled, this,
            [this](bool on) { save([&](AppSettings& s) { s.showMenuBarIcon = on; }); });
}

void GeneralPane::reload() {
    loading_ = true;
    const auto s = settings_.current();
    const QSignalBlocker b1(outputMode_), b2(suffix_), b3(concurrency_), b4(autoProcess_), b5(defaultPreset_),
        b6(stripHistory_), b7(emailClient_), b8(launchAtLogin_), b9(trayIcon_);
    outputMode_->setCurrentIndex(outputMode_->findData(q(rawValue(s.cleanOutputMode()))));
    suffix_->setCurrentIndex(suffix_->findData(q(rawValue(s.cleanCopySuffix()))));
    if (!customSuffix_->hasFocus()) customSuffix_->setText(QString::fromStdString(s.cleanCopyCustomSuffix));
    customSuffix_->setEnabled(s.cleanCopySuffix() == CleanCopySuffixKind::custom);
    concurrency_->setValue(static_cast<int>(s.maxConcurrentProcessing()));
    autoProcess_->setChecked(s.autoProcessOnAdd);
    defaultPreset_->clear();
    defaultPreset_->addItem("None", QString());
    try {
        for (const auto& preset : presets_.fetchAllPresets())
            defaultPreset_->addItem(QString::fromStdString(preset->name), QString::fromStdString(preset->id.uuidString()));
    } catch (const std::exception& e) {
        problem_->setText(QString::fromStdString(e.what()));
    }
    const int presetIndex =
        s.defaultPresetId ? defaultPreset_->findData(QString::fromStdString(s.defaultPresetId->uuidString())) : 0;
    defaultPreset_->setCurrentIndex(presetIndex < 0 ? 0 : presetIndex);
    defaultPreset_->setEnabled(s.autoProcessOnAdd);
    stripHistory_->setChecked(s.stripEditHistoryInPlace);
    emailClient_->setCurrentIndex(emailClient_->findData(q(rawValue(s.preferredEmailClient()))));
    launchAtLogin_->setChecked(autostart_ ? autostart_->isInstalled() : s.launchAtLogin);
    trayIcon_->setChecked(s.showMenuBarIcon);
    updateSuffixExample();
    loading_ = false;
}

void GeneralPane::save(const std::function<void(AppSettings&)>& change) {
    if (loading_) return;
    try {
        settings_.update(change);
        problem_->clear();
    } catch (const std::exception& e) {
        problem_->setText(QString::fromStdString(std::string("The setting was not saved: ") + e.what()));
    }
}

void GeneralPane::customSuffixEdited() {
    const auto text = customSuffix_->text().toStdString();
    if (const auto problem = customSuffixProblem(text)) {
        suffixError_->setText(QString::fromStdString(*problem));
        suffixError_->show();
        return;
    }
    suffixError_->clear();
    suffixError_->hide();
    save([&](AppSettings& s) { s.cleanCopyCustomSuffix = text; });
    updateSuffixExample();
}

void GeneralPane::updateSuffixExample() {
    const auto s = settings_.current();
    const auto suffix = CleanCopySuffix::resolved(s.cleanCopySuffixTokenRaw, s.cleanCopyCustomSuffix);
    const auto example = CleanCopyNaming::defaultCopyURL("/Report.pdf", suffix).filename().string();
    suffixExample_->setText(QString::fromStdString("Report.pdf becomes " + example));
}

}  // namespace tavrin
