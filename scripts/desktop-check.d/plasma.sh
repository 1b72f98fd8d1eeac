# scripts/desktop-check plasma: KDE Plasma 5.27 on X11 (kwin_x11 and
# plasmashell on a virtual display) with the ticker applet in the panel, the
# panel at the bottom and then at the top. Sourced by desktop-check (its
# pass/fail/start/wait_for/strip_id/geom helpers).

plasma_eval() { qdbus org.kde.plasmashell /PlasmaShell org.kde.PlasmaShell.evaluateScript "$1" 2>&1; }
plasma_has_panel() { [ "$(plasma_eval 'print(panels().length)')" -ge 1 ] 2>/dev/null; }
plasma_attached() { ticker_prop Attached | grep -q 'uint32 1'; }
plasma_shot() { # kwin's compositor off while the root window is read
  qdbus org.kde.KWin /Compositor org.kde.kwin.Compositing.suspend >/dev/null 2>&1
  import -window root "$1"
}
# The applet's link dot: its leftmost column in rows y0..y0+h of a screenshot.
plasma_dot() { # screenshot y0 h
  local c
  for c in '#00FF9C' '#FFB020' '#FF5000'; do
    convert "$1" -crop "1600x$3+0+$2" +repage txt:- 2>/dev/null | grep -i "$c" | head -1 |
      sed 's/^\([0-9]*\),\([0-9]*\).*/\1 \2/' | grep . && return
  done
}
plasma_panel_window() { app_windows | awk '$4 >= 400' | head -1; }
plasma_panel_open() { [ -n "$(plasma_panel_window)" ]; }
plasma_strip_back() { [ -n "$(strip_id)" ]; }
row_moved_from() { [ "$(ticker_prop Row)" != "$1" ]; }

# Clicks the applet in the panel's rows and checks where the app's panel opens.
plasma_click_check() { # where (bottom|top) y0 h
  local where=$1 y0=$2 h=$3 dx dy
  plasma_shot "$out/plasma-$where.png"
  read -r dx dy < <(plasma_dot "$out/plasma-$where.png" "$y0" "$h")
  if [ -z "$dx" ]; then fail "the applet is not drawn in the $where panel"; return; fi
  pass "ticker drawn in the $where panel at x=$dx: plasma-$where.png"
  xdotool mousemove $((dx + 60)) $((y0 + dy)) click 1
  if ! wait_for 10 plasma_panel_open; then fail "a click on the applet opened no panel"; return; fi
  sleep 1.5
  plasma_shot "$out/plasma-$where-panel.png"
  local id px py pw ph
  read -r id px py pw ph < <(plasma_panel_window)
  if [ "$where" = bottom ] && ((py + ph <= y0 + 10 && py + ph > 400)); then
    pass "panel opens above the bottom panel (${pw}x${ph}+${px}+${py}): plasma-bottom-panel.png"
  elif [ "$where" = top ] && ((py >= y0 + h - 10 && py < 200)); then
    pass "panel opens below the top panel (${pw}x${ph}+${px}+${py}): plasma-top-panel.png"
  else
    fail "panel at ${pw}x${ph}+${px}+${py} for a $where panel in rows $y0..$((y0 + h))"
  fi
  if ((px <= dx + 60 && px + pw >= dx)); then pass "panel hangs next to the applet"; else fail "panel far from the applet (x $px..$((px + pw)), applet at $dx)"; fi
  xdotool key Escape
  sleep 1
}

