#pragma once
// The entry every intake route uses: adds files to the queue and, when the settings ask for it,
// gives them the default preset. It never starts a run.

#include <memory>
#include <optional>

#include "data/app_settings.h"
#include "services/queue_service.h"

namespace tavrin {

class QueueImportService {
public:
    QueueImportService(ModelContext& context, std::shared_ptr<QueueService> queueService);

    QueueService& queueService() { return *queueService_; }

    // `addFiles`, then, with `autoApplyDefaultPreset`, `autoProcessOnAdd` on and a default preset
    // that exists, that preset for the new records. Failures of both steps are thrown; the
    // records stay in the store when the second fails.
    QueuedFiles importFiles(const std::vector<std::filesystem::path>& urls, bool autoApplyDefaultPreset = true);
    // The record with the singleton id, else the first; none when there is none or the fetch
    // fails. Never creates one.
    std::shared_ptr<AppSettings> currentSettings();
    std::shared_ptr<MetadataPreset> fetchPreset(const Uuid& id);

private:
    ModelContext& context_;
    std::shared_ptr<QueueService> queueService_;
};

}  // namespace tavrin
