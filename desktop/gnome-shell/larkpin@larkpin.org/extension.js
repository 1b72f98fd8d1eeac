/* Larkpin's ticker as a piece of GNOME Shell's top bar.
 *
 * The app is the one source of truth: it publishes what its ticker shows on
 * the session bus (org.larkpin.Ticker1 at /org/larkpin/Ticker) and announces
 * each change. This extension only draws that state in the app's look and
 * hands clicks back: left toggles the panel right under the button, right
 * opens the app's menu, drawn by the shell (a menu of an XWayland client
 * cannot take the pointer from the shell's bar). While it is attached the app shows no strip of its
 * own; when the extension is disabled or the shell goes, the strip returns. */
'use strict';

// The shell's modules. GNOME 45 turns these into ES module imports and the
// init()/enable()/disable() functions at the bottom into a class: both ends of
// this file are all that changes.
const {Clutter, Gio, GLib, GObject, Pango, St} = imports.gi;
const Main = imports.ui.main;
const PanelMenu = imports.ui.panelMenu;
const PopupMenu = imports.ui.popupMenu;

const BUS_NAME = 'org.larkpin.Ticker1';
const OBJECT_PATH = '/org/larkpin/Ticker';
const TickerProxy = Gio.DBusProxy.makeProxyWrapper(`
<node><interface name="org.larkpin.Ticker1">
  <property name="Version" type="u" access="read"/>
  <property name="Row" type="a{sv}" access="read"/>
  <property name="RowIndex" type="i" access="read"/>
  <property name="RowCount" type="i" access="read"/>
  <property name="Takeover" type="a{sv}" access="read"/>
  <property name="TakeoverRemainingMs" type="i" access="read"/>
  <property name="Link" type="s" access="read"/>
  <property name="Counts" type="a{sv}" access="read"/>
  <property name="Paused" type="b" access="read"/>
  <property name="Status" type="s" access="read"/>
  <property name="Accents" type="a{sv}" access="read"/>
  <method name="TogglePanel"><arg type="i" direction="in"/><arg type="i" direction="in"/>
    <arg type="i" direction="in"/><arg type="i" direction="in"/></method>
  <method name="ShowMenu"><arg type="i" direction="in"/><arg type="i" direction="in"/></method>
  <method name="SetPaused"><arg type="b" direction="in"/></method>
  <method name="Quit"/>
  <method name="Attach"/>
  <method name="Detach"/>
</interface></node>`);

const FLIP_MS = 280;   // the strip's flip
const COUNT_MS = 550;  // the takeover's figure rolls up this long
const ENTER_MS = 260;
const DIMMED = 77;     // the lane behind a takeover: 0.3 of full opacity
const ARROWS = {buy: ' \u25B2', sell: ' \u25BC'};
const FALLBACK = {
    whale: '#ccff00', spike: '#ffb020', stocks: '#00ff9c', ink: '#06070a',
    'link-live': '#00ff9c', 'link-down': '#ff5000', 'link-waiting': '#ffb020',
};

function unpack(proxy, name, fallback) {
    const v = proxy.get_cached_property(name);
    return v ? v.recursiveUnpack() : fallback;
}

// Badges and figures keep their whole width; the rest of the line gives way.
function keepWhole(label) {
    label.clutter_text.ellipsize = Pango.EllipsizeMode.NONE;
}

// The desktop's wish for less motion: St's enable-animations (which the shell
// also turns off when it renders in software). LARKPIN_REDUCE_MOTION=1 or 0 in
// the shell's environment overrides it, as it does for the app.
function animationsOn() {
    const override = GLib.getenv('LARKPIN_REDUCE_MOTION');
    if (override === '1' || override === '0')
        return override === '0';
    return St.Settings.get().enable_animations;
}

