#include "Panel/PanelStyle.h"

#include "Panel/PanelValues.h"

#include "Model/Signal.h"
#include "Panel/PanelText.h"
#include "Look/Easing.h"
#include "Look/Motion.h"

#include <QPolygonF>

#include <QByteArray>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QLibrary>
#include <QQmlEngine>
#include <QScreen>
#include <cstdlib>

namespace {
QString firstInstalled(const QStringList &families, QFontDatabase::SystemFont fallback)
{
    const QStringList installed = QFontDatabase::families();
    for (const QString &family : families)
        if (installed.contains(family, Qt::CaseInsensitive))
            return family;
    return QFontDatabase::systemFont(fallback).family();
}
} // namespace

PanelStyle::PanelStyle(double devicePixelRatio, QObject *parent) : QObject(parent), dpr_(devicePixelRatio) {}

namespace {
constexpr char dprKey[] = "larkpinDevicePixelRatio";
constexpr char marginKey[] = "larkpinShadowMargin";
} // namespace

void PanelStyle::configure(QQmlEngine &engine, double devicePixelRatio, int shadowMargin)
{
    engine.setProperty(dprKey, devicePixelRatio);
    engine.setProperty(marginKey, shadowMargin);
}

PanelStyle *PanelStyle::create(QQmlEngine *engine, QJSEngine *)
{
    const QVariant dpr = engine ? engine->property(dprKey) : QVariant();
    auto *style = new PanelStyle(dpr.isValid() ? dpr.toDouble() : 2.0);
    if (engine)
        style->shadowMargin_ = engine->property(marginKey).toInt();
    return style; // the engine owns it
}

QColor PanelStyle::toQColor(const Theme::Rgba &c)
{
    return QColor::fromRgbF(float(c.r), float(c.g), float(c.b), float(c.a));
}

QColor PanelStyle::kindColour(int value) const
{
    const auto kind = PanelKind::toModel(value);
    return toQColor(kind ? Theme::kindColour(*kind) : Theme::ink3);
}

QString PanelStyle::kindLabel(int value) const
{
    const auto kind = PanelKind::toModel(value);
    return kind ? SignalKinds::label(*kind) : QString();
}

QString PanelStyle::kindName(int value) const
{
    switch (value) {
    case PanelKind::Whale: return QStringLiteral("Whale");
    case PanelKind::Spike: return QStringLiteral("Spike");
    case PanelKind::Stocks: return QStringLiteral("Stock");
    default: return {};
    }
}

QString PanelStyle::kindWire(int value) const
{
    const auto kind = PanelKind::toModel(value);
    return kind ? SignalKinds::rawValue(*kind) : QString();
}

int PanelStyle::kindOf(const QString &wire) const
{
    return PanelKind::fromRaw(wire);
}

QColor PanelStyle::alpha(const QColor &c, double a) const
{
    QColor out = c;
    out.setAlphaF(float(c.alphaF() * a));
    return out;
}

QVariant PanelStyle::sparkPath(const QVariantList &values, double width, double height, bool closed) const
{
    QList<double> numbers;
    numbers.reserve(values.size());
    for (const QVariant &v : values)
        numbers << v.toDouble();
    const QList<QPointF> points = PanelText::sparkPoints(numbers, width, height, closed);
    return QVariant::fromValue(QPolygonF(points));
}

namespace {
QEasingCurve bezierSpline(const Easing::CubicBezier &c)
{
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment(QPointF(c.x1, c.y1), QPointF(c.x2, c.y2), QPointF(1, 1));
    return curve;
}
} // namespace

QEasingCurve PanelStyle::easeOut()
{
    return bezierSpline(Easing::easeOut);
}

QEasingCurve PanelStyle::easeInOut()
{
    return bezierSpline(Easing::easeInOut);
}

double PanelStyle::qmlSpring(const Motion::Curve &curve)
{
    return curve.stiffness() * 0.016;
}

