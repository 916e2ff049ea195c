# Wayland additions to harness.sh, sourced after it: a headless compositor on a private session
# bus, real input through wayland_keys, and the windows and the focus as the compositor sees them
# (a Wayland client cannot ask which window has the focus: KWin answers through its scripting
# D-Bus interface, and on mutter the test window logs its own focus changes). The README's part
# on the Wayland end-to-end tests lists the compositor and portal facts this depends on.

unset DISPLAY

# wl_compositor NAME CMD...: a session bus, then a compositor on the socket wayland-pindle.
wl_compositor() {
    local name=$1
    shift
    e2e_session_bus
    export WAYLAND_DISPLAY=wayland-pindle
    e2e_spawn "$name" "$@"
    WL_LOG="$E2E_TMP/$name.err"
    e2e_wait_for 20 test -S "$XDG_RUNTIME_DIR/$WAYLAND_DISPLAY" || e2e_fail "no $name: $(tail -n 20 "$WL_LOG")"
    export QT_QPA_PLATFORM=wayland XDG_SESSION_TYPE=wayland
}

wl_has_name() { [ -n "$(e2e_bus_name_owner "$1")" ]; }

# wl_await_name BUS_NAME LOG: waits until BUS_NAME has an owner; fails with the end of LOG.
wl_await_name() { e2e_wait_for 20 wl_has_name "$1" || e2e_fail "no $1: $(tail -n 20 "$2")"; }

# KWin's virtual backend with two 1280x800 outputs side by side, and the desktop portal with KDE's
# backend, which binds global shortcuts without a dialog. The desktop's name goes to the desktop's
# own processes only: Qt would open addresses with KDE's opener rather than xdg-open in a program
# that sees it.
wl_start_kwin() {
    # The installed binary carries a file capability that makes exec fail in a container.
    cp /usr/bin/kwin_wayland "$E2E_TMP/bin/kwin_wayland"
    # KWin 6 refuses --no-kactivities. Its --help needs a platform plugin it has not got yet, so
    # the binary itself is asked whether it knows the flag (Qt keeps the name in UTF-16).
    local flags=(--no-lockscreen)
    LC_ALL=C grep -qaP 'n\x00o\x00-\x00k\x00a\x00c\x00t' /usr/bin/kwin_wayland && flags+=(--no-kactivities)
    XDG_CURRENT_DESKTOP=KDE KWIN_WAYLAND_NO_PERMISSION_CHECKS=1 QT_LOGGING_RULES=kwin_scripting.debug=true \
        wl_compositor kwin "$E2E_TMP/bin/kwin_wayland" --virtual --width 1280 --height 800 \
        --output-count 2 --socket wayland-pindle "${flags[@]}"
    wl_await_name org.kde.kglobalaccel "$WL_LOG"
    XDG_CURRENT_DESKTOP=KDE e2e_spawn portal-kde "$(ls /usr/lib/*/libexec/xdg-desktop-portal-kde | head -n1)"
    wl_await_name org.freedesktop.impl.portal.desktop.kde "$E2E_TMP/portal-kde.err"
    XDG_CURRENT_DESKTOP=KDE e2e_spawn portal /usr/libexec/xdg-desktop-portal --replace
    wl_await_name org.freedesktop.portal.Desktop "$E2E_TMP/portal.err"
    coproc WL_KEYS { exec "$E2E_TOOLS/wayland_keys" 2>"$E2E_TMP/wayland_keys.err"; }
    E2E_PIDS+=("$WL_KEYS_PID")
}

# Headless mutter with one 1280x800 monitor, and the desktop portal without any backend (1.16
# would fall back to KDE's), as on a desktop that offers no global shortcuts.
wl_start_mutter() {
    wl_compositor mutter mutter --headless --wayland --no-x11 --virtual-monitor 1280x800 \
        --wayland-display wayland-pindle
    wl_await_name org.gnome.Mutter.RemoteDesktop "$WL_LOG"
    mkdir -p "$E2E_TMP/no-portals"
    XDG_DESKTOP_PORTAL_DIR="$E2E_TMP/no-portals" e2e_spawn portal /usr/libexec/xdg-desktop-portal --replace
    wl_await_name org.freedesktop.portal.Desktop "$E2E_TMP/portal.err"
    coproc WL_KEYS { exec "$E2E_TOOLS/wayland_keys" 2>"$E2E_TMP/wayland_keys.err"; }
    E2E_PIDS+=("$WL_KEYS_PID")
}

