#!/usr/bin/python3
"""A stand-in desktop notification server for the tests.

Owns org.freedesktop.Notifications on the session bus it is given
(DBUS_SESSION_BUS_ADDRESS), answers Notify as a real server does (a new id,
or the same id when replacing one still shown) and prints every call as one
JSON line on standard output. Reads commands on standard input, one a line:

    invoke <id> <action key>    raise ActionInvoked, as a click would
    close <id>                  raise NotificationClosed (reason 2, dismissed)

With --expire-ms N it closes each bubble N ms after it was last shown (reason
1, expired), as servers do with their time-outs. "ready" is printed once the
name is owned.
"""

import argparse
import json
import os
import sys
import time

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

NAME = "org.freedesktop.Notifications"
PATH = "/org/freedesktop/Notifications"


def say(record):
    sys.stdout.write(json.dumps(record) + "\n")
    sys.stdout.flush()


class Server(dbus.service.Object):
    def __init__(self, bus, expire_ms):
        super().__init__(bus, PATH)
        self.next_id = 1
        self.shown = {}  # id -> generation, so an update restarts its time-out
        self.expire_ms = expire_ms

    @dbus.service.method(NAME, in_signature="", out_signature="as")
    def GetCapabilities(self):
        return ["actions", "body", "icon-static", "persistence"]

    @dbus.service.method(NAME, in_signature="", out_signature="ssss")
    def GetServerInformation(self):
        return ["stand-in", "larkpin tests", "1", "1.2"]

    @dbus.service.method(NAME, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app, replaces_id, icon, summary, body, actions, hints, timeout):
        replaces_id = int(replaces_id)
        if replaces_id and replaces_id in self.shown:
            nid = replaces_id
        else:
            nid = self.next_id
            self.next_id += 1
        generation = self.shown.get(nid, 0) + 1
        self.shown[nid] = generation
        say({
            "call": "Notify", "id": nid, "t": time.monotonic(), "app": str(app), "replaces": replaces_id,
            "icon": str(icon), "summary": str(summary), "body": str(body),
            "actions": [str(a) for a in actions],
            "hints": {str(k): (str(v) if not isinstance(v, (dbus.Byte, int)) else int(v))
                      for k, v in hints.items()},
        })
        if self.expire_ms > 0:
            GLib.timeout_add(self.expire_ms, self.expire, nid, generation)
        return dbus.UInt32(nid)

    @dbus.service.method(NAME, in_signature="u", out_signature="")
    def CloseNotification(self, nid):
        self.close(int(nid), 3)

    @dbus.service.signal(NAME, signature="us")
    def ActionInvoked(self, nid, key):
        pass

    @dbus.service.signal(NAME, signature="uu")
    def NotificationClosed(self, nid, reason):
        pass

    def expire(self, nid, generation):
        if self.shown.get(nid) == generation:
            self.close(nid, 1)
        return False

    def close(self, nid, reason):
        if self.shown.pop(nid, None) is not None:
            say({"call": "Closed", "id": nid, "reason": reason})
            self.NotificationClosed(dbus.UInt32(nid), dbus.UInt32(reason))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--expire-ms", type=int, default=0)
    args = parser.parse_args()

    DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    server = Server(bus, args.expire_ms)
    if bus.request_name(NAME, dbus.bus.NAME_FLAG_DO_NOT_QUEUE) != dbus.bus.REQUEST_NAME_REPLY_PRIMARY_OWNER:
        print("the notification name is taken", file=sys.stderr)
        return 1
    loop = GLib.MainLoop()

    pending = bytearray()

    # Read what is there, not a line: a buffered readline would keep a second
    # command that came with the first until more input woke the watch.
    def command(channel, condition):
        data = os.read(sys.stdin.fileno(), 65536)
        if not data:
            loop.quit()
            return False
        pending.extend(data)
        while b"\n" in pending:
            line, _, rest = bytes(pending).partition(b"\n")
            pending[:] = rest
            words = line.decode("utf-8", "replace").split()
            if len(words) == 3 and words[0] == "invoke":
                server.ActionInvoked(dbus.UInt32(int(words[1])), words[2])
            elif len(words) == 2 and words[0] == "close":
                server.close(int(words[1]), 2)
        return True

    GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, command)
    say({"call": "ready"})
    loop.run()
    return 0


if __name__ == "__main__":
    sys.exit(main())
