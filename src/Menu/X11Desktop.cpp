#include "Menu/X11Desktop.h"

#include <QGuiApplication>
#include <QList>
#include <QWindow>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

namespace {
xcb_connection_t *connection()
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

xcb_window_t rootOf(xcb_connection_t *c)
{
    const xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c));
    return it.rem ? it.data->root : XCB_NONE;
}

xcb_atom_t atom(xcb_connection_t *c, const char *name)
{
    xcb_intern_atom_reply_t *r =
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, uint16_t(strlen(name)), name), nullptr);
    const xcb_atom_t a = r ? r->atom : XCB_NONE;
    std::free(r);
    return a;
}

void setAtoms(xcb_connection_t *c, xcb_window_t w, const char *property,
              std::initializer_list<const char *> names)
{
    QList<xcb_atom_t> values;
    for (const char *n : names)
        values.append(atom(c, n));
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, atom(c, property), XCB_ATOM_ATOM, 32,
                        uint32_t(values.size()), values.constData());
}

void setCardinals(xcb_connection_t *c, xcb_window_t w, const char *property, const uint32_t *data, uint32_t n)
{
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, atom(c, property), XCB_ATOM_CARDINAL, 32, n, data);
}

void clientMessage(xcb_connection_t *c, xcb_window_t w, const char *type, std::array<uint32_t, 5> data)
{
    xcb_client_message_event_t e{};
    e.response_type = XCB_CLIENT_MESSAGE;
    e.format = 32;
    e.window = w;
    e.type = atom(c, type);
    for (size_t i = 0; i < data.size(); ++i)
        e.data.data32[i] = data[i];
    xcb_send_event(c, 0, rootOf(c), XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char *>(&e));
}

QByteArray propertyBytes(xcb_connection_t *c, xcb_window_t w, const char *property)
{
    xcb_get_property_reply_t *r = xcb_get_property_reply(
        c, xcb_get_property(c, 0, w, atom(c, property), XCB_GET_PROPERTY_TYPE_ANY, 0, 64), nullptr);
    QByteArray bytes;
    if (r && r->format == 32)
        bytes = QByteArray(static_cast<const char *>(xcb_get_property_value(r)),
                           xcb_get_property_value_length(r));
    std::free(r);
    return bytes;
}
} // namespace

namespace X11Desktop {

bool active()
{
    return connection() != nullptr;
}

std::array<uint32_t, 12> topStrut(const QRect &root, const QRect &strip)
{
    std::array<uint32_t, 12> s{};
    if (strip.isEmpty() || !root.intersects(strip))
        return s;
    // left, right, top, bottom, then the start and end of each edge's span.
    s[2] = uint32_t(std::max(0, strip.bottom() + 1 - root.top()));
    s[8] = uint32_t(std::max(0, strip.left() - root.left()));
    s[9] = uint32_t(std::max(0, strip.right() - root.left()));
    return s;
}

void markDock(QWindow *window)
{
    xcb_connection_t *c = connection();
    if (!c || !window)
        return;
    const auto w = xcb_window_t(window->winId());
    setAtoms(c, w, "_NET_WM_WINDOW_TYPE", {"_NET_WM_WINDOW_TYPE_DOCK"});
    setAtoms(c, w, "_NET_WM_STATE",
             {"_NET_WM_STATE_STICKY", "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER",
              "_NET_WM_STATE_ABOVE"});
    const uint32_t everywhere = 0xFFFFFFFF;
    setCardinals(c, w, "_NET_WM_DESKTOP", &everywhere, 1);
    xcb_flush(c);
}

void reassertDock(QWindow *window)
{
    xcb_connection_t *c = connection();
    if (!c || !window)
        return;
    const auto w = xcb_window_t(window->winId());
    constexpr uint32_t add = 1, sourceApplication = 1;
    clientMessage(c, w, "_NET_WM_STATE",
                  {add, atom(c, "_NET_WM_STATE_SKIP_TASKBAR"), atom(c, "_NET_WM_STATE_SKIP_PAGER"),
                   sourceApplication, 0});
    clientMessage(c, w, "_NET_WM_STATE", {add, atom(c, "_NET_WM_STATE_STICKY"), 0, sourceApplication, 0});
    clientMessage(c, w, "_NET_WM_DESKTOP", {0xFFFFFFFF, sourceApplication, 0, 0, 0});
    xcb_flush(c);
}

void reserve(QWindow *window, const QRect &strip)
{
    xcb_connection_t *c = connection();
    if (!c || !window)
        return;
    const auto w = xcb_window_t(window->winId());
    // The root window spans every screen: struts are measured from its edges.
    xcb_get_geometry_reply_t *g = xcb_get_geometry_reply(c, xcb_get_geometry(c, rootOf(c)), nullptr);
    const QRect root = g ? QRect(0, 0, g->width, g->height) : QRect();
    std::free(g);
    const std::array<uint32_t, 12> partial = topStrut(root, strip);
    setCardinals(c, w, "_NET_WM_STRUT_PARTIAL", partial.data(), 12);
    setCardinals(c, w, "_NET_WM_STRUT", partial.data(), 4); // for managers that predate the partial one
    xcb_flush(c);
}

bool compositorRunning()
{
    xcb_connection_t *c = connection();
    if (!c)
        return true; // elsewhere the platform composes, or says it cannot
    const int screen = 0;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(screen);
    xcb_get_selection_owner_reply_t *r =
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, atom(c, name.constData())), nullptr);
    const bool owned = r && r->owner != XCB_NONE;
    std::free(r);
    return owned;
}

QList<uint32_t> cardinals(QWindow *window, const char *property)
{
    xcb_connection_t *c = connection();
    QList<uint32_t> out;
    if (!c || !window)
        return out;
    const QByteArray bytes = propertyBytes(c, xcb_window_t(window->winId()), property);
    for (qsizetype i = 0; i + 4 <= bytes.size(); i += 4)
        out.append(*reinterpret_cast<const uint32_t *>(bytes.constData() + i));
    return out;
}

QList<QByteArray> atomNames(QWindow *window, const char *property)
{
    QList<QByteArray> out;
    xcb_connection_t *c = connection();
    for (uint32_t a : cardinals(window, property)) {
        xcb_get_atom_name_reply_t *r = xcb_get_atom_name_reply(c, xcb_get_atom_name(c, a), nullptr);
        if (r)
            out.append(QByteArray(xcb_get_atom_name_name(r), xcb_get_atom_name_name_length(r)));
        std::free(r);
    }
    return out;
}

} // namespace X11Desktop
