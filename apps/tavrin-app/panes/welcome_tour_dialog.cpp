#include "welcome_tour_dialog.h"

#include "secondary_text.h"

#include <QDir>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QVBoxLayout>

#include "handoff/finder_setup_model.h"

namespace tavrin {

namespace {

QString q(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<int>(text.size())); }
QString key(std::string_view name) { return q(name); }

QWidget* cardWidget(const WelcomeTourCard& card) {
    auto* frame = new QFrame;
    frame->setFrameShape(QFrame::StyledPanel);
    frame->setAccessibleName(QString::fromStdString(card.title));
    auto* layout = new QVBoxLayout(frame);
    auto* title = new QLabel(QString::fromStdString(card.title));
    QFont font = title->font();
    font.setBold(true);
    title->setFont(font);
    auto* body = new QLabel(QString::fromStdString(card.body));
    body->setWordWrap(true);
    layout->addWidget(title);
    layout->addWidget(body);
    return frame;
}

}  // namespace

FileTourPreferences::FileTourPreferences(const QString& iniPath)
    : settings_(std::make_unique<QSettings>(iniPath, QSettings::IniFormat)) {}
FileTourPreferences::~FileTourPreferences() = default;

QString FileTourPreferences::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/Tavrin/tavrin-app.conf";
}

int FileTourPreferences::lastCompletedVersion() const {
    return settings_->value(key(WelcomeTourModel::versionDefaultsKey), 0).toInt();
}

void FileTourPreferences::setLastCompletedVersion(int version) {
    settings_->setValue(key(WelcomeTourModel::versionDefaultsKey), version);
    settings_->sync();
}

bool FileTourPreferences::legacyOnboarded() const {
    return settings_->value(key(WelcomeTourModel::legacyOnboardedDefaultsKey), false).toBool();
}

bool shouldShowWelcomeTour(TourPreferences& preferences) {
    const int persisted = preferences.lastCompletedVersion();
    const int migrated = WelcomeTourModel::migratedVersion(preferences.legacyOnboarded(), persisted);
    if (migrated != persisted) preferences.setLastCompletedVersion(migrated);
    return WelcomeTourModel::shouldShow(migrated);
}

WelcomeTourDialog::WelcomeTourDialog(TourPreferences& preferences, CleanOutputMode outputMode,
                                     std::function<void()> openFileManagerSetup, QWidget* parent)
    : QDialog(parent), preferences_(preferences) {
    setWindowTitle("Welcome to Tavrin");
    setAccessibleName("Welcome tour");
    eyebrow_ = new QLabel;
    eyebrow_->setAccessibleName("Step");
    title_ = new QLabel;
    title_->setAccessibleName("Step title");
    QFont big = title_->font();
    big.setBold(true);
    big.setPointSizeF(big.pointSizeF() * 1.6);
    title_->setFont(big);
    title_->setWordWrap(true);
    subtitle_ = new QLabel;
    subtitle_->setWordWrap(true);
    subtitle_->setAccessibleName("Step description");
    pages_ = new QStackedWidget;
    for (auto s : WelcomeTourSteps::ordered) pages_->addWidget(page(s, outputMode, openFileManagerSetup));
    progress_ = new QLabel;
    progress_->setAccessibleName("Tour progress");
    back_ = new QPushButton("&Back");
    back_->setAccessibleName("Back");
    next_ = new QPushButton("&Continue");
    next_->setAccessibleName("Continue");
    next_->setDefault(true);
    skip_ = new QPushButton("&Skip Tour");
    skip_->setAccessibleName("Skip tour");
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(skip_);
    buttons->addWidget(progress_);
    buttons->addStretch(1);
    buttons->addWidget(back_);
    buttons->addWidget(next_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(eyebrow_);
    layout->addWidget(title_);
    layout->addWidget(subtitle_);
    layout->addWidget(pages_, 1);
    layout->addLayout(buttons);
    resize(620, 480);
    connect(back_, &QPushButton::clicked, this, [this] { back(); });
    connect(next_, &QPushButton::clicked, this, [this] { next(); });
    connect(skip_, &QPushButton::clicked, this, [this] { finish(); });
    goTo(WelcomeTourStep::welcome);
}

QWidget* WelcomeTourDialog::page(WelcomeTourStep step, CleanOutputMode outputMode, const std::function<void()>& openSetup) {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    std::vector<WelcomeTourCard> cards;
    switch (step) {
        case WelcomeTourStep::welcome: cards = WelcomeTourModel::welcomeCards(); break;
        case WelcomeTourStep::cleanAFile: cards = WelcomeTourModel::cleanCards(outputMode == CleanOutputMode::inPlace); break;
        case WelcomeTourStep::foldersAndPresets: cards = WelcomeTourModel::foldersCards(); break;
        case WelcomeTourStep::finderSetup: break;
        case WelcomeTourStep::ready: cards = WelcomeTourModel::readyCards(); break;
    }
    for (const auto& card : cards) layout->addWidget(cardWidget(card));
    if (step == WelcomeTourStep::cleanAFile) {
        auto* note = new QLabel(q(WelcomeTourModel::inspectNote));
        note->setWordWrap(true);
        showAsSecondary(note);
        layout->addWidget(note);
    }
    if (step == WelcomeTourStep::finderSetup) {
        for (auto route : FinderSetupModel::routes)
            layout->addWidget(cardWidget(WelcomeTourCard(std::string(FinderSetupModel::systemImage(route)),
                                                         std::string(FinderSetupModel::title(route)),
                                                         std::string(FinderSetupModel::purpose(route)))));
        if (openSetup) {
            auto* open = new QPushButton("Set Up &File Manager\u2026");
            open->setAccessibleName("Set up file manager");
            connect(open, &QPushButton::clicked, this, [openSetup] { openSetup(); });
            layout->addWidget(open, 0, Qt::AlignLeft);
        }
    }
    layout->addStretch(1);
    return page;
}

QWidget* WelcomeTourDialog::currentPage() const { return pages_->currentWidget(); }

void WelcomeTourDialog::goTo(WelcomeTourStep step) {
    step_ = step;
    pages_->setCurrentIndex(static_cast<int>(step));
    eyebrow_->setText(q(WelcomeTourSteps::eyebrow(step)).toUpper());
    title_->setText(q(WelcomeTourSteps::title(step)));
    subtitle_->setText(q(WelcomeTourSteps::subtitle(step)));
    progress_->setText(QString("%1 of %2").arg(WelcomeTourSteps::displayIndex(step)).arg(WelcomeTourSteps::count));
    back_->setEnabled(!WelcomeTourSteps::isFirst(step));
    next_->setText(WelcomeTourSteps::isLast(step) ? "&Get Started" : "&Continue");
    next_->setAccessibleName(WelcomeTourSteps::isLast(step) ? "Get Started" : "Continue");
    skip_->setVisible(!WelcomeTourSteps::isLast(step));
}

void WelcomeTourDialog::next() {
    if (const auto following = WelcomeTourSteps::next(step_)) goTo(*following);
    else finish();
}

void WelcomeTourDialog::back() {
    if (const auto preceding = WelcomeTourSteps::previous(step_)) goTo(*preceding);
}

void WelcomeTourDialog::finish() {
    preferences_.setLastCompletedVersion(WelcomeTourModel::currentVersion);
    accept();
}

}  // namespace tavrin

namespace tavrin {

void WelcomeTourDialog::reject() {
    preferences_.setLastCompletedVersion(WelcomeTourModel::currentVersion);
    QDialog::reject();
}

}  // namespace tavrin
