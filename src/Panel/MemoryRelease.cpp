#include "Panel/MemoryRelease.h"

#include <QByteArray>
#include <QFile>
#include <QFontDatabase>
#include <QList>
#include <QString>

#ifdef __GLIBC__
#include <malloc.h>
#endif
#ifdef Q_OS_LINUX
#include <sys/mman.h>
#endif

namespace MemoryRelease {

// The panel's texts leave behind a font engine, glyph cache and all, for
// every face, weight and size they drew (some thirty), and Qt keeps engines
// nobody uses for as long as they fit its cache's budget: about 3 MB that
// would stay for good. Qt has no call that empties that cache, but a change
// to the application fonts does (and the font database is read again on its
// next use, as after a font is installed): add any installed font and take
// it away again. Without one of these files the caches simply stay.
void dropFontCaches()
{
    static const QString file = [] {
        for (const char *path : {"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
                                 "/usr/share/fonts/opentype/inter/Inter-Regular.otf",
                                 "/usr/share/fonts/truetype/jetbrains-mono/JetBrainsMono-Regular.ttf"})
            if (QFile::exists(QString::fromLatin1(path)))
                return QString::fromLatin1(path);
        return QString();
    }();
    if (file.isEmpty())
        return;
    const int id = QFontDatabase::addApplicationFont(file);
    if (id >= 0)
        QFontDatabase::removeApplicationFont(id);
}

void trimHeap()
{
#ifdef __GLIBC__
    // What was freed sits in the allocator's free lists otherwise, still
    // counted as resident; hand the pages back.
    malloc_trim(0);
#endif
}

// Only the panel runs the code of Qt Quick and QML and reads the panel's
// fonts; once it is released those pages would stay resident until the
// machine ran short of memory (the kernel's own hint, MADV_PAGEOUT, leaves
// pages any other process maps). A read-only mapping with no page of its own
// (no copy a write or a relocation made) holds exactly what is in the file,
// so dropping it loses nothing: the next opening reads it back from the page
// cache. Anything writable, or with a private copy, is left alone.
void dropPanelOnlyPages()
{
#ifdef Q_OS_LINUX
    QFile smaps(QStringLiteral("/proc/self/smaps"));
    if (!smaps.open(QIODevice::ReadOnly))
        return;
    static const char *const panelOnly[] = {"libQt6Quick",  "libQt6Qml", "libqtquick", "libquick",
                                            "libqmlplugin", "libqtqml",  ".otf",       ".ttf"};
    quintptr from = 0, to = 0;
    bool candidate = false;
    // Bounded: a process has a few thousand mappings of some 25 lines each.
    // (No atEnd(): a /proc file says it is empty.)
    for (int n = 0; n < 400000; ++n) {
        const QByteArray line = smaps.readLine(4096);
        if (line.isEmpty())
            break;
        // A mapping's first line starts "from-to perms"; its fields start "Name:".
        const qsizetype space = line.indexOf(' ');
        const bool header = space > 0 && line.left(space).contains('-') && !line.left(space).endsWith(':');
        if (header) {
            const QList<QByteArray> f = line.simplified().split(' ');
            candidate = false;
            if (f.size() < 6 || !f[5].startsWith('/') || f[1].contains('w'))
                continue;
            for (const char *name : panelOnly)
                candidate = candidate || f[5].contains(name);
            const QList<QByteArray> range = f[0].split('-');
            bool ok1 = false, ok2 = false;
            from = range.value(0).toULongLong(&ok1, 16);
            to = range.value(1).toULongLong(&ok2, 16);
            candidate = candidate && ok1 && ok2 && to > from;
        } else if (candidate && line.startsWith("Anonymous:")) {
            candidate = false;
            if (line.mid(10).trimmed().split(' ').value(0) == "0")
                ::madvise(reinterpret_cast<void *>(from), to - from, MADV_DONTNEED);
        }
    }
#endif
}

} // namespace MemoryRelease
