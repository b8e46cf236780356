#include "file_manager_pane.h"

#include "secondary_text.h"

#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

namespace tavrin {

namespace {

QString q(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<int>(text.size())); }

QLabel* wrapped(const QString& text) {
    auto* label = new QLabel(text);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

}  // namespace

FileManagerPane::FileManagerPane(std::function<IntegrationStatus()> readStatus, ProgramLauncher& launcher,
                                 std::filesystem::path tavrinProgram, QWidget* parent)
    : QWidget(parent), readStatus_(std::move(readStatus)), launcher_(launcher), tavrinProgram_(std::move(tavrinProgram)) {
    build();
    recheck();
}

FileManagerPane::~FileManagerPane() {
    if (worker_.joinable()) worker_.join();
}

void FileManagerPane::build() {
    setAccessibleName("File manager settings");
    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    auto* headline = new QLabel(q(FinderSetupModel::headline));
    QFont bold = headline->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.2);
    headline->setFont(bold);
    layout->addWidget(headline);
    layout->addWidget(wrapped(q(FinderSetupModel::sectionIntro)));

    for (auto route : FinderSetupModel::routes) {
        auto* frame = new QFrame;
        frame->setFrameShape(QFrame::StyledPanel);
        auto* grid = new QGridLayout(frame);
        auto* title = new QLabel(q(FinderSetupModel::title(route)));
        QFont font = title->font();
        font.setBold(true);
        title->setFont(font);
        auto* state = new QLabel;
        state->setAccessibleName(q(FinderSetupModel::title(route)) + " status");
        grid->addWidget(title, 0, 0);
        grid->addWidget(state, 0, 1, Qt::AlignRight);
        grid->addWidget(wrapped(q(FinderSetupModel::whereItAppears(route))), 1, 0, 1, 2);
        QStringList steps;
        int n = 1;
        for (auto step : FinderSetupModel::activationSteps(route)) steps << QString("%1. %2").arg(n++).arg(q(step));
        auto* stepsLabel = wrapped(steps.join('\n'));
        stepsLabel->setContentsMargins(12, 0, 0, 0);
        grid->addWidget(stepsLabel, 2, 0, 1, 2);
        layout->addWidget(frame);
        status_.emplace_back(route, state);
    }
    managers_ = wrapped(QString());
    managers_->setAccessibleName("File managers set up");
    layout->addWidget(managers_);

    install_ = new QPushButton("&Install Integration");
    install_->setAccessibleName("Install file manager integration");
    uninstall_ = new QPushButton("&Remove Integration");
    uninstall_->setAccessibleName("Remove file manager integration");
    recheck_ = new QPushButton("Recheck &Status");
    recheck_->setAccessibleName("Recheck status");
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(install_);
    buttons->addWidget(uninstall_);
    buttons->addStretch(1);
    buttons->addWidget(recheck_);
    layout->addLayout(buttons);
    message_ = wrapped(QString());
    message_->setAccessibleName("Integration message");
    layout->addWidget(message_);

    auto* cloud = wrapped(q(FinderSetupModel::cloudFolderNote));
    showAsSecondary(cloud);
    layout->addWidget(cloud);
    for (auto note : FinderSetupModel::usageNotes) {
        auto* label = wrapped(QString("\u2022 ") + q(note));
        showAsSecondary(label);
        layout->addWidget(label);
    }
    layout->addStretch(1);

    auto* scroll = new QScrollArea;
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(scroll);

    connect(install_, &QPushButton::clicked, this, [this] { runIntegrate("install"); });
    connect(uninstall_, &QPushButton::clicked, this, [this] { runIntegrate("uninstall"); });
    connect(recheck_, &QPushButton::clicked, this, [this] { recheck(); });
}

void FileManagerPane::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    recheck();
}

QLabel* FileManagerPane::statusLabel(FinderSetupRoute route) const {
    for (const auto& [r, label] : status_)
        if (r == route) return label;
    return nullptr;
}

void FileManagerPane::recheck() {
    IntegrationStatus installed;
    if (readStatus_) installed = readStatus_();
    for (const auto& [route, label] : status_) {
        const auto status = FinderSetupModel::status(route, installed.routes);
        label->setText(q(tavrin::label(status)));
        label->setStyleSheet(status == FinderSetupStatus::enabled ? "color: #1b7f3b; font-weight: bold;" : "");
    }
    QStringList names;
    for (const auto& name : installed.fileManagers) names << QString::fromStdString(name);
    managers_->setText(names.isEmpty() ? QString() : "Right-click menu set up for: " + names.join(", "));
}

void FileManagerPane::runIntegrate(const std::string& verb) {
    if (worker_.joinable()) {
        if (!install_->isEnabled()) return;  // one run at a time
        worker_.join();
    }
    install_->setEnabled(false);
    uninstall_->setEnabled(false);
    message_->setText(verb == "install" ? "Installing\u2026" : "Removing\u2026");
    const std::vector<std::string> argv{tavrinProgram_.string(), "integrate", verb};
    QPointer<FileManagerPane> self(this);
    const QString verbText = QString::fromStdString(verb);
    // The pane's destructor joins this thread, so `self` is checked on the GUI thread only.
    worker_ = std::thread([this, argv, self, verbText] {
        const auto status = launcher_.run(argv);
        QMetaObject::invokeMethod(this, [self, verbText, status] {
            if (self) self->integrateEnded(verbText, status);
        }, Qt::QueuedConnection);
    });
}

void FileManagerPane::integrateEnded(const QString& verb, std::optional<int> status) {
    install_->setEnabled(true);
    uninstall_->setEnabled(true);
    const bool ok = status && *status == 0;
    if (ok)
        message_->setText(verb == "install" ? "Installed. Your file managers show Tavrin after they restart."
                                            : "Removed.");
    else if (!status)
        message_->setText(QString("Could not run %1 integrate %2.").arg(QString::fromStdString(tavrinProgram_.string()), verb));
    else
        message_->setText(QString("tavrin integrate %1 failed (exit status %2).").arg(verb).arg(*status));
    recheck();
    emit finished(ok);
}

}  // namespace tavrin