# wl_keys ACTION ARGUMENT...: real input, as wayland_keys takes it (key CHORD, type TEXT,
# pointer X,Y), one pair after the other; returns once the compositor has it, with the last
# answer in WL_KEYS_ANSWER.
wl_keys() {
    while [ $# -gt 0 ]; do
        printf '%s %s\n' "$1" "$2" >&"${WL_KEYS[1]}"
        read -r -t 10 -u "${WL_KEYS[0]}" WL_KEYS_ANSWER && [ "${WL_KEYS_ANSWER%% *}" = ok ] || return 1
        shift 2
    done
}

pindle_key() { wl_keys key "$1"; }

# wl_kwin_eval EXPRESSION: prints the value of a JavaScript expression run by KWin's scripting.
wl_kwin_eval() {
    # Callers run it in subshells, so a counter would not count: the tag is random.
    local tag="query-$BASHPID-$RANDOM$RANDOM" line
    local script="$E2E_TMP/$tag.js"
    printf 'print("%s=" + (%s));\n' "$tag" "$1" >"$script"
    dbus-send --session --print-reply --dest=org.kde.KWin /Scripting \
        org.kde.kwin.Scripting.loadScript "string:$script" "string:$tag" >/dev/null &&
        dbus-send --session --print-reply --dest=org.kde.KWin /Scripting \
            org.kde.kwin.Scripting.start >/dev/null || return 1
    e2e_wait_for 5 grep -q "^js: $tag=" "$WL_LOG"
    line=$(grep -m1 "^js: $tag=" "$WL_LOG")
    dbus-send --session --print-reply --dest=org.kde.KWin /Scripting \
        org.kde.kwin.Scripting.unloadScript "string:$tag" >/dev/null
    rm -f "$script"
    [ -n "$line" ] && printf '%s\n' "${line#"js: $tag="}"
}

# KWin 6's scripting calls windows what KWin 5 called clients.
WL_KWIN_WINDOWS='(workspace.windowList ? workspace.windowList() : workspace.clientList())'
WL_KWIN_ACTIVE='(workspace.windowList ? workspace.activeWindow : workspace.activeClient)'

wl_kwin_is_active() { [ "$(wl_kwin_eval "($WL_KWIN_ACTIVE) ? ($WL_KWIN_ACTIVE).pid : 'none'")" = "$1" ]; }

# wl_kwin_activate PID: gives the focus to the process's window, as a click into it would.
wl_kwin_activate() {
    [ "$(wl_kwin_eval "(function () {
        var w = $WL_KWIN_WINDOWS.filter(function (c) { return c.pid == $1; })[0];
        if (!w) return false;
        if (workspace.windowList) workspace.activeWindow = w; else workspace.activeClient = w;
        return true; })()")" = true ]
}

# On KWin: the pindle windows it shows, one "x y width height" line each.
pindle_windows() {
    wl_kwin_eval "$WL_KWIN_WINDOWS.filter(function (c) { return c.pid == $PINDLE_PID; })
        .map(function (c) { var g = c.frameGeometry; return g.x + ' ' + g.y + ' ' + g.width + ' ' + g.height; })
        .join(';')" | tr ';' '\n' | sed '/^$/d'
}

pindle_is_active() { wl_kwin_is_active "$PINDLE_PID"; }

pindle_is_back_to_editor() {
    pindle_has_no_panel && wl_has_focus editor && wl_kwin_is_active "$editor"
}

# wl_window TITLE: a native test window (wayland_window), returning once it has the focus and
# takes typed keys. Its log is $E2E_TMP/TITLE.out, its pid WL_WINDOW_PID.
wl_window() {
    local log="$E2E_TMP/$1.out" attempt
    e2e_spawn "$1" "$E2E_TOOLS/wayland_window" "$1"
    WL_WINDOW_PID=$E2E_PID
    e2e_wait_for_line "$log" '^focus in$' 15 || e2e_fail "the window $1 did not get the focus"
    # mutter's remote keyboard drops its first keys: Return until one gets through.
    for attempt in $(seq 1 20); do
        wl_keys key Return || e2e_fail "no key presses: $(cat "$E2E_TMP/wayland_keys.err")"
        e2e_wait_for_line "$log" '^typed' 1 && return 0
    done
    e2e_fail "typed keys do not reach the window $1"
}

# wl_focus_count TITLE: how many times the test window TITLE has got the focus.
wl_focus_count() { grep -c '^focus in$' "$E2E_TMP/$1.out"; }

wl_focused_since() { [ "$(wl_focus_count "$1")" -gt "$2" ]; }

# wl_has_focus TITLE: whether the test window's last focus change gave it the focus.
wl_has_focus() { [ "$(grep '^focus ' "$E2E_TMP/$1.out" | tail -n1)" = "focus in" ]; }

wl_has_lost_focus() { ! wl_has_focus "$1"; }

# wl_typed TITLE TEXT: whether the test window got a line holding TEXT.
wl_typed() { grep '^typed ' "$E2E_TMP/$1.out" | grep -qF -- "$2"; }
