#include "Support/WireText.h"

#include <QChar>
#include <QSet>
#include <QStringView>

#include <algorithm>

namespace {
enum class Keep { yes, drop, space };

Keep judge(char32_t c)
{
    if (c >= 0x20 && c < 0x7F)
        return Keep::yes;
    if (c == u'\t' || c == u'\n' || c == u'\r' || c == 0x0B || c == 0x0C || c == 0x85 || c == 0x2028 ||
        c == 0x2029)
        return Keep::space;
    if (c < 0x20 || (c >= 0x7F && c <= 0x9F))
        return Keep::drop;
    if (c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) ||
        (c >= 0x2066 && c <= 0x2069))
        return Keep::drop;
    // Deprecated format characters that also steer shaping and direction.
    if (c >= 0x206A && c <= 0x206F)
        return Keep::drop;
    // Invisible, yet not of the format class: the combining grapheme joiner,
    // the Hangul fillers and the variation selectors.
    if (c == 0x034F || c == 0x115F || c == 0x1160 || c == 0x3164 || c == 0xFFA0 ||
        (c >= 0xFE00 && c <= 0xFE0F) || (c >= 0xE0100 && c <= 0xE01EF))
        return Keep::drop;
    // Zero-width space and joiners, soft hyphen, word joiner, BOM, tags, ...
    if (QChar::category(c) == QChar::Other_Format)
        return Keep::drop;
    return Keep::yes;
}

// Cyrillic, Greek, Armenian and Cherokee letters drawn like Latin ones.
const QSet<char32_t> &latinLookAlikes()
{
    static const QSet<char32_t> set = [] {
        QSet<char32_t> s;
        const char32_t list[] = {
            // Cyrillic: А В Е К М Н О Р С Т Х У Ѕ І Ј Ԛ Ԝ а е о р с у х ѕ і ј ԛ ԝ ӏ Ү
            0x0410, 0x0412, 0x0415, 0x041A, 0x041C, 0x041D, 0x041E, 0x0420, 0x0421, 0x0422, 0x0425, 0x0423,
            0x0405, 0x0406, 0x0408, 0x051A, 0x051C, 0x0430, 0x0435, 0x043E, 0x0440, 0x0441, 0x0443, 0x0445,
            0x0455, 0x0456, 0x0458, 0x051B, 0x051D, 0x04CF, 0x04AE,
            // Greek: Α Β Ε Ζ Η Ι Κ Μ Ν Ο Ρ Τ Υ Χ ο ν α ι
            0x0391, 0x0392, 0x0395, 0x0396, 0x0397, 0x0399, 0x039A, 0x039C, 0x039D, 0x039F, 0x03A1, 0x03A4,
            0x03A5, 0x03A7, 0x03BF, 0x03BD, 0x03B1, 0x03B9,
            // Armenian: Օ ո ս հ
            0x0555, 0x0578, 0x057D, 0x0570,
            // Cherokee: Ꭺ Ᏼ Ꮯ Ꭼ Ꮋ Ꮪ Ꮇ Ꭲ Ꮃ Ꮓ
            0x13AA, 0x13F4, 0x13DF, 0x13AC, 0x13BB, 0x13DA, 0x13B7, 0x13A2, 0x13B3, 0x13C3};
        for (char32_t c : list)
            s.insert(c);
        return s;
    }();
    return set;
}
} // namespace

namespace WireText {

bool isClean(const QString &text)
{
    for (char32_t c : QStringView(text).toUcs4())
        if (judge(c) != Keep::yes)
            return false;
    return true;
}

QString clean(QString text)
{
    // Plain ASCII (nearly all wire text) needs no decoding into code points.
    if (std::all_of(text.cbegin(), text.cend(),
                    [](QChar c) { return c.unicode() >= 0x20 && c.unicode() < 0x7F; }))
        return text;
    const QList<uint> points = QStringView(text).toUcs4();
    QString out;
    out.reserve(text.size());
    for (uint c : points) {
        switch (judge(c)) {
        case Keep::yes: out.append(QStringView(QChar::fromUcs4(c))); break;
        case Keep::space: out.append(QLatin1Char(' ')); break;
        case Keep::drop: break;
        }
    }
    return out;
}

bool isLookAlike(const QString &text)
{
    if (std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() < 0x80; }))
        return false;
    // Fullwidth forms, mathematical letters, superscripts and ligatures fold
    // into ordinary ones.
    if (text.normalized(QString::NormalizationForm_KC) != text)
        return true;
    QChar::Script seen = QChar::Script_Unknown;
    for (char32_t c : QStringView(text).toUcs4()) {
        if (latinLookAlikes().contains(c))
            return true;
        const QChar::Script script = QChar::script(c);
        if (script == QChar::Script_Common || script == QChar::Script_Inherited)
            continue;
        if (seen != QChar::Script_Unknown && script != seen)
            return true; // two scripts in one name
        seen = script;
    }
    return false;
}

} // namespace WireText
