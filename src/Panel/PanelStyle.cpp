#include "Panel/PanelStyle.h"

#include "Model/Signal.h"
#include "Panel/PanelText.h"

#include <QPolygonF>

#include <QFontDatabase>
#include <QGuiApplication>
#include <QScreen>

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

QColor PanelStyle::toQColor(const Theme::Rgba &c)
{
    return QColor::fromRgbF(float(c.r), float(c.g), float(c.b), float(c.a));
}

QColor PanelStyle::kindColour(const QString &kindRaw) const
{
    const auto kind = SignalKinds::fromRaw(kindRaw);
    return toQColor(kind ? Theme::kindColour(*kind) : Theme::ink3);
}

QString PanelStyle::kindLabel(const QString &kindRaw) const
{
    const auto kind = SignalKinds::fromRaw(kindRaw);
    return kind ? SignalKinds::label(*kind) : QString();
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

QEasingCurve PanelStyle::easeOut()
{
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment(QPointF(0, 0), QPointF(0.58, 1), QPointF(1, 1));
    return curve;
}

QEasingCurve PanelStyle::easeInOut()
{
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment(QPointF(0.42, 0), QPointF(0.58, 1), QPointF(1, 1));
    return curve;
}

double PanelStyle::qmlSpring(const Motion::Curve &curve)
{
    return curve.stiffness() * 0.016;
}

double PanelStyle::qmlDamping(const Motion::Curve &curve)
{
    return curve.dampingCoefficient() * 0.016;
}

QString PanelStyle::oneLine(const QString &text) const
{
    return PanelText::oneLine(text);
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