plasma_inner() { # runs inside the private session
  local d=$((dnum + 5))
  echo "== KDE Plasma 5 on X11"
  Xvfb ":$d" -screen 0 1600x900x24 -nolisten tcp >>"$out/log.txt" 2>&1 &
  pids+=($!)
  export DISPLAY=":$d"
  wait_for 10 xdpyinfo || { fail "Xvfb :$d"; return; }
  # What the session bus starts (kglobalaccel, kactivitymanagerd) needs the display too.
  dbus-update-activation-environment DISPLAY >>"$out/log.txt" 2>&1
  start kwin_x11
  wait_for 20 wmctrl -m || { fail "kwin_x11 did not start"; return; }
  start kded5
  kpackagetool5 -t Plasma/Applet -i desktop/plasma/org.larkpin.ticker >>"$out/log.txt" 2>&1 ||
    { fail "kpackagetool5 could not install the applet"; return; }
  QML2_IMPORT_PATH="$plasma_qml" start plasmashell
  wait_for 90 plasma_has_panel || { fail "plasmashell has no panel"; return; }
  plasma_eval 'panels()[0].addWidget("org.larkpin.ticker")' >>"$out/log.txt"
  LARKPIN_SERVICE="127.0.0.1:$port" start build/bin/larkpin
  wait_for 60 plasma_attached && pass "the applet attached to the app's ticker" ||
    { fail "applet not attached: $(ticker_prop Attached)"; grep -i larkpin "$out/log.txt" | tail -5; return; }
  sleep 3
  [ -z "$(strip_id)" ] && pass "no strip of the app's own while the applet draws the ticker" || fail "strip still shown"
  local wa; wa=$(xprop -root _NET_WORKAREA | sed 's/.*= //' | cut -d, -f1-4)
  [ "$(cut -d, -f2 <<<"$wa" | tr -d ' ')" = 0 ] && pass "nothing reserved at the top: work area $wa" ||
    fail "a row is reserved at the top: work area $wa"
  local bottom; bottom=$(cut -d, -f4 <<<"$wa" | tr -d ' ')
  # The applet follows the app's row: its pixels change when the row does.
  plasma_shot "$out/plasma-before.png"
  local row0; row0=$(ticker_prop Row)
  if wait_for 20 row_moved_from "$row0"; then
    sleep 1.5
    plasma_shot "$out/plasma-after.png"
    local a b
    a=$(convert "$out/plasma-before.png" -crop "400x$((900 - bottom))+0+$bottom" +repage rgb:- | md5sum)
    b=$(convert "$out/plasma-after.png" -crop "400x$((900 - bottom))+0+$bottom" +repage rgb:- | md5sum)
    [ "$a" != "$b" ] && pass "the applet follows the ticker's rows" || fail "the applet did not redraw for a new row"
    rm -f "$out/plasma-before.png" "$out/plasma-after.png"
  else
    fail "the app published no new row in 20 s"
  fi
  plasma_click_check bottom "$bottom" $((900 - bottom))

  plasma_eval 'panels()[0].location = "top"' >>"$out/log.txt"
  sleep 4
  wa=$(xprop -root _NET_WORKAREA | sed 's/.*= //' | cut -d, -f1-4)
  local top; top=$(cut -d, -f2 <<<"$wa" | tr -d ' ')
  if ((top > 0)); then plasma_click_check top 0 "$top"; else fail "the panel did not move to the top ($wa)"; fi

  # The applet removed: the app's strip comes back.
  plasma_eval 'panels()[0].widgets("org.larkpin.ticker").forEach(function (w) { w.remove() })' >>"$out/log.txt"
  wait_for 10 plasma_strip_back && pass "applet removed: the strip is back" || fail "applet removed, no strip"
  stop_all
}

scenario_plasma() {
  for tool in kwin_x11 plasmashell kpackagetool5 qdbus gdbus convert dbus-update-activation-environment; do
    command -v "$tool" >/dev/null || { fail "$tool missing (LARKPIN_DESKTOP_CHECK=plasma scripts/deps)"; return; }
  done
  plasma_qml="$root/build/plasma-plugin/qml"
  [ -f "$plasma_qml/org/larkpin/ticker/qmldir" ] ||
    { fail "the applet's Qt 5 plugin is not built ($plasma_qml; needs Qt 5: LARKPIN_BAR_PIECES=1 scripts/deps)"; return; }
  local work; work=$(mktemp -d)
  mkdir -p "$work/home" "$work/run" "$work/config" "$work/data"
  chmod 700 "$work/run"
  env HOME="$work/home" XDG_RUNTIME_DIR="$work/run" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" \
    plasma_qml="$plasma_qml" dbus-run-session -- "$0" _plasma 2>>"$out/log.txt"
  failures=$((failures + $?))
  rm -rf "$work"
}
