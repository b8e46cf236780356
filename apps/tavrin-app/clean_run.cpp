#include "clean_run.h"

#include <QMetaObject>
#include <QPointer>

#include <algorithm>
#include <map>
#include <system_error>

#include "data/processing_history.h"
#include "data/queries.h"
#include "handoff/welcome_tour_model.h"
#include "model/file_access_error.h"
#include "model/pipeline_error.h"
#include "model/uuid.h"
#include "services/file_operations.h"

namespace tavrin {

namespace stdfs = std::filesystem;

namespace {

const char* titleKey(CleanMode mode) {
    switch (mode) {
        case CleanMode::inPlace: return "Clean in Place";
        case CleanMode::copy: return "Clean a Copy";
        case CleanMode::share: return "Clean & Share";
    }
    return "Clean a Copy";
}

// Removes the folder the queue cleaned into, once its output is published or refused. It lies
// in the temporary directory, which is the only place this deletes from.
void dropRunOutput(const stdfs::path& output) {
    const auto folder = output.parent_path();
    std::error_code ec;
    if (QueueService::isWithinTemporaryDirectory(folder) && folder.filename().string().rfind(
                                                                ProcessingService::outputDirectoryPrefix, 0) == 0)
        stdfs::remove_all(folder, ec);
    else if (QueueService::isWithinTemporaryDirectory(output))
        stdfs::remove(output, ec);
}

}  // namespace

QString cleanModeTitle(CleanMode mode) { return QString::fromUtf8(titleKey(mode)); }

QString cleanModeDescription(CleanMode mode, bool inPlaceIsDefault) {
    for (const auto& card : WelcomeTourModel::cleanCards(inPlaceIsDefault))
        if (card.title == titleKey(mode)) return QString::fromStdString(card.body);
    return {};
}

stdfs::path cleanCopyDestination(const stdfs::path& source, const CleanCopySuffix& suffix) {
    const auto directory = source.parent_path();
    std::set<std::string> existing;
    std::error_code ec;
    for (stdfs::directory_iterator it(directory, ec), end; !ec && it != end; it.increment(ec))
        existing.insert(it->path().lexically_normal().string());
    auto extension = source.extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    const auto wanted = CleanCopyNaming::defaultCopyURL(source, suffix).filename().string();
    return CleanCopyNaming::resolvedCopyURL(wanted, directory, extension, existing);
}

void publishCopy(const stdfs::path& verified, const stdfs::path& destination, const std::optional<stdfs::path>& modeOf) {
    PosixFileOperations files;
    const auto hidden = destination.parent_path() / ("." + destination.filename().string() + "." +
                                                     Uuid::random().uuidString().substr(0, 8) + ".tavrin-part");
    files.copyFile(verified, hidden);
    try {
        if (modeOf) {
            std::error_code ec;
            const auto perms = stdfs::status(*modeOf, ec).permissions();
            if (!ec)
                stdfs::permissions(hidden, perms & (stdfs::perms::owner_read | stdfs::perms::owner_write |
                                                    stdfs::perms::group_read | stdfs::perms::others_read),
                                   ec);
        }
        files.moveItem(hidden, destination);
    } catch (...) {
        std::error_code ec;
        stdfs::remove(hidden, ec);
        throw;
    }
}

struct CleanRun::Outcome {
    QString id;
    bool succeeded = false;
    QString message;
    std::optional<stdfs::path> published;
    std::optional<CleaningResult> result;
};

CleanRun::CleanRun(AppContext& app, std::vector<Uuid> files, CleanRunOptions options, QObject* parent)
    : QObject(parent), app_(app), ids_(std::move(files)), options_(std::move(options)), session_(app.makeSession()) {}

CleanRun::~CleanRun() {
    stop_ = true;
    if (worker_.joinable()) worker_.join();
}

void CleanRun::start() {
    worker_ = std::jthread([this] { work(); });
}

void CleanRun::cancel() { stop_ = true; }

void CleanRun::work() {
    auto& context = *session_.context;
    QueuedFiles files;
    try {
        std::vector<StoreValue> wanted;
        for (const auto& id : ids_) wanted.push_back(storeValue::uuid(id));
        std::map<std::string, std::shared_ptr<QueuedFile>> byId;
        for (auto& f : context.fetch(FetchDescriptor<QueuedFile>(Predicate::in("id", std::move(wanted)))))
            byId.emplace(f->id.uuidString(), std::move(f));
        for (const auto& id : ids_)
            if (auto it = byId.find(id.uuidString()); it != byId.end()) files.push_back(it->second);
    } catch (...) {
        // Nothing could be read: the run ends at once, with nothing claimed.
    }
    // A run goes in slices as wide as the pool, so that a cancellation stops new starts.
    const std::size_t width = static_cast<std::size_t>(std::max(1, app_.processing().concurrencyLimit()));
    const int total = static_cast<int>(files.size());
    int finished = 0;
    QPointer<CleanRun> self(this);
    // In place, the queue's run puts each verified file at its user's path itself, with the
    // edit history the settings ask for.
    QueueRunOptions runOptions;
    runOptions.honourSpecificKeys = true;  // the inspector's single ticks are the user's choice
    if (options_.mode == CleanMode::inPlace) {
        runOptions.replaceOriginals = app_.replaceInPlace();
        runOptions.stripEditHistory = options_.stripEditHistoryInPlace;
    }
    for (std::size_t begin = 0; begin < files.size() && !stop_; begin += width) {
        QueuedFiles slice(files.begin() + static_cast<std::ptrdiff_t>(begin),
                          files.begin() + static_cast<std::ptrdiff_t>(std::min(files.size(), begin + width)));
        QStringList started;
        for (const auto& f : slice) started << QString::fromStdString(f->id.uuidString());
        QMetaObject::invokeMethod(this, [this, started] { emit filesStarted(started); }, Qt::QueuedConnection);
        try {
            session_.queue->processFiles(slice, [&](const QueueFileOutcome& outcome) {
                Outcome out;
                publish(*session_.queue, outcome, out);
                ++finished;
                QMetaObject::invokeMethod(
                    this,
                    [this, out = std::move(out), finished, total]() mutable {
                        if (out.succeeded) {
                            ++completed_;
                            if (out.published) outputs_.push_back(*out.published);
                        } else {
                            ++failed_;
                        }
                        if (out.result) {
                            if (auto id = uuidFromString(out.id.toStdString())) app_.rememberResult(*id, std::move(*out.result));
                        }
                        emit fileFinished(out.id, out.succeeded, out.message, finished, total);
                    },
                    Qt::QueuedConnection);
            }, runOptions);
        } catch (...) {
            // A failed save: the files stand as the store holds them; the view reloads.
            const QString message = QString::fromStdString(describeError(std::current_exception()));
            for (const auto& f : slice) {
                ++finished;
                QMetaObject::invokeMethod(
                    this,
                    [this, id = QString::fromStdString(f->id.uuidString()), message, finished, total] {
                        ++failed_;
                        emit fileFinished(id, false, message, finished, total);
                    },
                    Qt::QueuedConnection);
            }
        }
    }
    const bool cancelled = stop_ && finished < total;
    QMetaObject::invokeMethod(this, [this, cancelled] { emit runFinished(completed_, failed_, cancelled); },
                              Qt::QueuedConnection);
}

void CleanRun::publish(QueueService& queue, const QueueFileOutcome& outcome, Outcome& out) {
    auto& file = *outcome.file;
    out.id = QString::fromStdString(file.id.uuidString());
    if (options_.mode == CleanMode::inPlace && app_.replaceInPlace()) {
        // The queue replaced the original (or said why not) and recorded it, history included.
        if (outcome.replaced && file.status() == QueuedFile::Status::clean) {
            out.result = outcome.result;
            out.published = stdfs::path(file.cleanedFilePath.value_or(file.originalFileURL().string()));
            out.succeeded = true;
        } else {
            out.message = QString::fromStdString(file.errorMessage.value_or(describeError(outcome.error)));
        }
        return;
    }
    if (!outcome.result || file.status() != QueuedFile::Status::completed || !file.cleanedFilePath) {
        out.message = QString::fromStdString(file.errorMessage.value_or(describeError(outcome.error)));
        return;
    }
    out.result = outcome.result;
    const stdfs::path output = *file.cleanedFilePath;
    const stdfs::path source = file.originalSourcePath ? stdfs::path(*file.originalSourcePath) : file.originalFileURL();
    try {
        switch (options_.mode) {
            case CleanMode::copy: {
                const auto destination = cleanCopyDestination(source, options_.suffix);
                publishCopy(output, destination, source);
                file.cleanedFilePath = destination.string();
                file.cleanedOutputBehaviorRaw = std::string(rawValue(OutputBehavior::alongside));
                out.published = destination;
                break;
            }
            case CleanMode::inPlace:
                throw std::runtime_error("Cleaning in place is not available in this build; the original was left untouched");
            case CleanMode::share: {
                const auto destination = app_.shareStore().makeDestinationURL(file.fullFileName());
                try {
                    publishCopy(output, destination, std::nullopt);
                } catch (...) {
                    app_.shareStore().remove(destination);
                    throw;
                }
                file.cleanedFilePath = destination.string();
                file.cleanedOutputBehaviorRaw = std::string(rawValue(OutputBehavior::temporaryShare));
                out.published = destination;
                break;
            }
        }
        out.succeeded = true;
    } catch (...) {
        const std::string reason = describeError(std::current_exception());
        file.setStatus(QueuedFile::Status::failed);
        file.errorMessage = "Cleaned and verified, but the clean file could not be saved: " + reason;
        file.cleanedFilePath.reset();
        file.cleanedFileSizeBytes.reset();
        out.message = QString::fromStdString(*file.errorMessage);
        out.result.reset();
    }
    dropRunOutput(output);
    // The history points where the clean file now is (or at nothing, when it was not kept).
    try {
        for (auto& entry : queue.modelContext().fetch(FetchDescriptor<ProcessingHistory>(
                 Predicate::equal("cleanedFilePath", storeValue::text(output.string()))))) {
            entry->cleanedFilePath = out.published ? std::optional<std::string>(out.published->string()) : std::nullopt;
            entry->outputRetained = out.published.has_value() && options_.mode != CleanMode::share;
        }
    } catch (...) {
        // The history is a record of what happened; the outcome itself stands without it.
    }
    try {
        queue.modelContext().save();
    } catch (...) {
        out.succeeded = false;
        out.message = QString::fromStdString("The queue could not record the outcome: " +
                                             describeError(std::current_exception()));
    }
}

}  // namespace tavrin
