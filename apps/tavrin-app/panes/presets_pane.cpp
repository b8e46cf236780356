#include "presets_pane.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QStyle>
#include <QVBoxLayout>

#include <algorithm>
#include <sstream>

#include "data/store_values.h"
#include "model/metadata_model.h"

namespace tavrin {

namespace {

QString q(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<int>(text.size())); }

std::vector<std::string> lines(const QPlainTextEdit* field) {
    std::vector<std::string> out;
    std::istringstream in(field->toPlainText().toStdString());
    for (std::string line; std::getline(in, line);) {
        auto trimmed = trimmedWhitespace(line);
        if (!trimmed.empty() && std::find(out.begin(), out.end(), trimmed) == out.end()) out.push_back(trimmed);
    }
    return out;
}

QString joined(const std::vector<std::string>& values) {
    QStringList out;
    for (const auto& v : values) out << QString::fromStdString(v);
    return out.join('\n');
}

bool sameName(const std::string& a, const std::string& b) {
    auto lower = [](std::string s) {
        std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
        return s;
    };
    return lower(trimmedWhitespace(a)) == lower(trimmedWhitespace(b));
}

}  // namespace

PresetsPane::PresetsPane(PresetService& presets, QWidget* parent) : QWidget(parent), presets_(presets) {
    build();
    reload();
}

void PresetsPane::build() {
    setAccessibleName("Presets settings");
    list_ = new QListWidget;
    list_->setAccessibleName("Presets");
    list_->setSpacing(2);
    new_ = new QPushButton("&New Preset");
    new_->setAccessibleName("New preset");
    duplicate_ = new QPushButton("D&uplicate");
    duplicate_->setAccessibleName("Duplicate preset");
    delete_ = new QPushButton("&Delete");
    delete_->setAccessibleName("Delete preset");
    auto* listButtons = new QHBoxLayout;
    listButtons->addWidget(new_);
    listButtons->addWidget(duplicate_);
    listButtons->addWidget(delete_);
    auto* left = new QVBoxLayout;
    left->addWidget(list_, 1);
    left->addLayout(listButtons);

    locked_ = new QLabel;
    locked_->setWordWrap(true);
    locked_->setAccessibleName("Starter preset note");
    name_ = new QLineEdit;
    name_->setAccessibleName("Preset name");
    auto* nameLabel = new QLabel("N&ame:");
    nameLabel->setBuddy(name_);
    auto* categoriesBox = new QGroupBox("Remove these categories");
    auto* grid = new QGridLayout(categoriesBox);
    int index = 0;
    for (auto category : metadataCategories::allCases()) {
        auto* box = new QCheckBox(q(displayName(category)).replace('&', "&&"));
        box->setAccessibleName(q(displayName(category)));
        box->setToolTip(q(description(category)));
        grid->addWidget(box, index / 2, index % 2);
        categories_.emplace_back(category, box);
        ++index;
    }
    keysToRemove_ = new QPlainTextEdit;
    keysToRemove_->setAccessibleName("Items always removed");
    keysToRemove_->setTabChangesFocus(true);
    keysToRemove_->setPlaceholderText("One item identifier per line");
    keysToKeep_ = new QPlainTextEdit;
    keysToKeep_->setAccessibleName("Items always kept");
    keysToKeep_->setTabChangesFocus(true);
    keysToKeep_->setPlaceholderText("One item identifier per line");
    auto* removeLabel = new QLabel("Also &remove:");
    removeLabel->setBuddy(keysToRemove_);
    auto* keepLabel = new QLabel("Always &keep:");
    keepLabel->setBuddy(keysToKeep_);
    save_ = new QPushButton("&Save Changes");
    save_->setAccessibleName("Save preset");
    message_ = new QLabel;
    message_->setWordWrap(true);
    message_->setAccessibleName("Preset message");
    message_->setStyleSheet("color: #b00020;");

    auto* right = new QVBoxLayout;
    right->addWidget(locked_);
    auto* nameRow = new QHBoxLayout;
    nameRow->addWidget(nameLabel);
    nameRow->addWidget(name_, 1);
    right->addLayout(nameRow);
    right->addWidget(categoriesBox);
    auto* keys = new QGridLayout;
    keys->addWidget(removeLabel, 0, 0);
    keys->addWidget(keepLabel, 0, 1);
    keys->addWidget(keysToRemove_, 1, 0);
    keys->addWidget(keysToKeep_, 1, 1);
    right->addLayout(keys, 1);
    right->addWidget(message_);
    auto* saveRow = new QHBoxLayout;
    saveRow->addStretch(1);
    saveRow->addWidget(save_);
    right->addLayout(saveRow);

    auto* layout = new QHBoxLayout(this);
    layout->addLayout(left, 2);
    layout->addLayout(right, 3);

    connect(list_, &QListWidget::currentRowChanged, this, [this] { showSelected(); });
    auto edited = [this] {
        if (!showing_) dirty_ = true;
    };
    connect(name_, &QLineEdit::textChanged, this, edited);
    connect(keysToRemove_, &QPlainTextEdit::textChanged, this, edited);
    connect(keysToKeep_, &QPlainTextEdit::textChanged, this, edited);
    for (const auto& [category, box] : categories_) connect(box, &QCheckBox::toggled, this, edited);
    connect(new_, &QPushButton::clicked, this, [this] { createPreset(); });
    connect(duplicate_, &QPushButton::clicked, this, [this] { duplicateSelected(); });
    connect(delete_, &QPushButton::clicked, this, [this] { deleteSelected(); });
    connect(save_, &QPushButton::clicked, this, [this] { saveSelected(); });
}

