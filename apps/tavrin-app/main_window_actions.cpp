// The main window's flows: adding files, presets for the selection, removal, starting, following and
// stopping a run, drops.
#include <QDragEnterEvent>
#include <QEventLoop>
#include <QFileDialog>
#include <QMimeData>
#include <QProgressBar>
#include <QStandardPaths>
#include <QTableView>
#include <QTimer>
#include <QUrl>

#include <set>
#include <thread>

#include "app_context.h"
#include "inspection_runner.h"
#include "intake/folder_expansion_service.h"
#include "intake/folder_intake_summary.h"
#include "main_window.h"
#include "run_report.h"
#include "model/pipeline_error.h"
#include "queue_table_model.h"

namespace tavrin {

namespace stdfs = std::filesystem;

namespace {

QString qs(const std::string& s) { return QString::fromStdString(s); }
QString nameOf(const stdfs::path& p) { return qs(p.filename().string()); }

std::vector<std::string> idTexts(const QStringList& ids) {
    std::vector<std::string> out;
    for (const auto& id : ids) out.push_back(id.toStdString());
    return out;
}

bool isEditable(const QueuedFile& file) {
    const auto s = file.status();
    return s == QueuedFile::Status::staged || s == QueuedFile::Status::configured;
}

// At most a few lines of names; the rest as a count.
QString listed(const QStringList& lines) {
    constexpr int shown = 4;
    if (lines.size() <= shown) return lines.join(QLatin1Char('\n'));
    return (lines.mid(0, shown) + QStringList{QObject::tr("…and %1 more").arg(lines.size() - shown)}).join(QLatin1Char('\n'));
}

}  // namespace

QStringList MainWindow::importPaths(const std::vector<stdfs::path>& paths, bool applyDefaultPreset) {
    if (paths.empty()) return {};
    if (importing_) {
        showBanner(tr("Still adding the files dropped before; add these again when it is done."), true);
        return {};
    }
    // Staging copies thousands of files: that happens on a worker with a store context of its
    // own, while this loop keeps the window drawn. The actions that change the queue wait.
    importing_ = true;
    updateActions();
    struct Outcome {
        FolderExpansionSummary expansion;
        std::vector<std::pair<QString, stdfs::path>> added;  // id, staged copy
        std::set<std::string> addedSources;
        QString failure;
        QStringList notAdded;
    } outcome;
    auto session = app_.makeSession();
    QEventLoop waiting;
    std::jthread worker([&] {
        outcome.expansion = FolderExpansionService().expand(paths);
        try {
            for (const auto& file : session.import->importFiles(outcome.expansion.fileURLs, applyDefaultPreset)) {
                outcome.added.emplace_back(qs(file->id.uuidString()), file->originalFileURL());
                if (file->originalSourcePath)
                    outcome.addedSources.insert(stdfs::path(*file->originalSourcePath).lexically_normal().string());
            }
        } catch (const std::exception& e) {
            outcome.failure = qs(e.what());
        }
        // Files given one by one that did not get in are named, with the reason; those found in
        // folders are counted by the folder summary.
        std::set<std::string> given;
        for (const auto& p : paths) given.insert(p.lexically_normal().string());
        for (const auto& file : outcome.expansion.fileURLs) {
            const auto key = file.lexically_normal().string();
            if (outcome.addedSources.count(key) || !given.count(key)) continue;
            QString reason;
            try {
                app_.engine().checkSource(file);
                reason = outcome.failure.isEmpty() ? tr("it could not be added to the queue") : outcome.failure;
            } catch (...) {
                reason = qs(describeError(std::current_exception()));
            }
            outcome.notAdded << tr("Not added: %1 — %2").arg(nameOf(file), reason);
        }
        QMetaObject::invokeMethod(&waiting, [&waiting] { waiting.quit(); }, Qt::QueuedConnection);
    });
    waiting.exec(QEventLoop::ExcludeUserInputEvents);
    worker.join();
    importing_ = false;

    const auto count = static_cast<std::int64_t>(outcome.added.size());
    QStringList lines;
    if (auto summary = FolderIntakeSummary::message(outcome.expansion, count))
        lines << qs(*summary);
    else if (count > 0)
        lines << tr("Added %n file(s) to the queue.", "", static_cast<int>(count));
    else if (outcome.expansion.fileURLs.empty())
        lines << tr("Nothing to add: no files were given.");
    lines += outcome.notAdded;
    if (!lines.isEmpty()) showBanner(listed(lines), !outcome.notAdded.isEmpty() || count == 0);

    QStringList ids;
    for (const auto& [id, staged] : outcome.added) {
        ids << id;
        inspections_->inspect(id, staged);
    }
    reload();
    if (!ids.isEmpty()) selectIds(ids.mid(0, 1));
    return ids;
}

bool MainWindow::cleanSelection(CleanMode mode) {
    auto ids = selectedIds();
    if (ids.isEmpty())
        for (int row = 0; row < model_->rowCount(); ++row) ids << model_->data(model_->index(row, 0), QueueTableModel::idRole).toString();
    return cleanFiles(ids, mode);
}

bool MainWindow::cleanFiles(const QStringList& ids, CleanMode mode) {
    if (importing_) {
        showBanner(tr("Files are still being added; clean when they are in the queue."), true);
        return false;
    }
    if (run_) {
        showBanner(tr("A clean is under way. Wait for it to finish or stop it first."), true);
        return false;
    }
    std::shared_ptr<AppSettings> settings;
    try {
        settings = app_.settings();
    } catch (const std::exception& e) {
        showBanner(tr("The settings cannot be read: %1").arg(qs(e.what())), true);
        return false;
    }
    // Files that already carry a configuration run as they are; the others take the default
    // preset (or the strictest) unless the user chose to remove nothing.
    std::vector<Uuid> runIds;
    QueuedFiles needPreset;
    int skipped = 0;
    for (const auto& file : app_.files(idTexts(ids))) {
        const auto status = file->status();
        const bool runnable = status == QueuedFile::Status::staged || status == QueuedFile::Status::configured ||
                              status == QueuedFile::Status::failed;
        if (!runnable || (file->userDidConfigureEmptySelection && !file->hasCleaningConfiguration())) {
            ++skipped;
            continue;
        }
        if (!file->presetId && file->categoriesToRemove().empty()) {
            if (status == QueuedFile::Status::failed) file->setStatus(QueuedFile::Status::staged);
            needPreset.push_back(file);
        }
        runIds.push_back(file->id);
    }
    if (runIds.empty()) {
        showBanner(skipped ? tr("Nothing to clean: the selected files are cleaned already, or nothing is selected in them.")
                           : tr("Nothing to clean: add files first."),
                   true);
        return false;
    }
    if (mode == CleanMode::inPlace && confirmCleanInPlace && !confirmCleanInPlace(static_cast<int>(runIds.size())))
        return false;
    try {
        if (!needPreset.empty()) {
            if (auto preset = fallbackPreset()) app_.queue().setPreset(preset, needPreset);
        }
    } catch (const std::exception& e) {
        app_.context().rollback();
        showBanner(tr("The files could not be prepared: %1").arg(qs(e.what())), true);
        return false;
    }
    CleanRunOptions options;
    options.mode = mode;
    options.suffix = CleanCopySuffix::resolved(settings->cleanCopySuffixTokenRaw, settings->cleanCopyCustomSuffix);
    options.stripEditHistoryInPlace = settings->stripEditHistoryInPlace;
    run_ = new CleanRun(app_, runIds, options, this);
    // Finished rows are read again in batches, and only they: the view's context keeps its
    // records until the run ends and the whole queue is read again.
    auto* coalesce = new QTimer(run_);
    coalesce->setSingleShot(true);
    coalesce->setInterval(200);
    auto finishedIds = std::make_shared<QStringList>();
    auto report = std::make_shared<RunReport>();
    connect(coalesce, &QTimer::timeout, this, [this, finishedIds] {
        try {
            auto context = app_.container().makeContext();
            std::vector<StoreValue> ids;
            for (const auto& id : *finishedIds)
                if (auto uuid = uuidFromString(id.toStdString())) ids.push_back(storeValue::uuid(*uuid));
            model_->updateFiles(context->fetch(FetchDescriptor<QueuedFile>(Predicate::in("id", std::move(ids)))));
        } catch (...) {
            // Shown at the end of the run, when the queue is read again.
        }
        finishedIds->clear();
        showSelected();
    });
    connect(run_, &CleanRun::filesStarted, this, [this](const QStringList& started) { model_->setWorking(started, true); });
    connect(run_, &CleanRun::fileFinished, this,
            [this, coalesce, finishedIds, report](const QString& id, bool succeeded, const QString& message, int finished,
                                                  int total) {
                model_->setWorking({id}, false);
                if (!succeeded) {
                    std::filesystem::path source = id.toStdString();
                    if (auto uuid = uuidFromString(id.toStdString()))
                        if (auto file = app_.file(*uuid))
                            source = file->originalSourcePath.value_or(file->fullFileName());
                    report->failed.push_back({source, message.toStdString()});
                }
                finishedIds->append(id);
                progress_->setRange(0, total);
                progress_->setValue(finished);
                progress_->setFormat(tr("%1 of %2").arg(finished).arg(total));
                if (!coalesce->isActive()) coalesce->start();
            });
    connect(run_, &CleanRun::runFinished, this, [this, mode, report](int completed, int failed, bool cancelled) {
        const auto outputs = run_->outputs();
        report->cleaned = outputs;
        run_->deleteLater();
        run_ = nullptr;
        progress_->hide();
        reload();
        QString text = tr("%n file(s) cleaned and verified.", "", completed);
        if (failed) text += QLatin1Char(' ') + tr("%n file(s) failed; select one to see why.", "", failed);
        if (cancelled) text += QLatin1Char(' ') + tr("Stopped: the files not started are still in the queue.");
        showBanner(text, failed > 0 || cancelled);
        if (mode == CleanMode::share && !outputs.empty() && presentShare) presentShare(outputs);
        if (reportRun) reportRun(*report);
        emit runFinished(completed, failed, cancelled);
    });
    progress_->setRange(0, static_cast<int>(runIds.size()));
    progress_->setValue(0);
    progress_->setFormat(tr("0 of %1").arg(runIds.size()));
    progress_->show();
    run_->start();
    updateActions();
    return true;
}

void MainWindow::applyPresetToSelection(const Uuid& presetId) {
    auto preset = app_.presets().fetchPreset(presetId);
    if (!preset) return;
    const auto files = app_.files(idTexts(selectedIds()));
    for (const auto& file : files)
        if (isEditable(*file)) file->userDidConfigureEmptySelection = false;
    try {
        app_.queue().setPreset(preset, files);
    } catch (const std::exception& e) {
        app_.context().rollback();
        showBanner(tr("The preset could not be applied: %1").arg(qs(e.what())), true);
    }
    reload();
}

void MainWindow::removeSelection() {
    if (run_ || importing_) return;
    QueuedFiles files;
    std::vector<Uuid> gone;
    for (const auto& file : app_.files(idTexts(selectedIds()))) {
        if (file->status() == QueuedFile::Status::processing) continue;
        // A clean file put beside the original, or in its place, is the user's now: the queue
        // forgets it rather than deleting it with the queue's own artefacts.
        const auto behavior = file->cleanedOutputBehaviorRaw.value_or("");
        if (behavior == rawValue(OutputBehavior::alongside) || behavior == rawValue(OutputBehavior::replace))
            file->cleanedFilePath.reset();
        files.push_back(file);
        gone.push_back(file->id);
    }
    if (files.empty()) return;
    try {
        app_.queue().removeFiles(files);
        for (const auto& id : gone) app_.forget(id);
    } catch (const std::exception& e) {
        app_.context().rollback();
        showBanner(tr("The files could not be removed from the queue: %1").arg(qs(e.what())), true);
    }
    reload();
}

void MainWindow::cancelRun() {
    if (!run_) return;
    run_->cancel();
    showBanner(tr("Stopping: files being cleaned finish, no new ones start."));
    updateActions();
}

void MainWindow::addFilesDialog() {
    const auto names = QFileDialog::getOpenFileNames(this, tr("Add Files"),
                                                     QStandardPaths::writableLocation(QStandardPaths::HomeLocation));
    std::vector<stdfs::path> paths;
    for (const auto& name : names) paths.emplace_back(name.toStdString());
    importPaths(paths);
}

void MainWindow::addFolderDialog() {
    const auto folder = QFileDialog::getExistingDirectory(this, tr("Add Folder"),
                                                          QStandardPaths::writableLocation(QStandardPaths::HomeLocation));
    if (!folder.isEmpty()) importPaths({stdfs::path(folder.toStdString())});
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    // Rows dragged out of our own table are not dropped back in.
    if (event->mimeData()->hasUrls() && event->source() != view_) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    std::vector<stdfs::path> paths;
    for (const auto& url : event->mimeData()->urls())
        if (url.isLocalFile()) paths.emplace_back(url.toLocalFile().toStdString());
    event->acceptProposedAction();
    importPaths(paths);
}

}  // namespace tavrin
