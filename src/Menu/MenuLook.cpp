#include "Menu/MenuLook.h"

#include "Menu/Paint.h"
#include "Look/Theme.h"

#include <QMenu>
#include <QPalette>
#include <QToolTip>

namespace {
QString css(const Theme::Rgba &c)
{
    return QStringLiteral("rgba(%1, %2, %3, %4)")
        .arg(int(c.r * 255 + 0.5))
        .arg(int(c.g * 255 + 0.5))
        .arg(int(c.b * 255 + 0.5))
        .arg(c.a, 0, 'f', 3);
}
} // namespace

namespace MenuLook {

void apply(QMenu *menu)
{
    if (!menu)
        return;
    // The palette too, so that whatever the style sheet leaves to the style
    // (check marks, arrows, shortcut text) is drawn light on dark.
    QPalette pal = menu->palette();
    pal.setColor(QPalette::Window, toQColor(Theme::raised));
    pal.setColor(QPalette::Base, toQColor(Theme::raised));
    pal.setColor(QPalette::WindowText, toQColor(Theme::ink));
    pal.setColor(QPalette::Text, toQColor(Theme::ink));
    pal.setColor(QPalette::ButtonText, toQColor(Theme::ink));
    pal.setColor(QPalette::Highlight, toQColor(Theme::float_));
    pal.setColor(QPalette::HighlightedText, toQColor(Theme::ink));
    pal.setColor(QPalette::Disabled, QPalette::WindowText, toQColor(Theme::ink3));
    pal.setColor(QPalette::Disabled, QPalette::Text, toQColor(Theme::ink3));
    pal.setColor(QPalette::Disabled, QPalette::ButtonText, toQColor(Theme::ink3));
    menu->setPalette(pal);
    menu->setStyleSheet(
        QStringLiteral("QMenu { background: %1; color: %2; border: 1px solid %3; padding: 4px 0; }"
                       "QMenu::item { padding: 5px 22px 5px 14px; background: transparent; }"
                       "QMenu::item:selected { background: %4; color: %2; }"
                       "QMenu::item:disabled { color: %5; }"
                       "QMenu::separator { height: 1px; background: %6; margin: 4px 10px; }")
            .arg(css(Theme::raised), css(Theme::ink), css(Theme::hairlineHot), css(Theme::float_),
                 css(Theme::ink3), css(Theme::hairline)));
}

void applyToolTips()
{
    QPalette pal = QToolTip::palette();
    pal.setColor(QPalette::ToolTipBase, toQColor(Theme::raised));
    pal.setColor(QPalette::ToolTipText, toQColor(Theme::ink));
    pal.setColor(QPalette::Window, toQColor(Theme::raised));
    pal.setColor(QPalette::WindowText, toQColor(Theme::ink));
    QToolTip::setPalette(pal);
}

} // namespace MenuLook
