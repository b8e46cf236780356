#pragma once
// Icons: the desktop's icon theme first; where the theme has none (or there is no theme, as off
// screen), a drawn fallback that scales to any device pixel ratio.

#include <QIcon>

#include "data/queued_file.h"
#include "model/file_type.h"
#include "model/metadata_category.h"

namespace tavrin::icons {

QIcon fileType(FileType type);
QIcon status(QueuedFile::Status status);
QIcon privacy(PrivacyLevel level);
// The verified badge.
QIcon verified();
QIcon named(const char* themeName, QIcon fallback);

}  // namespace tavrin::icons
