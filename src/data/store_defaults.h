#pragma once
// What a fresh store needs before the services run: the starter presets and the settings
// record. The preset and queue services own these steps; they live here until then.

#include <memory>

#include "data/app_settings.h"
#include "data/store.h"

namespace tavrin {

// Brings each stored starter back to its definition and inserts missing ones; saves only when
// something changed. Returns true when it saved.
bool seedBuiltInPresetsIfNeeded(ModelContext& context, Date now = std::chrono::system_clock::now());

// The record with the singleton id, else the first record; none when there is none or the
// fetch fails. Never creates one.
std::shared_ptr<AppSettings> currentSettings(ModelContext& context);
// `currentSettings`, or a default record inserted into the context (not yet saved).
std::shared_ptr<AppSettings> currentOrNewSettings(ModelContext& context);

}  // namespace tavrin
