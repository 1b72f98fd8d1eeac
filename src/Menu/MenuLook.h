#pragma once
// The strip's and the tray's menus in the panel's dark look, whatever the
// widget style and the desktop's palette are: a light Fusion menu under a dark
// bar looks like another program's.

class QMenu;

namespace MenuLook {
void apply(QMenu *menu);
// Widget tooltips (the strip's) dark like the panel's: light text on the
// raised plate with the panel's edge. Process-wide; the panel draws its own.
void applyToolTips();
} // namespace MenuLook
