#include "share_sheet.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

#include "app_context.h"
#include "app_icons.h"
#include "handoff/email_integration.h"
#include "handoff/program_launcher.h"

namespace tavrin {

namespace {

// The list drags out the files themselves.
class FileList final : public QListWidget {
public:
    using QListWidget::QListWidget;

protected:
    QStringList mimeTypes() const override { return {QStringLiteral("text/uri-list")}; }
    QMimeData* mimeData(const QList<QListWidgetItem*>& items) const override {
        QList<QUrl> urls;
        for (const auto* item : items) urls << QUrl::fromLocalFile(item->data(Qt::UserRole).toString());
        auto* mime = new QMimeData;
        mime->setUrls(urls);
        return mime;
    }
};

}  // namespace

ShareSheet::ShareSheet(AppContext& app, std::vector<std::filesystem::path> files, QWidget* parent)
    : QDialog(parent), app_(app), files_(std::move(files)) {
    setWindowTitle(tr("Clean & Share"));
    setAccessibleName(tr("Clean & Share"));
    auto* layout = new QVBoxLayout(this);
    auto* label = new QLabel(tr("Clean copies ready to share. They are deleted automatically later."), this);
    label->setWordWrap(true);
    list_ = new FileList(this);
    list_->setAccessibleName(tr("Clean copies; drag them to another program"));
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list_->setDragEnabled(true);
    list_->setDragDropMode(QAbstractItemView::DragOnly);
    for (const auto& file : files_) {
        auto* item = new QListWidgetItem(icons::verified(), QString::fromStdString(file.filename().string()), list_);
        item->setData(Qt::UserRole, QString::fromStdString(file.string()));
        item->setToolTip(QString::fromStdString(file.string()));
    }
    list_->selectAll();
    auto* buttons = new QDialogButtonBox(this);
    auto* email = buttons->addButton(tr("Email…"), QDialogButtonBox::ActionRole);
    auto* folder = buttons->addButton(tr("Show in Folder"), QDialogButtonBox::ActionRole);
    auto* done = buttons->addButton(QDialogButtonBox::Close);
    email->setAccessibleName(tr("Email the clean copies"));
    folder->setAccessibleName(tr("Show the clean copies in their folder"));
    connect(email, &QPushButton::clicked, this, &ShareSheet::email);
    connect(folder, &QPushButton::clicked, this, &ShareSheet::showInFolder);
    connect(done, &QPushButton::clicked, this, &QDialog::accept);
    layout->addWidget(label);
    layout->addWidget(list_, 1);
    layout->addWidget(buttons);
    resize(420, 300);
}

void ShareSheet::email() {
    SpawnProgramLauncher launcher;
    ComposeService compose(launcher);
    try {
        const auto client = emailClientFromRawValue(app_.settings()->preferredEmailClientRaw);
        compose.compose(files_, client, std::nullopt, std::nullopt);
    } catch (const std::exception& e) {
        QMessageBox::warning(this, tr("Email"), QString::fromStdString(e.what()));
    }
}

void ShareSheet::showInFolder() {
    SpawnProgramLauncher launcher;
    for (const auto& command : EmailRoutes::revealCommands(files_))
        if (!launcher.launch(command))
            QMessageBox::warning(this, tr("Show in Folder"), tr("No program could show the folder."));
}

}  // namespace tavrin
