#include "Support/WireText.h"

namespace {
enum class Keep { yes, drop, space };

Keep judge(char16_t c)
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
    return Keep::yes;
}
} // namespace

namespace WireText {

bool isClean(const QString &text)
{
    for (QChar c : text)
        if (judge(c.unicode()) != Keep::yes)
            return false;
    return true;
}

QString clean(QString text)
{
    if (isClean(text))
        return text;
    QString out;
    out.reserve(text.size());
    for (QChar c : std::as_const(text)) {
        switch (judge(c.unicode())) {
        case Keep::yes: out.append(c); break;
        case Keep::space: out.append(QLatin1Char(' ')); break;
        case Keep::drop: break;
        }
    }
    return out;
}

} // namespace WireText
