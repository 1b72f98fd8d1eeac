#pragma once
// Text from the tape service, made safe to show: it may not reorder what is
// drawn around it, split a line, or carry invisible characters.

#include <QString>

namespace WireText {
// Longer than any symbol, handle, name, address or link the service has a
// reason to send; a field past it fails its record.
constexpr qsizetype maxLength = 2048;

// Removes bidirectional embeddings, overrides, isolates and marks (U+061C,
// U+200E, U+200F, U+202A..U+202E, U+2066..U+2069), every other invisible
// format character (the whole Unicode Cf class: zero-width spaces and joiners,
// the soft hyphen, the byte-order mark, tags; and the combining grapheme
// joiner, the Hangul fillers and the variation selectors, which draw nothing
// either) and every control character; tabs, line and paragraph breaks become
// one space each. Letters of right-to-left scripts stay: each field is drawn
// as its own text, so they order only themselves.
QString clean(QString text);
// True when `clean` would change nothing (cheap: most wire text is plain ASCII).
bool isClean(const QString &text);

// A name that may pass for another one: letters of more than one script
// ("PEPE" with a Cyrillic "Е"), a letter of a script that copies Latin ones
// (Cyrillic, Greek, Armenian, Cherokee look-alikes of A, B, C, E, ...), or a
// compatibility form that folds into plain letters (fullwidth "ＷＩＦ",
// mathematical bold, superscripts, ligatures). Plain ASCII never is.
bool isLookAlike(const QString &text);
} // namespace WireText