// Eases `props` over `ms`: through the shell's ease() where the shell
// animates; where only the override asks for motion, on a timeline of our own
// (the shell cuts its ease() and Clutter's implicit easing to nothing then).
// 0 ms sets them at once.
function tween(actor, props, ms, mode, done) {
    const settings = St.Settings.get();
    actor._larkpinTween?.stop();
    if (ms > 0 && settings.enable_animations) {
        actor.ease({...props, duration: ms, mode, onStopped: done});
        return;
    }
    const finish = () => {
        actor._larkpinTween = null;
        Object.assign(actor, props);
        done?.();
    };
    const duration = Math.round(ms * settings.slow_down_factor);
    if (duration <= 0) {
        finish();
        return;
    }
    const from = {};
    for (const key of Object.keys(props))
        from[key] = actor[key];
    const timeline = new Clutter.Timeline({actor, duration, progress_mode: mode});
    timeline.connect('new-frame', () => {
        const k = timeline.get_progress();
        for (const [key, to] of Object.entries(props)) {
            const v = from[key] + (to - from[key]) * k;
            actor[key] = key === 'opacity' ? Math.max(0, Math.min(255, Math.round(v))) : v;
        }
    });
    timeline.connect('completed', finish);
    let destroyed = false;
    const destroyId = actor.connect('destroy', () => {
        destroyed = true;
        timeline.stop();
    });
    timeline.connect('stopped', () => {
        if (!destroyed)
            actor.disconnect(destroyId);
    });
    actor._larkpinTween = timeline;
    timeline.start();
}

// A figure on its way to `target`, printed the way the app printed the final one.
function shapedLike(value, final) {
    const m = /^([^0-9]*)([0-9][0-9,]*)(\.([0-9]+))?([KMB]?)(.*)$/.exec(final);
    if (!m)
        return final;
    const scale = {K: 1e3, M: 1e6, B: 1e9}[m[5]] || 1;
    const decimals = m[4] ? m[4].length : 0;
    let digits = (value / scale).toFixed(decimals);
    if (m[2].includes(','))
        digits = digits.replace(/\B(?=(\d{3})+(?!\d))/g, ',');
    return `${m[1]}${digits}${m[5]}${m[6]}`;
}

