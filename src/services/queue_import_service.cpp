#include "services/queue_import_service.h"

#include "data/queries.h"

namespace tavrin {

QueueImportService::QueueImportService(ModelContext& context, std::shared_ptr<QueueService> queueService)
    : context_(context), queueService_(std::move(queueService)) {}

QueuedFiles QueueImportService::importFiles(const std::vector<std::filesystem::path>& urls,
                                            bool autoApplyDefaultPreset) {
    auto records = queueService_->addFiles(urls);
    if (!autoApplyDefaultPreset) return records;
    const auto settings = currentSettings();
    if (!settings || !settings->autoProcessOnAdd || !settings->defaultPresetId) return records;
    const auto preset = fetchPreset(*settings->defaultPresetId);
    if (!preset || records.empty()) return records;
    queueService_->setPreset(preset, records);
    return records;
}

std::shared_ptr<AppSettings> QueueImportService::currentSettings() {
    try {
        const auto all = context_.fetch(SettingsQueries::allSettings());
        for (const auto& settings : all)
            if (settings->id == AppSettings::singletonID()) return settings;
        return all.empty() ? nullptr : all.front();
    } catch (...) {
        return nullptr;
    }
}

std::shared_ptr<MetadataPreset> QueueImportService::fetchPreset(const Uuid& id) {
    try {
        const auto found = context_.fetch(PresetQueries::preset(id));
        return found.empty() ? nullptr : found.front();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace tavrin
