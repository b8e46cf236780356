#pragma once
// One run of the queue started from the window: the queue service cleans the chosen files on a
// worker thread (with a store context of its own), and each verified output is then put where
// the chosen mode says. The window hears of every step on its own thread and never waits.
//
// Publishing follows "write, verify, then publish": the engine's output is verified in a private
// temporary folder; a copy is written beside the original under a hidden name and renamed into
// place, so the user's folder never holds a partial file. Any failure marks the row failed, with
// the reason, and leaves nothing at the user's path.

#include <QObject>
#include <QString>

#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "app_context.h"
#include "data/clean_copy_naming.h"

namespace tavrin {

enum class CleanMode { copy, inPlace, share };

// The texts of the three modes, as the tour's cards name them.
QString cleanModeTitle(CleanMode mode);
QString cleanModeDescription(CleanMode mode, bool inPlaceIsDefault);

// What a run needs to know from the settings, read on the window's thread before it starts.
struct CleanRunOptions {
    CleanMode mode = CleanMode::copy;
    CleanCopySuffix suffix;
    bool stripEditHistoryInPlace = false;
};

// Where a clean copy of `source` goes: beside it, named with the suffix, never over an existing
// file. Throws CleanCopyNamingError.
std::filesystem::path cleanCopyDestination(const std::filesystem::path& source, const CleanCopySuffix& suffix);

// Copies `verified` to `destination` through a hidden temporary beside it and a rename that
// refuses to replace anything; the copy takes the permission bits of `modeOf` when given.
// Throws FileAccessError (or FileSystemError) with nothing left at `destination`.
void publishCopy(const std::filesystem::path& verified, const std::filesystem::path& destination,
                 const std::optional<std::filesystem::path>& modeOf);

class CleanRun : public QObject {
    Q_OBJECT
public:
    // `files` are the ids to clean; they must already carry a configuration.
    CleanRun(AppContext& app, std::vector<Uuid> files, CleanRunOptions options, QObject* parent = nullptr);
    ~CleanRun() override;

    void start();
    // Files not yet started are left as they are; those being cleaned finish.
    void cancel();
    bool isCancelled() const { return stop_.load(); }
    CleanMode mode() const { return options_.mode; }
    // Outputs of this run that were published, in order (the share sheet offers them).
    const std::vector<std::filesystem::path>& outputs() const { return outputs_; }

signals:
    void filesStarted(QStringList ids);
    // `message` is the failure in words; empty on success.
    void fileFinished(QString id, bool succeeded, QString message, int finished, int total);
    void runFinished(int completed, int failed, bool cancelled);

private:
    struct Outcome;
    void work();
    void publish(QueueService& queue, const QueueFileOutcome& outcome, Outcome& out);

    AppContext& app_;
    std::vector<Uuid> ids_;
    CleanRunOptions options_;
    QueueSessionServices session_;
    std::atomic<bool> stop_{false};
    std::jthread worker_;
    std::vector<std::filesystem::path> outputs_;
    int completed_ = 0;
    int failed_ = 0;
};

}  // namespace tavrin
