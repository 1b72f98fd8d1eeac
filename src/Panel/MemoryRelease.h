#pragma once
// What the panel's release does beyond deleting its engine and window: three
// Linux-specific ways of handing memory back that nothing else would return
// while the machine has plenty. Each is safe to skip, and does nothing where
// its means are missing (another C library, no /proc, none of the fonts).
//
// Measured with scripts/measure (figures in docs/PERFORMANCE.md, "The panel"
// and "The panel as a compiled QML module"): with all three, resident memory
// 30 s after the panel closes is about 4 MB above its figure before the first
// opening (+3.9 MB, against 67-73 MB while the panel is open), and about 1 MB
// of that is the store's own growth over the same minute.
//
// - Font caches (dropFontCaches): the panel's texts leave a font engine with
//   its glyph cache for every face, weight and size they drew, and Qt keeps
//   unused engines for as long as they fit its cache's budget. Emptying that
//   cache took 2.3 to 3 MB off in back-to-back runs of one binary; the strip
//   brings about 1 MB back at its next flip (+5.1 MB 15 s after the release,
//   against +7.2 MB without it).
// - The heap (trimHeap): what the engine and window freed stays in the
//   allocator's free lists, still counted as resident, until malloc_trim
//   hands whole pages back. Not measured apart from the release as a whole.
// - Clean file pages (dropPanelOnlyPages): the code of Qt Quick and QML and
//   the panel's font files stay resident after the release until the machine
//   runs short. Only read-only mappings with no page of their own are
//   dropped, so nothing is lost: the next opening reads them back from the
//   page cache. That opening pays for the whole release (139 ms after a
//   release against 60-90 ms warm, the engine and window built again too).
//   Not measured apart from the release as a whole.

namespace MemoryRelease {

// Empties Qt's font engine cache by adding an installed font and taking it
// away again; without one of the known font files the caches stay.
void dropFontCaches();
// Returns the free pages of the C heap to the system (glibc only).
void trimHeap();
// Drops the clean, read-only pages of the Qt Quick and QML libraries and the
// font files this process maps, read from /proc/self/smaps (Linux only).
void dropPanelOnlyPages();

} // namespace MemoryRelease
