#include "share_window.h"

#include <QHBoxLayout>
#include <QPointer>
#include <QVBoxLayout>

#include "handoff/tavrin_url.h"

namespace tavrin {

ShareWindow::ShareWindow(Collaborators collaborators, QWidget* parent)
    : QWidget(parent), collaborators_(std::move(collaborators)) {
    setWindowTitle("Tavrin");
    auto* stack = new QVBoxLayout(this);
    stack->setSpacing(16);
    stack->setContentsMargins(20, 20, 20, 20);

    auto* title = new QLabel("Tavrin", this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(20.0);
    titleFont.setWeight(QFont::DemiBold);
    title->setFont(titleFont);
    stack->addWidget(title);

    statusLabel_ = new QLabel("Loading shared files...", this);
    statusLabel_->setWordWrap(true);
    statusLabel_->setForegroundRole(QPalette::PlaceholderText);
    stack->addWidget(statusLabel_);

    auto* buttons = new QHBoxLayout();
    buttons->setSpacing(10);
    addButton_ = new QPushButton("Add to Queue", this);
    addButton_->setToolTip("Add the shared files to the Tavrin queue, opening Tavrin only if needed.");
    addButton_->setDefault(true);
    openButton_ = new QPushButton("Open Tavrin", this);
    openButton_->setToolTip("Add the shared files and open Tavrin to continue cleaning.");
    cancelButton_ = new QPushButton("Cancel", this);
    cancelButton_->setToolTip("Close this share sheet without adding files.");
    for (auto* button : {addButton_, openButton_, cancelButton_}) {
        // Room around the titles, so the three read as buttons rather than boxed words.
        button->setMinimumWidth(button->sizeHint().width() + 20);
        buttons->addWidget(button);
    }
    buttons->addStretch(1);
    stack->addLayout(buttons);
    stack->addStretch(1);
    setMinimumWidth(440);

    connect(addButton_, &QPushButton::clicked, this, &ShareWindow::addToQueue);
    connect(openButton_, &QPushButton::clicked, this, &ShareWindow::openTavrin);
    connect(cancelButton_, &QPushButton::clicked, this, &ShareWindow::cancelShare);

    loadFileURLs({});
}

QString ShareWindow::statusText(std::size_t fileCount) {
    if (fileCount == 0) return "No supported files were shared.";
    return QString("Ready to add %1 file%2 to the Tavrin queue.").arg(fileCount).arg(fileCount == 1 ? "" : "s");
}

void ShareWindow::loadFileURLs(std::function<void()> then) {
    if (!collaborators_.loadFileURLs) {
        statusLabel_->setText(statusText(0));
        if (then) then();
        return;
    }
    // The window may be gone when the files arrive.
    QPointer<ShareWindow> self(this);
    collaborators_.loadFileURLs([self, then = std::move(then)](Files files) {
        if (!self) return;
        self->fileURLs_ = std::move(files);
        self->statusLabel_->setText(statusText(self->fileURLs_.size()));
        if (then) then();
    });
}

void ShareWindow::addToQueue() {
    if (busy_ || finished_) return;
    if (fileURLs_.empty()) {
        // The load has not finished or found nothing: load again, then go on with what it finds.
        loadFileURLs([this] { openTavrinWithCurrentFiles(false); });
        return;
    }
    openTavrinWithCurrentFiles(false);
}

void ShareWindow::openTavrin() {
    if (busy_ || finished_) return;
    if (fileURLs_.empty()) {
        loadFileURLs([this] { openTavrinWithCurrentFiles(true); });
        return;
    }
    openTavrinWithCurrentFiles(true);
}

void ShareWindow::cancelShare() { finish(1); }

void ShareWindow::openTavrinWithCurrentFiles(bool allowOpeningWithoutFiles) {
    if (busy_ || finished_) return;
    auto urls = TavrinURL::enqueueURLs(fileURLs_, TavrinURL::defaultMaximumEnqueueURLLength);
    if (urls.empty()) {
        // "Add to Queue" with nothing to add just closes.
        if (!allowOpeningWithoutFiles) {
            finish(0);
            return;
        }
        urls.push_back(TavrinURL::appURL(false));
    }
    busy_ = true;
    for (auto* button : {addButton_, openButton_, cancelButton_}) button->setEnabled(false);
    QPointer<ShareWindow> self(this);
    auto opener = URLSequenceOpener::make(
        std::move(urls), collaborators_.openURL,
        [self] {
            if (self) self->finish(0);
        },
        collaborators_.postDelayed, collaborators_.timeout);
    opener->open();
}

void ShareWindow::finish(int result) {
    if (finished_) return;
    finished_ = true;
    emit finished(result);
    close();
}

}  // namespace tavrin
