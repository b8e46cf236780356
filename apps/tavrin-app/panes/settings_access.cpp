#include "settings_access.h"

#include "data/store_defaults.h"

namespace tavrin {

void saveAndAnnounce(ModelContext& context, ChangeNotifying& notifier) {
    try {
        if (context.hasChanges()) context.save();
    } catch (...) {
        context.rollback();
        throw;
    }
    notifier.postQueueUpdated();
}

SettingsAccess::SettingsAccess(ModelContext& context, std::shared_ptr<ChangeNotifying> notifier)
    : context_(context), notifier_(notifier ? std::move(notifier) : std::make_shared<SilentChangeNotifier>()) {}

AppSettings SettingsAccess::current() const {
    if (auto settings = currentSettings(context_)) return *settings;
    return *AppSettings::makeDefault();
}

void SettingsAccess::update(const std::function<void(AppSettings&)>& change) {
    auto settings = currentOrNewSettings(context_);
    change(*settings);
    // Settings have no announcement of their own; the queue's tells other processes (the queue
    // takes the default preset and the output mode from them) to read the store again.
    saveAndAnnounce(context_, *notifier_);
    const AppSettings snapshot = *settings;
    for (const auto& listener : listeners_) listener(snapshot);
}

void SettingsAccess::addListener(Listener listener) { listeners_.push_back(std::move(listener)); }

}  // namespace tavrin
