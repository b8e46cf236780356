#pragma once
// Tavrin's icon: a document behind a shield with a check mark. Drawn in code, so the hicolor PNGs
// under data/icons and the window's fall-back are one drawing.

#include <QIcon>
#include <QImage>

namespace tavrin {

// The icon at `size` × `size` pixels, on a transparent background.
QImage paintAppIcon(int size);
// The theme's "com.tavrin.Tavrin" when installed, else the drawing at the usual sizes.
QIcon appIcon();

}  // namespace tavrin
