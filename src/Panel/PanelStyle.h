#pragma once
// The theme's colours, fonts and motion curves as one read-only object the
// QML binds to (the singleton "Hud"), so no view carries a literal of its own.

#include "Look/Theme.h"
#include "Look/Easing.h"
#include "Look/Motion.h"

#include <QColor>
#include <QEasingCurve>
#include <QObject>
#include <QtQml/qqmlregistration.h>
#include <QVariant>
#include <QVariantList>

class QJSEngine;
class QQmlEngine;

class PanelStyle : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(Hud)
    QML_SINGLETON
    Q_PROPERTY(QColor lark READ lark CONSTANT)
    Q_PROPERTY(QColor amber READ amber CONSTANT)
    Q_PROPERTY(QColor emerald READ emerald CONSTANT)
    Q_PROPERTY(QColor alert READ alert CONSTANT)
    Q_PROPERTY(QColor abyss READ abyss CONSTANT)
    Q_PROPERTY(QColor plate READ plate CONSTANT)
    Q_PROPERTY(QColor raised READ raised CONSTANT)
    Q_PROPERTY(QColor float_ READ floatColour CONSTANT)
    Q_PROPERTY(QColor hairline READ hairline CONSTANT)
    Q_PROPERTY(QColor hairlineHot READ hairlineHot CONSTANT)
    Q_PROPERTY(QColor ink READ ink CONSTANT)
    Q_PROPERTY(QColor ink2 READ ink2 CONSTANT)
    Q_PROPERTY(QColor ink3 READ ink3 CONSTANT)
    Q_PROPERTY(QColor ink4 READ ink4 CONSTANT)
    Q_PROPERTY(QString sans READ sans CONSTANT)
    Q_PROPERTY(QString mono READ mono CONSTANT)
    // QML SpringAnimation parameters derived from the Motion springs, and
    // the glide duration in milliseconds.
    Q_PROPERTY(double snapSpring READ snapSpring CONSTANT)
    Q_PROPERTY(double snapDamping READ snapDamping CONSTANT)
    Q_PROPERTY(double settleSpring READ settleSpring CONSTANT)
    Q_PROPERTY(double settleDamping READ settleDamping CONSTANT)
    Q_PROPERTY(double rollSpring READ rollSpring CONSTANT)
    Q_PROPERTY(double rollDamping READ rollDamping CONSTANT)
    Q_PROPERTY(int glideMs READ glideMs CONSTANT)
    // Control points for QML's Easing.BezierSpline: the ease-out of glide
    // and the panel's slide, and the ease-in-out of the breathing dot.
    Q_PROPERTY(QVariantList glideCurve READ glideCurve CONSTANT)
    Q_PROPERTY(QVariantList easeInOutCurve READ easeInOutCurve CONSTANT)
    Q_PROPERTY(int snapMs READ snapMs CONSTANT)
    Q_PROPERTY(double hairlineWidth READ hairlineWidth CONSTANT)
    // Point sizes for QML fonts from the design's sizes (which are logical
    // pixels): Qt converts points with the screen's logical DPI.
    Q_PROPERTY(double pt READ pt CONSTANT)
    // The hero's ticker: its full size, and the smallest any text may shrink to.
    Q_PROPERTY(int heroTickerPx READ heroTickerPx CONSTANT)
    Q_PROPERTY(int minLegiblePx READ minLegiblePx CONSTANT)
    // The panel's measures in logical pixels, shared by every view: corner
    // radii from the panel's own down to a thin bar's, the gaps of its
    // rhythm from the tightest to a group's, the side padding of the panel
    // (edge) and of a page's content (inset), and the command rail's height.
    Q_PROPERTY(int panelRadius READ panelRadius CONSTANT)
    Q_PROPERTY(int plateRadius READ plateRadius CONSTANT)
    Q_PROPERTY(int tileRadius READ tileRadius CONSTANT)
    Q_PROPERTY(int controlRadius READ controlRadius CONSTANT)
    Q_PROPERTY(int rowRadius READ rowRadius CONSTANT)
    Q_PROPERTY(int barRadius READ barRadius CONSTANT)
    Q_PROPERTY(int gapMicro READ gapMicro CONSTANT)
    Q_PROPERTY(int gapTiny READ gapTiny CONSTANT)
    Q_PROPERTY(int gapSmall READ gapSmall CONSTANT)
    Q_PROPERTY(int gapLabel READ gapLabel CONSTANT)
    Q_PROPERTY(int gapSnug READ gapSnug CONSTANT)
    Q_PROPERTY(int gap READ gap CONSTANT)
    Q_PROPERTY(int gapRow READ gapRow CONSTANT)
    Q_PROPERTY(int gapSection READ gapSection CONSTANT)
    Q_PROPERTY(int gapGroup READ gapGroup CONSTANT)
    Q_PROPERTY(int edge READ edge CONSTANT)
    Q_PROPERTY(int inset READ inset CONSTANT)
    Q_PROPERTY(int railHeight READ railHeight CONSTANT)
    // Durations in milliseconds besides the Motion curves: a hero plate's
    // colour fade, a menu's fade in, the live dot's breath (each way) and
    // the loading bar's sweep.
    Q_PROPERTY(int plateFadeMs READ plateFadeMs CONSTANT)
    Q_PROPERTY(int menuFadeMs READ menuFadeMs CONSTANT)
    Q_PROPERTY(int breathMs READ breathMs CONSTANT)
    Q_PROPERTY(int sweepMs READ sweepMs CONSTANT)
    // The transparent band around the panel its shadow falls into: 0 unless
    // the window that shows the panel has one (a compositor is running).
    Q_PROPERTY(int shadowMargin READ shadowMargin CONSTANT)
