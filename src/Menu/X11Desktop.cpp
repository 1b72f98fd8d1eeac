#include "Menu/X11Desktop.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QList>
#include <QWindow>

#include <xcb/randr.h>
#include <xcb/shape.h>
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

QByteArray propertyBytes(xcb_connection_t *c, xcb_window_t w, const char *property, uint32_t words = 64)
{
    xcb_get_property_reply_t *r = xcb_get_property_reply(
        c, xcb_get_property(c, 0, w, atom(c, property), XCB_GET_PROPERTY_TYPE_ANY, 0, words), nullptr);
    QByteArray bytes;
    if (r && r->format == 32)
        bytes = QByteArray(static_cast<const char *>(xcb_get_property_value(r)),
                           xcb_get_property_value_length(r));
    std::free(r);
    return bytes;
}
QList<uint32_t> words(const QByteArray &bytes)
{
    QList<uint32_t> out;
    for (qsizetype i = 0; i + 4 <= bytes.size(); i += 4) {
        uint32_t v;
        std::memcpy(&v, bytes.constData() + i, 4);
        out.append(v);
    }
    return out;
}

// Re-placement on the events Qt already asks X for: RandR notifications and
// property changes of the root window (work area, client list).
class LayoutWatch : public QAbstractNativeEventFilter {
public:
    explicit LayoutWatch(std::function<void()> changed) : changed_(std::move(changed))
    {
        xcb_connection_t *c = connection();
        root_ = rootOf(c);
        workArea_ = atom(c, "_NET_WORKAREA");
        clients_ = atom(c, "_NET_CLIENT_LIST");
        const xcb_query_extension_reply_t *randr = xcb_get_extension_data(c, &xcb_randr_id);
        randrBase_ = randr && randr->present ? randr->first_event : -1;
    }
    bool nativeEventFilter(const QByteArray &type, void *message, qintptr *) override
    {
        if (type != "xcb_generic_event_t")
            return false;
        const auto *e = static_cast<const xcb_generic_event_t *>(message);
        const int kind = e->response_type & ~0x80;
        if (kind == XCB_PROPERTY_NOTIFY) {
            const auto *p = reinterpret_cast<const xcb_property_notify_event_t *>(e);
            if (p->window == root_ && (p->atom == workArea_ || p->atom == clients_))
                changed_();
        } else if (randrBase_ >= 0 && (kind == randrBase_ + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
                                       kind == randrBase_ + XCB_RANDR_NOTIFY)) {
            changed_();
        }
        return false; // Qt sees every event too
    }

private:
    std::function<void()> changed_;
    xcb_window_t root_ = XCB_NONE;
    xcb_atom_t workArea_ = XCB_NONE, clients_ = XCB_NONE;
    int randrBase_ = -1;
};
} // namespace

namespace X11Desktop {

std::optional<Layout> readLayout(QWindow *self)
{
    xcb_connection_t *c = connection();
    if (!c)
        return std::nullopt;
    const xcb_window_t root = rootOf(c);
    Layout layout;
    const xcb_query_extension_reply_t *randr = xcb_get_extension_data(c, &xcb_randr_id);
    if (randr && randr->present) {
        xcb_randr_get_monitors_reply_t *r =
            xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, root, 1), nullptr);
        if (r) {
            for (auto it = xcb_randr_get_monitors_monitors_iterator(r); it.rem; xcb_randr_monitor_info_next(&it)) {
                const QRect m(it.data->x, it.data->y, it.data->width, it.data->height);
                if (m.isEmpty())
                    continue;
                if (it.data->primary)
                    layout.monitors.prepend(m);
                else
                    layout.monitors.append(m);
            }
            std::free(r);
        }
    }
    if (layout.monitors.isEmpty()) {
        xcb_get_geometry_reply_t *g = xcb_get_geometry_reply(c, xcb_get_geometry(c, root), nullptr);
        if (g)
            layout.monitors.append(QRect(0, 0, g->width, g->height));
        std::free(g);
    }
    if (layout.monitors.isEmpty())
        return std::nullopt;

    const QList<uint32_t> desktop = words(propertyBytes(c, root, "_NET_CURRENT_DESKTOP", 1));
    const uint32_t current = desktop.isEmpty() ? 0 : std::min<uint32_t>(desktop.first(), 63);
    const QList<uint32_t> area = words(propertyBytes(c, root, "_NET_WORKAREA", 4 * 64));
    if (area.size() >= qsizetype(4 * current + 4))
        layout.workArea = QRect(int(area[4 * current]), int(area[4 * current + 1]), int(area[4 * current + 2]),
                                int(area[4 * current + 3]));

    const xcb_window_t me = self ? xcb_window_t(self->winId()) : XCB_NONE;
    const QList<uint32_t> clients = words(propertyBytes(c, root, "_NET_CLIENT_LIST", 1024));
    for (uint32_t w : clients) {
        if (w == me)
            continue;
        const QList<uint32_t> partial = words(propertyBytes(c, w, "_NET_WM_STRUT_PARTIAL", 12));
        if (partial.size() == 12 && partial[2] > 0 && partial[2] < 4096) {
            const int from = int(std::min<uint32_t>(partial[8], 65535)), to = int(std::min<uint32_t>(partial[9], 65535));
            layout.topBars.append(QRect(QPoint(from, 0), QPoint(std::max(from, to), int(partial[2]) - 1)));
            continue;
        }
        const QList<uint32_t> strut = words(propertyBytes(c, w, "_NET_WM_STRUT", 4));
        if (strut.size() == 4 && strut[2] > 0 && strut[2] < 4096)
            layout.topBars.append(QRect(0, 0, 65536, int(strut[2])));
    }
    return layout;
}

void watchLayout(QObject *owner, std::function<void()> changed)
{
    if (!connection() || !owner)
        return;
    auto *watch = new LayoutWatch(std::move(changed));
    QCoreApplication::instance()->installNativeEventFilter(watch);
    QObject::connect(owner, &QObject::destroyed, [watch] {
        if (QCoreApplication::instance())
            QCoreApplication::instance()->removeNativeEventFilter(watch);
        delete watch;
    });
}

void setInputRegion(QWindow *window, const QRect &region)
{
    xcb_connection_t *c = connection();
    if (!c || !window)
        return;
    const xcb_query_extension_reply_t *shape = xcb_get_extension_data(c, &xcb_shape_id);
    if (!shape || !shape->present)
        return;
    const xcb_rectangle_t r{int16_t(region.x()), int16_t(region.y()), uint16_t(std::max(0, region.width())),
                            uint16_t(std::max(0, region.height()))};
    xcb_shape_rectangles(c, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED,
                         xcb_window_t(window->winId()), 0, 0, 1, &r);
    xcb_flush(c);
}

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
