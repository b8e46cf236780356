#pragma once
// Reads files' metadata on one worker thread, so the window never waits for a reader; each
// answer comes back on the window's thread.

#include <QObject>
#include <QString>

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <thread>

#include "model/metadata_model.h"

namespace tavrin {

class TavrinEngine;

class InspectionRunner : public QObject {
    Q_OBJECT
public:
    explicit InspectionRunner(const TavrinEngine& engine, QObject* parent = nullptr);
    ~InspectionRunner() override;

    // Queues a reading of `path` for the file `id`; a request for an id already waiting is not
    // doubled.
    void inspect(const QString& id, const std::filesystem::path& path);
    bool isIdle() const;

signals:
    // `error` is empty on success.
    void inspected(QString id, std::optional<tavrin::MetadataTree> tree, QString error);
    void idle();

private:
    void work(std::stop_token stop);

    const TavrinEngine& engine_;
    mutable std::mutex mutex_;
    std::condition_variable_any wake_;
    std::deque<std::pair<QString, std::filesystem::path>> pending_;
    bool busy_ = false;
    std::jthread worker_;
};

}  // namespace tavrin

Q_DECLARE_METATYPE(std::optional<tavrin::MetadataTree>)
