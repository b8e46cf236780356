#pragma once
// The settings record as the windows edit it. Every change is saved at once and announced, to
// this process's listeners and to other processes, so it takes effect without a restart.

#include <functional>
#include <memory>
#include <vector>

#include "data/app_settings.h"
#include "data/store.h"
#include "services/change_notifications.h"

namespace tavrin {

// Saves what `context` has pending (or, when that fails, rolls it back and rethrows), then tells
// other processes to read the store again.
void saveAndAnnounce(ModelContext& context, ChangeNotifying& notifier);

class SettingsAccess {
public:
    using Listener = std::function<void(const AppSettings&)>;

    // `context` is the main thread's; the record is created with its defaults on the first change.
    SettingsAccess(ModelContext& context, std::shared_ptr<ChangeNotifying> notifier);

    // The record as stored (the defaults when there is none yet).
    AppSettings current() const;
    // Applies `change`, saves and announces it. A failed save is rolled back and thrown
    // (StoreError); listeners then hear nothing.
    void update(const std::function<void(AppSettings&)>& change);
    // Called on the caller's thread after each saved change, in the order added.
    void addListener(Listener listener);

private:
    ModelContext& context_;
    std::shared_ptr<ChangeNotifying> notifier_;
    std::vector<Listener> listeners_;
};

}  // namespace tavrin
