// The panel for a screen reader and the keyboard: every interactive item in
// the accessibility tree has a role and a name (an item that takes clicks
// without one fails the walk), Tab walks the controls with a visible focus
// ring, Space/Return act, Escape closes, arrows move through the stream.

#include "PanelTestSupport.h"

#include <QAccessible>

namespace {
bool shownOnScreen(QQuickItem *item)
{
    for (QQuickItem *i = item; i; i = i->parentItem())
        if (!i->isVisible() || i->opacity() == 0)
            return false;
    return item->width() > 0 && item->height() > 0;
}

bool interactiveRole(QAccessible::Role role)
{
    return QList{QAccessible::Button,   QAccessible::CheckBox, QAccessible::RadioButton, QAccessible::Link,
                 QAccessible::ListItem, QAccessible::PageTab,  QAccessible::MenuItem}
        .contains(role);
}

// An item that offers a click: a MouseArea showing the pointing hand. (The
// panel's passive areas, a hover blocker and a backdrop, show none.)
bool takesClicks(QQuickItem *item)
{
    return QByteArray(item->metaObject()->className()).startsWith("QQuickMouseArea") && item->isEnabled() &&
           item->property("cursorShape").toInt() == Qt::PointingHandCursor;
}

QString describe(QQuickItem *item)
{
    QStringList chain;
    for (QQuickItem *i = item; i && chain.size() < 4; i = i->parentItem())
        chain << (i->objectName().isEmpty() ? QString::fromLatin1(i->metaObject()->className())
                                            : i->objectName());
    return chain.join(QStringLiteral(" < "));
}
} // namespace

class PanelAccessibilityTest : public QObject, private PanelRig {
    Q_OBJECT

    // Every shown item that takes clicks is, or sits inside, an accessible
    // control with a name. Returns the offenders.
    QStringList unnamedControls()
    {
        QStringList offenders;
        for (QQuickItem *item : allItems(root())) {
            if (!takesClicks(item) || !shownOnScreen(item))
                continue;
            // The control is the click area's parent or an item a few levels up
            // (a stream row holds its clickable line in a column).
            bool named = false;
            int up = 0;
            for (QQuickItem *i = item->parentItem(); i && !named && up < 3; i = i->parentItem(), ++up) {
                QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(i);
                if (iface && interactiveRole(iface->role()))
                    named = !iface->text(QAccessible::Name).trimmed().isEmpty();
            }
            if (!named)
                offenders << describe(item);
        }
        return offenders;
    }

private Q_SLOTS:
    void init()
    {
        freshPanel();
        store->ingest(whaleRun(6, clock.t));
    }
    void cleanup() { dropAll(); }

    void everyControlHasANameAndRole_data() { eitherWay("settings", "stream", "settings"); }
    void everyControlHasANameAndRole()
    {
        QFETCH(bool, settings);
        open();
        if (settings)
            model()->setShowSettings(true);
        QTest::qWait(50);
        const QStringList offenders = unnamedControls();
        QVERIFY2(offenders.isEmpty(), qPrintable(offenders.join(QStringLiteral("\n"))));

        // And the tree is not empty: a reader sees the controls.
        int controls = 0;
        for (QQuickItem *item : allItems(root()))
            if (QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(item))
                controls += shownOnScreen(item) && interactiveRole(iface->role());
        QVERIFY2(controls >= 5, qPrintable(QString::number(controls)));
    }

    // Tab reaches several controls, each showing its ring while focused.
    void tabWalksTheControls()
    {
        open();
        window()->requestActivate();
        QSet<QQuickItem *> reached;
        for (int i = 0; i < 12; ++i) {
            QTest::keyClick(window(), Qt::Key_Tab);
            QQuickItem *focused = window()->activeFocusItem();
            if (!focused || focused == root())
                continue;
            reached.insert(focused);
            bool ring = false;
            for (QQuickItem *child : focused->childItems())
                ring = ring || (child->isVisible() && child->objectName() == QLatin1String("focusRing"));
            QVERIFY2(ring, qPrintable(describe(focused)));
        }
        QVERIFY2(reached.size() >= 4, qPrintable(QString::number(reached.size())));
    }

    // Space on the focused switch flips it, as a click would.
    void spaceFlipsASwitch()
    {
        open();
        model()->setShowSettings(true);
        window()->requestActivate();
        QQuickItem *toggle = shownNamed(waitFor("notifySwitch"), QStringLiteral("toggle")).value(0);
        QVERIFY(toggle);
        toggle->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(window(), Qt::Key_Space);
        QVERIFY(!store->preferences().notifyTakeovers);
        QTest::keyClick(window(), Qt::Key_Return);
        QVERIFY(store->preferences().notifyTakeovers);
    }

    // Down/Up move through the stream once it has the focus; Return opens
    // the current row; Escape closes the panel.
    void arrowsReturnAndEscape()
    {
        open();
        window()->requestActivate();
        QQuickItem *list = on("streamList");
        QVERIFY(list);
        list->forceActiveFocus(Qt::TabFocusReason);
        QCOMPARE(list->property("currentIndex").toInt(), 0);
        QVERIFY(list->property("count").toInt() >= 3);
        QTest::keyClick(window(), Qt::Key_Down);
        QTest::keyClick(window(), Qt::Key_Down);
        QCOMPARE(list->property("currentIndex").toInt(), 2);
        QTest::keyClick(window(), Qt::Key_Up);
        QCOMPARE(list->property("currentIndex").toInt(), 1);
        QQuickItem *current = qvariant_cast<QQuickItem *>(list->property("currentItem"));
        QVERIFY(current);
        QTest::keyClick(window(), Qt::Key_Return);
        QCOMPARE(model()->openId(), current->property("signalId").toString());

        // Escape steps back: first the open row folds, then the panel closes.
        QTest::keyClick(window(), Qt::Key_Escape);
        QVERIFY(model()->openId().isEmpty());
        QTest::qWait(50); // the panel would close on the next turn of the loop
        QVERIFY(panel->isVisible());
        QTest::keyClick(window(), Qt::Key_Escape);
        QVERIFY(QTest::qWaitFor([&] { return !panel->isVisible(); }, 30000));
    }
};

QTEST_MAIN(PanelAccessibilityTest)
#include "tst_panel_accessibility.moc"
