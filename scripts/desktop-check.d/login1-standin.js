// gjs login1-standin.js
// Owns org.freedesktop.login1 on the (private) system bus and answers
// nothing. GNOME Shell makes a proxy for the login manager at start and dies
// when the bus cannot provide one; on a machine whose systemd-logind cannot
// be activated from a private bus, an owner that is simply there is enough.
const {Gio, GLib} = imports.gi;
const loop = new GLib.MainLoop(null, false);
Gio.bus_own_name(Gio.BusType.SYSTEM, 'org.freedesktop.login1', Gio.BusNameOwnerFlags.NONE,
    null, () => print('login1 stand-in ready'), () => {
        printerr('login1 stand-in: could not own the name');
        loop.quit();
    });
loop.run();
