// A desktop's top bar for the user checks: a dark dock window at the given
// place (root pixels) that reserves the rows it covers, for its columns only,
// as a panel of a real desktop does. Runs until killed.
//
//   user-topbar X Y WIDTH HEIGHT

#include <xcb/xcb.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
xcb_atom_t atom(xcb_connection_t *c, const char *name)
{
    xcb_intern_atom_reply_t *r =
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, uint16_t(std::strlen(name)), name), nullptr);
    const xcb_atom_t a = r ? r->atom : XCB_NONE;
    std::free(r);
    return a;
}
} // namespace

int main(int argc, char **argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: user-topbar X Y WIDTH HEIGHT\n");
        return 2;
    }
    const int x = std::atoi(argv[1]), y = std::atoi(argv[2]);
    const int w = std::atoi(argv[3]), h = std::atoi(argv[4]);
    if (w <= 0 || h <= 0 || x < 0 || y < 0) {
        std::fprintf(stderr, "user-topbar: bad geometry\n");
        return 2;
    }
    xcb_connection_t *c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "user-topbar: no display\n");
        return 1;
    }
    xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const xcb_window_t win = xcb_generate_id(c);
    const uint32_t values[] = {0x1e2026u, XCB_EVENT_MASK_EXPOSURE};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, win, screen->root, int16_t(x), int16_t(y), uint16_t(w),
                      uint16_t(h), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    const xcb_atom_t dock = atom(c, "_NET_WM_WINDOW_TYPE_DOCK");
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, win, atom(c, "_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 32, 1,
                        &dock);
    // left, right, top, bottom, then each edge's span: the top edge down to
    // the bar's bottom, over the bar's columns.
    const uint32_t strut[12] = {0, 0, uint32_t(y + h), 0, 0, 0, 0, 0, uint32_t(x), uint32_t(x + w - 1), 0, 0};
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, win, atom(c, "_NET_WM_STRUT_PARTIAL"), XCB_ATOM_CARDINAL, 32,
                        12, strut);
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, win, atom(c, "_NET_WM_STRUT"), XCB_ATOM_CARDINAL, 32, 4,
                        strut);
    // WM_NORMAL_HINTS: user-specified position and size, so the window
    // manager keeps the bar where it asks.
    const uint32_t hints[18] = {1u | 2u | 4u | 8u | 16u | 32u, uint32_t(x), uint32_t(y), uint32_t(w), uint32_t(h),
                                uint32_t(w), uint32_t(h), uint32_t(w), uint32_t(h)};
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, win, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32, 18,
                        hints);
    const char name[] = "user-topbar";
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, win, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        sizeof name - 1, name);
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, win, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                        sizeof "user-topbar\0UserTopbar", "user-topbar\0UserTopbar");
    xcb_map_window(c, win);
    xcb_flush(c);
    std::signal(SIGTERM, [](int) { std::_Exit(0); });
    while (xcb_generic_event_t *e = xcb_wait_for_event(c))
        std::free(e);
    return 0;
}
