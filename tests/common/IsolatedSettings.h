#pragma once
// Tests never touch the user's real settings: before any QSettings exists,
// point the config folder at a private temporary one (also when a test binary
// is run by hand rather than through ctest).

#include <QTemporaryDir>

inline void isolateSettings()
{
    static QTemporaryDir dir;
    qputenv("XDG_CONFIG_HOME", dir.path().toUtf8());
}