const TickerButton = GObject.registerClass(
class TickerButton extends PanelMenu.Button {
    _init() {
        super._init(0.0, 'Larkpin', false);
        this.add_style_class_name('larkpin-button');
        this._rowKey = null;
        this._takeoverKey = null;
        this._counter = null;

        const box = new St.BoxLayout({style_class: 'larkpin-ticker', y_align: Clutter.ActorAlign.CENTER});
        const mark = new St.BoxLayout({vertical: true, style_class: 'larkpin-mark',
            y_align: Clutter.ActorAlign.CENTER});
        for (let i = 0; i < 3; i++)
            mark.add_child(new St.Widget({style_class: 'larkpin-mark-bar'}));
        box.add_child(mark);
        this._dot = new St.Widget({style_class: 'larkpin-dot', y_align: Clutter.ActorAlign.CENTER});
        box.add_child(this._dot);

        // The lane clips the rows as they slide; the focal layer sits over it.
        this._lane = new St.Widget({style_class: 'larkpin-lane', clip_to_allocation: true,
            layout_manager: new Clutter.BinLayout(), y_expand: true});
        this._rows = new St.Widget({layout_manager: new Clutter.BinLayout(), x_expand: true, y_expand: true});
        this._lane.add_child(this._rows);
        this._focal = new St.BoxLayout({vertical: true, x_expand: true, visible: false,
            y_align: Clutter.ActorAlign.CENTER, x_align: Clutter.ActorAlign.START});
        this._focalRow = new St.BoxLayout({style_class: 'larkpin-focal'});
        this._focalBadge = new St.Label({style_class: 'larkpin-badge', y_align: Clutter.ActorAlign.CENTER});
        this._focalAmount = new St.Label({style_class: 'larkpin-focal-amount',
            y_align: Clutter.ActorAlign.CENTER});
        keepWhole(this._focalBadge);
        keepWhole(this._focalAmount);
        this._focalRow.add_child(this._focalBadge);
        this._focalRow.add_child(this._focalAmount);
        this._hold = new St.Widget({style_class: 'larkpin-hold', x_align: Clutter.ActorAlign.START});
        this._focal.add_child(this._focalRow);
        this._focal.add_child(this._hold);
        this._lane.add_child(this._focal);
        box.add_child(this._lane);
        this.add_child(box);
        this._buildMenu();
        this.hide();

        this._proxy = null;
        this._cancellable = new Gio.Cancellable();
        new TickerProxy(Gio.DBus.session, BUS_NAME, OBJECT_PATH, (proxy, error) => {
            if (error) {
                if (!error.matches(Gio.IOErrorEnum, Gio.IOErrorEnum.CANCELLED))
                    log(`Larkpin: no ticker proxy: ${error.message}`);
                return;
            }
            this._proxy = proxy;
            this._ownerId = proxy.connect('notify::g-name-owner', () => this._ownerChanged());
            this._changedId = proxy.connect('g-properties-changed', (_p, changed) =>
                this._propertiesChanged(changed.deepUnpack()));
            this._ownerChanged();
        }, this._cancellable, Gio.DBusProxyFlags.DO_NOT_AUTO_START);
    }

    // The app's menu, the same items as its tray menu.
    _buildMenu() {
        this._statusItem = new PopupMenu.PopupMenuItem('', {reactive: false});
        this.menu.addMenuItem(this._statusItem);
        this.menu.addMenuItem(new PopupMenu.PopupSeparatorMenuItem());
        this.menu.addAction('Open Larkpin', () => {
            const [x, y, w, h] = this._rect();
            this._proxy?.OpenPanelRemote(x, y, w, h, () => {});
        });
        this._pauseItem = this.menu.addAction('Pause ticker', () =>
            this._proxy?.SetPausedRemote(!unpack(this._proxy, 'Paused', false), () => {}));
        this.menu.addMenuItem(new PopupMenu.PopupSeparatorMenuItem());
        this.menu.addAction('Quit Larkpin', () => this._proxy?.QuitRemote(() => {}));
        this.menu.connect('open-state-changed', (_menu, open) => {
            if (open && this._proxy)
                this._syncMenu();
        });
    }

    _syncMenu() {
        this._statusItem.label.text = unpack(this._proxy, 'Status', '');
        this._pauseItem.label.text = unpack(this._proxy, 'Paused', false) ? 'Resume ticker' : 'Pause ticker';
    }

    _rect() {
        const [x, y] = this.get_transformed_position();
        const [w, h] = this.get_transformed_size();
        return [x, y, w, h].map(Math.round);
    }

    // The app came or went (or restarted): attach to whoever runs it now.
    _ownerChanged() {
        if (!this._proxy.g_name_owner) {
            this.hide();
            this._rowKey = null;
            return;
        }
        this._proxy.AttachRemote(() => {});
        this._redrawAll();
        this.show();
    }

    _accent(key) {
        const accents = unpack(this._proxy, 'Accents', {});
        return accents[key] || FALLBACK[key] || '#edf1f4';
    }

    _redrawAll() {
        this._showLink();
        this._showRow(false);
        this._showTakeover(false);
    }

    _propertiesChanged(changed) {
        if ('Link' in changed)
            this._showLink();
        if ('Row' in changed || 'Link' in changed || 'Paused' in changed)
            this._showRow(true);
        if ('Takeover' in changed)
            this._showTakeover(true);
        if (('Status' in changed || 'Paused' in changed) && this.menu.isOpen)
            this._syncMenu();
    }

    _showLink() {
        const link = unpack(this._proxy, 'Link', 'connecting');
        const key = link === 'live' ? 'link-live' : link === 'down' ? 'link-down' : 'link-waiting';
        this._dot.set_style(`background-color: ${this._accent(key)};`);
    }

    _makeRow(row) {
        const box = new St.BoxLayout({style_class: 'larkpin-row', y_align: Clutter.ActorAlign.CENTER,
            x_align: Clutter.ActorAlign.START});
        if (!row.kind) {
            const link = unpack(this._proxy, 'Link', 'connecting');
            const text = link === 'down' ? 'TAPE OFFLINE' : 'NO SIGNALS';
            box.add_child(new St.Label({text, style_class: 'larkpin-idle', y_align: Clutter.ActorAlign.CENTER}));
            return box;
        }
        const badge = new St.Label({text: `${row.symbol}${ARROWS[row.direction] || ''}`,
            style_class: 'larkpin-badge', y_align: Clutter.ActorAlign.CENTER});
        keepWhole(badge);
        badge.set_style(`background-color: ${this._accent(row.kind)}; color: ${this._accent('ink')};`);
        box.add_child(badge);
        if (row.amount) {
            const amount = new St.Label({text: row.amount, style_class: 'larkpin-amount',
                y_align: Clutter.ActorAlign.CENTER});
            amount.set_style(`color: ${this._accent(row.kind)};`);
            keepWhole(amount);
            box.add_child(amount);
        }
        box.add_child(new St.Label({text: row.text || '', style_class: 'larkpin-text',
            y_align: Clutter.ActorAlign.CENTER}));
        return box;
    }

    // The flip: the new row slides up from below while the old one leaves.
    _showRow(animate) {
        const row = unpack(this._proxy, 'Row', {});
        const key = JSON.stringify([row, row.kind ? '' : unpack(this._proxy, 'Link', '')]);
        if (key === this._rowKey)
            return;
        this._rowKey = key;
        const incoming = this._makeRow(row);
        const outgoing = this._rows.get_children();
        this._rows.add_child(incoming);
        const travel = Math.max(this._lane.height, 17);
        if (!animate || !animationsOn() || outgoing.length === 0) {
            outgoing.forEach(a => a.destroy());
            return;
        }
        incoming.translation_y = travel;
        tween(incoming, {translation_y: 0}, FLIP_MS, Clutter.AnimationMode.EASE_OUT_CUBIC);
        for (const old of outgoing) {
            old.remove_all_transitions();
            tween(old, {translation_y: -travel, opacity: 0}, FLIP_MS, Clutter.AnimationMode.EASE_OUT_CUBIC,
                () => old.destroy());
        }
    }

    // One trade owns the item for its hold: the lane dims, the focal badge
    // springs in with its accent glow, the figure counts up, and a hairline
    // shows what is left of the hold. The app says when it ends.
    _showTakeover(animate) {
        const t = unpack(this._proxy, 'Takeover', {});
        const key = t.kind ? JSON.stringify(t) : null;
        if (key === this._takeoverKey)
            return;
        const wasShowing = this._takeoverKey !== null;
        this._takeoverKey = key;
        this._stopCounter();
        const motion = animate && animationsOn();
        if (!key) {
            this._focal.remove_all_transitions();
            tween(this._focal, {opacity: 0}, motion ? 180 : 0, Clutter.AnimationMode.EASE_OUT_QUAD, () => {
                if (!this._takeoverKey)
                    this._focal.hide();
            });
            tween(this._rows, {opacity: 255}, motion ? ENTER_MS : 0, Clutter.AnimationMode.EASE_OUT_QUAD);
            return;
        }
        const accent = this._accent(t.kind);
        this._focalBadge.text = `${t.symbol}${ARROWS[t.direction] || ''}`;
        this._focalBadge.set_style(`background-color: ${accent}; color: ${this._accent('ink')};`);
        this._focalRow.set_style(`box-shadow: 0 0 6px 0 ${accent}b3; background-color: ${accent}26;`);
        this._focalAmount.set_style(`color: ${accent};`);
        this._hold.set_style(`background-color: ${accent};`);
        tween(this._rows, {opacity: DIMMED}, motion ? ENTER_MS : 0, Clutter.AnimationMode.EASE_OUT_QUAD);

        this._focal.show();
        this._focal.remove_all_transitions();
        this._focal.set_pivot_point(0.5, 0.5);
        if (motion && wasShowing) {
            this._focal.translation_y = 5;
            tween(this._focal, {translation_y: 0}, 200, Clutter.AnimationMode.EASE_OUT_CUBIC);
        } else if (motion) {
            this._focal.set_scale(0.93, 0.93);
            this._focal.opacity = 0;
            tween(this._focal, {scale_x: 1, scale_y: 1, opacity: 255}, 320, Clutter.AnimationMode.EASE_OUT_BACK);
        } else {
            this._focal.set_scale(1, 1);
            this._focal.translation_y = 0;
            this._focal.opacity = 255;
        }
        const final = t.amount || '';
        if (motion && typeof t.usd === 'number' && final)
            this._countUp(t.usd, final);
        else
            this._focalAmount.text = final;

        // The hold's hairline runs down over what the app says is left.
        const left = Math.max(0, unpack(this._proxy, 'TakeoverRemainingMs', 0));
        const hold = t.holdMs || 7000;
        const full = Math.max(this._lane.width - 4, 40);
        this._hold.remove_all_transitions();
        this._hold.width = Math.round(full * Math.min(1, left / hold));
        // A clock more than a motion: it runs down with or without animations.
        this._hold.save_easing_state();
        this._hold.set_easing_duration(left);
        this._hold.set_easing_mode(Clutter.AnimationMode.LINEAR);
        this._hold.width = 0;
        this._hold.restore_easing_state();
    }

    // The figure rolls from nothing to the trade's size, on the stage's frames.
    _countUp(usd, final) {
        const timeline = new Clutter.Timeline({actor: this._focalAmount, duration: COUNT_MS});
        timeline.connect('new-frame', () => {
            const k = 1 - Math.pow(1 - timeline.get_progress(), 3);
            this._focalAmount.text = shapedLike(usd * k, final);
        });
        timeline.connect('completed', () => {
            this._focalAmount.text = final;
        });
        this._focalAmount.text = shapedLike(0, final);
        this._counter = timeline;
        timeline.start();
    }

    _stopCounter() {
        if (this._counter) {
            this._counter.stop();
            this._counter = null;
        }
    }

    // Left: the panel, hanging right under the button. Right: the menu.
    vfunc_event(event) {
        const type = event.type();
        if (type !== Clutter.EventType.BUTTON_PRESS && type !== Clutter.EventType.TOUCH_BEGIN)
            return Clutter.EVENT_PROPAGATE;
        if (!this._proxy || !this._proxy.g_name_owner)
            return Clutter.EVENT_PROPAGATE;
        const button = type === Clutter.EventType.BUTTON_PRESS ? event.get_button() : Clutter.BUTTON_PRIMARY;
        if (button === Clutter.BUTTON_SECONDARY) {
            this.menu.toggle();
        } else if (button === Clutter.BUTTON_PRIMARY) {
            this.menu.close();
            const [x, y, w, h] = this._rect();
            this._proxy.TogglePanelRemote(x, y, w, h, () => {});
        } else {
            return Clutter.EVENT_PROPAGATE;
        }
        return Clutter.EVENT_STOP;
    }

    _onDestroy() {
        this._stopCounter();
        this._cancellable.cancel();
        if (this._proxy) {
            this._proxy.disconnect(this._ownerId);
            this._proxy.disconnect(this._changedId);
            // The shell's connection outlives a disabled extension: say so,
            // so the strip comes back at once.
            if (this._proxy.g_name_owner)
                this._proxy.DetachRemote(() => {});
            this._proxy = null;
        }
        super._onDestroy();
    }
});

// The extension's life. With GNOME 45 this becomes `export default class
// extends Extension { enable() {...} disable() {...} }`.
class Extension {
    enable() {
        this._button = new TickerButton();
        Main.panel.addToStatusArea('larkpin-ticker', this._button, 0, 'right');
    }

    disable() {
        this._button?.destroy();
        this._button = null;
    }
}

function init() {
    return new Extension();
}
