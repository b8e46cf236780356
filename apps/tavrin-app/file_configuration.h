#pragma once
// What the inspector's ticks mean for a queued file: categories to remove, and single items to
// remove or keep against their category. The rules of the profile decide what a tick shows:
// keep beats remove, a single item beats its category, structural items are always kept.
// No Qt and no store: the caller saves the record.

#include <string>

#include "data/queued_file.h"
#include "model/cleaning_profile.h"
#include "model/cleaning_result.h"

namespace tavrin::FileConfiguration {

// The profile the file's own selection describes (categories and single items).
CleaningProfile selectionProfile(const QueuedFile& file);
// Whether the item would go with the file's selection.
bool isMarkedForRemoval(const QueuedFile& file, const MetadataItem& item);

// Ticks or clears a category: the category joins or leaves the selection, and single-item
// choices inside it are dropped, so the category's tick decides for all of its items.
void setCategory(QueuedFile& file, MetadataCategory category, bool remove, const MetadataTree& tree);
// Ticks or clears one item against what its category says. Structural items are left alone.
void setItem(QueuedFile& file, const MetadataItem& item, bool remove);
// After a change by hand: the file leaves its preset (the selection is now its own), becomes
// ready when something is selected, and records that the user chose to remove nothing when the
// selection is empty. Files that are being or were cleaned keep their status.
void selectionChanged(QueuedFile& file);

// Why the clean kept or removed an item, in words.
std::string retainedReason(const MetadataItem& item, const CleaningProfile& profile);
std::string removedReason(const MetadataItem& item, const CleaningProfile& profile);

}  // namespace tavrin::FileConfiguration