public:
    // No default: the singleton must come from create(), which knows its engine.
    explicit PanelStyle(double devicePixelRatio, QObject *parent = nullptr);
    // One per engine, made when a view first names it, from what
    // configure() left on that engine: the pixel ratio and the shadow's band.
    static PanelStyle *create(QQmlEngine *engine, QJSEngine *);
    static void configure(QQmlEngine &engine, double devicePixelRatio, int shadowMargin);

    static QColor toQColor(const Theme::Rgba &c);
    // Kinds are SignalKind values (PanelValues.h).
    Q_INVOKABLE QColor kindColour(int kind) const;
    // The kind's short label ("WHALE", "SPIKE", "STOCK"); empty for no kind.
    Q_INVOKABLE QString kindLabel(int kind) const;
    // The kind as a word for a screen reader ("Whale", "Spike", "Stock").
    Q_INVOKABLE QString kindName(int kind) const;
    // The kind's wire name ("whale"), and the kind a wire name stands for.
    Q_INVOKABLE QString kindWire(int kind) const;
    Q_INVOKABLE int kindOf(const QString &wire) const;
    Q_INVOKABLE QColor alpha(const QColor &c, double a) const;
    // Wire text for a one-line place (see PanelText::oneLine).
    Q_INVOKABLE QString oneLine(const QString &text) const;
    // A stream row's elided headline as its two runs, [ticker, body] (see PanelText::headlineRuns).
    Q_INVOKABLE QStringList headlineRuns(const QString &shown, const QString &ticker) const;
    // Points for a PathPolyline (see PanelText::sparkPoints).
    Q_INVOKABLE QVariant sparkPath(const QVariantList &values, double width, double height,
                                   bool closed) const;

    // QML's SpringAnimation advances in 16 ms steps with
    // v += spring·Δ − damping·v, so per-step coefficients are the physical
    // stiffness and damping coefficient (unit mass) times 0.016 s.
    // The standard ease-out, cubic-bezier(0, 0, 0.58, 1), and ease-in-out,
    // cubic-bezier(0.42, 0, 0.58, 1).
    static QEasingCurve easeOut();
    static QEasingCurve easeInOut();

    static double qmlSpring(const Motion::Curve &curve);
    // Easing.bezierCurve's form: both control points, then the end point.
    static QVariantList qmlBezier(const Easing::CubicBezier &c) { return {c.x1, c.y1, c.x2, c.y2, 1.0, 1.0}; }
    static double qmlDamping(const Motion::Curve &curve);

    QColor lark() const { return toQColor(Theme::lark); }
    QColor amber() const { return toQColor(Theme::amber); }
    QColor emerald() const { return toQColor(Theme::emerald); }
    QColor alert() const { return toQColor(Theme::alert); }
    QColor abyss() const { return toQColor(Theme::abyss); }
    QColor plate() const { return toQColor(Theme::plate); }
    QColor raised() const { return toQColor(Theme::raised); }
    QColor floatColour() const { return toQColor(Theme::float_); }
    QColor hairline() const { return toQColor(Theme::hairline); }
    QColor hairlineHot() const { return toQColor(Theme::hairlineHot); }
    QColor ink() const { return toQColor(Theme::ink); }
    QColor ink2() const { return toQColor(Theme::ink2); }
    QColor ink3() const { return toQColor(Theme::ink3); }
    QColor ink4() const { return toQColor(Theme::ink4); }
    QString sans() const;
    QString mono() const;
    double snapSpring() const { return qmlSpring(Motion::snap); }
    double snapDamping() const { return qmlDamping(Motion::snap); }
    double settleSpring() const { return qmlSpring(Motion::settle); }
    double settleDamping() const { return qmlDamping(Motion::settle); }
    double rollSpring() const { return qmlSpring(Motion::roll); }
    double rollDamping() const { return qmlDamping(Motion::roll); }
    int glideMs() const { return int(Motion::glide.response * 1000 + 0.5); }
    QVariantList glideCurve() const { return qmlBezier(Easing::easeOut); }
    QVariantList easeInOutCurve() const { return qmlBezier(Easing::easeInOut); }
    int snapMs() const { return int(Motion::snap.response * 1000 + 0.5); }
    double pt() const;
    static constexpr int heroTickerPx() { return 22; }
    static constexpr int minLegiblePx() { return 11; }
    int shadowMargin() const { return shadowMargin_; }
    // The margin a panel window needs for its shadow here: only a
    // compositor blends a translucent margin; without one it would show as
    // a dark frame.
    static constexpr int shadowMarginWanted = 18;
    static bool compositorRunning();
    // The panel's measures and durations (see the properties).
    static constexpr int panelRadius() { return 14; }
    static constexpr int plateRadius() { return 10; }
    static constexpr int tileRadius() { return 8; }
    static constexpr int controlRadius() { return 6; }
    static constexpr int rowRadius() { return 4; }
    static constexpr int barRadius() { return 1; }
    static constexpr int gapMicro() { return 3; }
    static constexpr int gapTiny() { return 4; }
    static constexpr int gapSmall() { return 5; }
    static constexpr int gapLabel() { return 6; }
    static constexpr int gapSnug() { return 7; }
    static constexpr int gap() { return 8; }
    static constexpr int gapRow() { return 9; }
    static constexpr int gapSection() { return 10; }
    static constexpr int gapGroup() { return 12; }
    static constexpr int edge() { return 14; }
    static constexpr int inset() { return 12; }
    static constexpr int railHeight() { return 46; }
    static constexpr int plateFadeMs() { return 260; }
    static constexpr int menuFadeMs() { return 120; }
    static constexpr int breathMs() { return 1400; }
    static constexpr int sweepMs() { return 1100; }

    double hairlineWidth() const { return 1.0 / (dpr_ > 0 ? dpr_ : 2.0); }

private:
    double dpr_;
    int shadowMargin_ = 0;
};