double PanelStyle::qmlDamping(const Motion::Curve &curve)
{
    return curve.dampingCoefficient() * 0.016;
}

QStringList PanelStyle::headlineRuns(const QString &shown, const QString &ticker) const
{
    const PanelText::HeadlineRuns runs = PanelText::headlineRuns(shown, ticker);
    return {runs.ticker, runs.body};
}

QString PanelStyle::oneLine(const QString &text) const
{
    return PanelText::oneLine(text);
}

// X11 says a compositor runs by owning the selection _NET_WM_CM_S<screen>.
// libxcb is reached at run time (it is loaded already wherever Qt talks to X)
// so the build needs no X headers; its few structures are stable protocol.
namespace {
struct XcbCookie {
    unsigned int sequence;
};
struct XcbAtomReply {
    quint8 responseType, pad0;
    quint16 sequence;
    quint32 length;
    quint32 atom;
};
struct XcbOwnerReply {
    quint8 responseType, pad0;
    quint16 sequence;
    quint32 length;
    quint32 owner;
};

bool x11CompositorRunning()
{
#if QT_CONFIG(xcb)
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection())
        return false;
    QLibrary xcb(QStringLiteral("xcb"), 1);
    using InternAtom = XcbCookie (*)(void *, quint8, quint16, const char *);
    using InternAtomReply = XcbAtomReply *(*)(void *, XcbCookie, void **);
    using GetOwner = XcbCookie (*)(void *, quint32);
    using GetOwnerReply = XcbOwnerReply *(*)(void *, XcbCookie, void **);
    const auto internAtom = reinterpret_cast<InternAtom>(xcb.resolve("xcb_intern_atom"));
    const auto internAtomReply = reinterpret_cast<InternAtomReply>(xcb.resolve("xcb_intern_atom_reply"));
    const auto getOwner = reinterpret_cast<GetOwner>(xcb.resolve("xcb_get_selection_owner"));
    const auto getOwnerReply = reinterpret_cast<GetOwnerReply>(xcb.resolve("xcb_get_selection_owner_reply"));
    if (!internAtom || !internAtomReply || !getOwner || !getOwnerReply)
        return false;
    // The screen number follows the dot in DISPLAY (":0.1"); 0 without one.
    const QByteArray display = qgetenv("DISPLAY");
    const int dot = display.lastIndexOf('.');
    const int screen = dot > display.lastIndexOf(':') ? display.mid(dot + 1).toInt() : 0;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(screen);
    void *connection = x11->connection();
    XcbAtomReply *atom = internAtomReply(
        connection, internAtom(connection, 1, quint16(name.size()), name.constData()), nullptr);
    if (!atom)
        return false;
    const quint32 selection = atom->atom;
    std::free(atom);
    if (!selection)
        return false;
    XcbOwnerReply *owner = getOwnerReply(connection, getOwner(connection, selection), nullptr);
    if (!owner)
        return false;
    const bool owned = owner->owner != 0;
    std::free(owner);
    return owned;
#else
    return false;
#endif
}
} // namespace

bool PanelStyle::compositorRunning()
{
    const QString platform = QGuiApplication::platformName();
    if (platform.startsWith(QLatin1String("wayland")))
        return true; // every Wayland display server composites
    if (platform == QLatin1String("xcb"))
        return x11CompositorRunning();
    return false; // offscreen, minimal, eglfs: nothing blends a margin
}

double PanelStyle::pt() const
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    const double dpi = screen ? screen->logicalDotsPerInchY() : 96.0;
    return 72.0 / (dpi > 0 ? dpi : 96.0);
}

QString PanelStyle::sans() const
{
    static const QString family = firstInstalled({QStringLiteral("Inter")}, QFontDatabase::GeneralFont);
    return family;
}

QString PanelStyle::mono() const
{
    static const QString family = firstInstalled(
        {QStringLiteral("JetBrains Mono"), QStringLiteral("DejaVu Sans Mono")}, QFontDatabase::FixedFont);
    return family;
}
