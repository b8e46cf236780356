#pragma once
// Secondary text (examples, hints, notes): muted, yet readable and enabled, so that a screen
// reader never announces it as unavailable, as a disabled label would be.

#include <QColor>
#include <QLabel>
#include <QPalette>

namespace tavrin {

inline void showAsSecondary(QLabel* label) {
    QPalette palette = label->palette();
    QColor muted = palette.color(QPalette::WindowText);
    muted.setAlphaF(0.7);
    palette.setColor(QPalette::WindowText, muted);
    label->setPalette(palette);
}

}  // namespace tavrin