void PresetsPane::reload() {
    const auto selected = selectedPreset();
    const auto keep = selected ? std::optional<Uuid>(selected->id) : std::nullopt;
    try {
        shown_ = presets_.fetchAllPresets();
    } catch (const std::exception& e) {
        shown_.clear();
        showError(e.what());
    }
    const QSignalBlocker block(list_);
    list_->clear();
    for (const auto& preset : shown_) {
        // Starters say so in words: not every font has a lock glyph.
        auto* item = new QListWidgetItem(QString::fromStdString(preset->name) + (preset->isBuiltIn ? "  (Starter)" : ""));
        if (preset->isBuiltIn) item->setToolTip("Starter preset: duplicate it to make your own version.");
        item->setData(Qt::AccessibleTextRole,
                      QString::fromStdString(preset->name) + (preset->isBuiltIn ? ", starter preset, locked" : ""));
        list_->addItem(item);
    }
    int row = shown_.empty() ? -1 : 0;
    bool kept = false;
    for (std::size_t i = 0; keep && i < shown_.size(); ++i)
        if (shown_[i]->id == *keep) {
            row = static_cast<int>(i);
            kept = true;
        }
    list_->setCurrentRow(row);
    if (!(kept && dirty_)) showSelected();
}

void PresetsPane::select(const Uuid& id) {
    for (std::size_t i = 0; i < shown_.size(); ++i)
        if (shown_[i]->id == id) list_->setCurrentRow(static_cast<int>(i));
}

std::shared_ptr<MetadataPreset> PresetsPane::selectedPreset() const {
    const int row = list_ ? list_->currentRow() : -1;
    if (row < 0 || row >= static_cast<int>(shown_.size())) return nullptr;
    return shown_[static_cast<std::size_t>(row)];
}

QCheckBox* PresetsPane::categoryBox(MetadataCategory category) const {
    for (const auto& [c, box] : categories_)
        if (c == category) return box;
    return nullptr;
}

void PresetsPane::showSelected() {
    showing_ = true;
    dirty_ = false;
    const auto preset = selectedPreset();
    const bool editable = preset && !preset->isBuiltIn;
    name_->setText(preset ? QString::fromStdString(preset->name) : QString());
    const auto chosen = preset ? preset->categoriesToRemove() : std::set<MetadataCategory>{};
    for (const auto& [category, box] : categories_) box->setChecked(chosen.count(category) > 0);
    keysToRemove_->setPlainText(preset ? joined(preset->specificKeysToRemove) : QString());
    keysToKeep_->setPlainText(preset ? joined(preset->specificKeysToKeep) : QString());
    name_->setReadOnly(!editable);
    for (const auto& [category, box] : categories_) box->setEnabled(editable);
    keysToRemove_->setReadOnly(!editable);
    keysToKeep_->setReadOnly(!editable);
    save_->setEnabled(editable);
    duplicate_->setEnabled(preset != nullptr);
    delete_->setEnabled(preset != nullptr);
    locked_->setText(preset && preset->isBuiltIn
                         ? QString::fromStdString(PresetServiceError::cannotModifyBuiltIn().errorDescription())
                         : QString());
    locked_->setVisible(preset && preset->isBuiltIn);
    message_->clear();
    showing_ = false;
}

void PresetsPane::showError(const std::string& text) { message_->setText(QString::fromStdString(text)); }

std::vector<std::string> PresetsPane::namesExcept(const MetadataPreset* preset) const {
    std::vector<std::string> names;
    for (const auto& p : shown_)
        if (p.get() != preset) names.push_back(p->name);
    return names;
}

void PresetsPane::createPreset() {
    try {
        const auto name = MetadataPreset::uniqueName(MetadataPreset::untitledName, namesExcept(nullptr));
        auto created = presets_.createPreset(name, {MetadataCategory::location}, {}, {});
        reload();
        select(created->id);
        name_->setFocus();
        name_->selectAll();
    } catch (const std::exception& e) {
        showError(e.what());
    }
}

void PresetsPane::duplicateSelected() {
    const auto source = selectedPreset();
    if (!source) return;
    try {
        // A copy gets a name of its own, so two presets never read the same in a menu.
        const auto name = MetadataPreset::uniqueName(source->name + " (Copy)", namesExcept(nullptr));
        auto copy = presets_.createPreset(name, source->categoriesToRemove(), source->specificKeysToRemove,
                                          source->specificKeysToKeep);
        reload();
        select(copy->id);
    } catch (const std::exception& e) {
        showError(e.what());
    }
}

void PresetsPane::deleteSelected() {
    const auto preset = selectedPreset();
    if (!preset) return;
    try {
        presets_.deletePreset(preset);
        reload();
    } catch (const PresetServiceError& e) {
        showError(e.errorDescription());
    } catch (const std::exception& e) {
        showError(e.what());
    }
}

void PresetsPane::saveSelected() {
    const auto preset = selectedPreset();
    if (!preset) return;
    const auto wanted = trimmedWhitespace(name_->text().toStdString());
    try {
        for (const auto& other : namesExcept(preset.get()))
            if (sameName(other, wanted)) throw PresetServiceError::duplicateName(wanted);
        std::set<MetadataCategory> categories;
        for (const auto& [category, box] : categories_)
            if (box->isChecked()) categories.insert(category);
        presets_.updatePreset(preset, wanted.empty() ? std::string(MetadataPreset::untitledName) : wanted, categories,
                              lines(keysToRemove_), lines(keysToKeep_));
        dirty_ = false;
        reload();
    } catch (const PresetServiceError& e) {
        showError(e.errorDescription());
    } catch (const std::exception& e) {
        showError(e.what());
    }
}

}  // namespace tavrin
