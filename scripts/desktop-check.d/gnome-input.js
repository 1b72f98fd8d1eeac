// gjs gnome-input.js WIDTH < FIFO
// Pointer and keys for a headless GNOME Shell through Mutter's RemoteDesktop
// service. Reads lines: "move X Y" (absolute, from the top-left of a layout
// WIDTH pixels wide), "click", "rclick", "key KEYSYM", "quit".
const {Gio, GLib} = imports.gi;
const bus = Gio.DBus.session;
const call = (path, iface, method, sig, args) => bus.call_sync('org.gnome.Mutter.RemoteDesktop', path, iface,
    method, sig ? new GLib.Variant(sig, args) : null, null, Gio.DBusCallFlags.NONE, 10000, null);
const [session] = call('/org/gnome/Mutter/RemoteDesktop', 'org.gnome.Mutter.RemoteDesktop', 'CreateSession')
    .deepUnpack();
const S = 'org.gnome.Mutter.RemoteDesktop.Session';
call(session, S, 'Start');
const pause = ms => GLib.usleep(ms * 1000);
const input = new Gio.DataInputStream({base_stream: new Gio.UnixInputStream({fd: 0})});
let line;
while ((line = input.read_line_utf8(null)[0]) !== null) {
    const [cmd, a, b] = line.trim().split(/\s+/);
    try {
        if (cmd === 'move') {
            // No absolute motion without a stream: into the top-right corner
            // (a top-left one is a hot corner), down, across below the hot
            // corners' barriers, then up to the spot.
            const width = Number(ARGV[0]);
            const rel = (dx, dy) => call(session, S, 'NotifyPointerMotionRelative', '(dd)', [dx, dy]);
            rel(20000, -20000);
            pause(30);
            rel(0, 200);
            pause(30);
            rel(Number(a) - (width - 1), 0);
            pause(30);
            rel(0, Number(b) - 200);
        } else if (cmd === 'click' || cmd === 'rclick') {
            const button = cmd === 'click' ? 272 : 273; // BTN_LEFT, BTN_RIGHT
            call(session, S, 'NotifyPointerButton', '(ib)', [button, true]);
            pause(60);
            call(session, S, 'NotifyPointerButton', '(ib)', [button, false]);
        } else if (cmd === 'key') {
            call(session, S, 'NotifyKeyboardKeysym', '(ub)', [Number(a), true]);
            pause(40);
            call(session, S, 'NotifyKeyboardKeysym', '(ub)', [Number(a), false]);
        } else if (cmd === 'quit') {
            break;
        }
        print(`did ${line}`);
    } catch (e) {
        printerr(`failed ${line}: ${e.message}`);
    }
}
call(session, S, 'Stop');
