#include "inspection_runner.h"

#include <QMetaObject>

#include <algorithm>

#include "model/pipeline_error.h"
#include "pipeline/tavrin_engine.h"

namespace tavrin {

InspectionRunner::InspectionRunner(const TavrinEngine& engine, QObject* parent)
    : QObject(parent), engine_(engine), worker_([this](std::stop_token stop) { work(stop); }) {}

InspectionRunner::~InspectionRunner() {
    worker_.request_stop();
    wake_.notify_all();
}

void InspectionRunner::inspect(const QString& id, const std::filesystem::path& path) {
    {
        std::lock_guard lock(mutex_);
        if (std::any_of(pending_.begin(), pending_.end(), [&](const auto& p) { return p.first == id; })) return;
        pending_.emplace_back(id, path);
    }
    wake_.notify_one();
}

bool InspectionRunner::isIdle() const {
    std::lock_guard lock(mutex_);
    return pending_.empty() && !busy_;
}

void InspectionRunner::work(std::stop_token stop) {
    for (;;) {
        std::pair<QString, std::filesystem::path> next;
        {
            std::unique_lock lock(mutex_);
            if (!wake_.wait(lock, stop, [&] { return !pending_.empty(); })) return;
            next = std::move(pending_.front());
            pending_.pop_front();
            busy_ = true;
        }
        std::optional<MetadataTree> tree;
        QString error;
        try {
            tree = engine_.inspect(next.second);
        } catch (...) {
            error = QString::fromStdString(describeError(std::current_exception()));
        }
        bool nowIdle = false;
        {
            std::lock_guard lock(mutex_);
            busy_ = false;
            nowIdle = pending_.empty();
        }
        QMetaObject::invokeMethod(
            this,
            [this, id = next.first, tree = std::move(tree), error, nowIdle] {
                emit inspected(id, tree, error);
                if (nowIdle && isIdle()) emit idle();
            },
            Qt::QueuedConnection);
    }
}

}  // namespace tavrin
