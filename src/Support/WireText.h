#pragma once
// Text from the tape service, made safe to show: it may not reorder what is
// drawn around it, split a line, or carry invisible characters.

#include <QString>

namespace WireText {
// Longer than any symbol, handle, name, address or link the service has a
// reason to send; a field past it fails its record.
constexpr qsizetype maxLength = 2048;

// Removes bidirectional embeddings, overrides, isolates and marks (U+061C,
// U+200E, U+200F, U+202A..U+202E, U+2066..U+2069) and every other control
// character; tabs, line and paragraph breaks become one space each. Letters of
// right-to-left scripts stay: each field is drawn as its own text, so they
// order only themselves.
QString clean(QString text);
// True when `clean` would change nothing (cheap: most wire text is plain ASCII).
bool isClean(const QString &text);
} // namespace WireText
