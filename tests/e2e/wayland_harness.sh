# Wayland end-to-end harness, sourced after harness.sh (which owns the temporary folder, the
# processes it spawns and their teardown): a private D-Bus session, then a headless compositor.
#
#   wl_start_kwin    KWin's virtual backend with two 1280x800 outputs side by side, and the
#                    desktop portal with KDE's backend (GlobalShortcuts binds without a dialog)
#   wl_start_mutter  headless mutter with one 1280x800 monitor, and the desktop portal without
#                    any backend, as on a desktop that offers no GlobalShortcuts
#
# Facts these depend on (Debian 12: KWin 5.27, mutter 43, xdg-desktop-portal 1.16):
#   - packages: kwin-wayland xdg-desktop-portal xdg-desktop-portal-kde qt6-wayland wl-clipboard
#     libwayland-dev plasma-wayland-protocols mutter;
#   - the installed kwin_wayland carries a file capability (cap_sys_resource) that makes exec
#     fail with EPERM in a container: a plain copy of the binary runs;
#   - KWIN_WAYLAND_NO_PERMISSION_CHECKS=1 lets any client use KWin's fake-input protocol, through
#     which wayland_keys presses real keys; on mutter it uses the remote-desktop D-Bus service;
#   - KDE's portal backend needs org.kde.kglobalaccel, which KWin provides once it is up;
#   - xdg-desktop-portal 1.16 falls back to the KDE backend whatever the desktop, so mutter's
#     portal gets an empty XDG_DESKTOP_PORTAL_DIR;
#   - Debian 13 (KWin 6.3, mutter 48, xdg-desktop-portal 1.20): KWin refuses --no-kactivities,
#     its scripting says windowList/activeWindow for clientList/activeClient, it gives the
#     focus to no window when a panel closes after opening an address, and it cancels a
#     selection set without the serial of an input event while another client's stands;
#   - KDE's portal runs xdg-open itself while binding shortcuts: a logging xdg-open sees both;
#   - a Wayland client cannot ask which window has the focus: KWin answers through its scripting
#     D-Bus interface (print() lands in its log with kwin_scripting.debug on), and on mutter the
#     test window (wayland_window) logs its own focus changes.
#
# WL_TOOLS names the folder of wayland_keys and wayland_window.

: "${WL_TOOLS:?WL_TOOLS must name the folder of wayland_keys and wayland_window}"
WL_COMPOSITOR=
WL_LOG=

# wl_session: a temporary HOME and runtime folder and a private D-Bus session bus.
wl_session() {
    export HOME="$E2E_TMP/home" XDG_RUNTIME_DIR="$E2E_TMP/runtime"
    mkdir -p "$HOME" "$XDG_RUNTIME_DIR" "$E2E_TMP/bin"
    chmod 700 "$XDG_RUNTIME_DIR"
    unset DISPLAY WAYLAND_DISPLAY XDG_SESSION_TYPE
    e2e_session_bus
}

wl_has_name() { [ -n "$(e2e_bus_name_owner "$1")" ]; }

# wl_compositor NAME CMD...: starts a compositor on the socket wayland-pindle and waits for it.
wl_compositor() {
    local name=$1
    shift
    export WAYLAND_DISPLAY=wayland-pindle
    e2e_spawn "$name" "$@"
    WL_LOG="$E2E_TMP/$name.err"
    e2e_wait_for 20 test -S "$XDG_RUNTIME_DIR/$WAYLAND_DISPLAY" ||
        e2e_fail "$name did not start: $(tail -n 20 "$WL_LOG")"
    export QT_QPA_PLATFORM=wayland XDG_SESSION_TYPE=wayland
}

# wl_portal [BACKEND_DIR]: starts the desktop portal; with BACKEND_DIR, it finds its backends
# there (an empty folder: none).
wl_portal() {
    if [ -n "${1:-}" ]; then
        XDG_DESKTOP_PORTAL_DIR=$1 e2e_spawn portal /usr/libexec/xdg-desktop-portal --replace
    else
        e2e_spawn portal /usr/libexec/xdg-desktop-portal --replace
    fi
    e2e_wait_for 20 wl_has_name org.freedesktop.portal.Desktop ||
        e2e_fail "xdg-desktop-portal did not start: $(tail -n 20 "$E2E_TMP/portal.err")"
}

# The desktop's name goes to the desktop's own processes only: Qt would open addresses with
# KDE's opener rather than xdg-open in a program that sees it.
wl_start_kwin() {
    WL_COMPOSITOR=kwin
    cp /usr/bin/kwin_wayland "$E2E_TMP/bin/kwin_wayland"
    # KWin 6 has no activities to turn off, and refuses the flag. Its --help needs a platform
    # plugin it has not got yet, so the binary itself is asked (Qt keeps the name in UTF-16).
    local flags=(--no-lockscreen)
    if LC_ALL=C grep -qaP 'n\x00o\x00-\x00k\x00a\x00c\x00t' /usr/bin/kwin_wayland; then
        flags+=(--no-kactivities)
    fi
    XDG_CURRENT_DESKTOP=KDE KWIN_WAYLAND_NO_PERMISSION_CHECKS=1 QT_LOGGING_RULES=kwin_scripting.debug=true \
        wl_compositor kwin "$E2E_TMP/bin/kwin_wayland" --virtual --width 1280 --height 800 \
        --output-count 2 --socket wayland-pindle "${flags[@]}"
    e2e_wait_for 20 wl_has_name org.kde.kglobalaccel ||
        e2e_fail "KWin did not offer global shortcuts: $(tail -n 20 "$WL_LOG")"
    local backend
    backend=$(ls /usr/lib/*/libexec/xdg-desktop-portal-kde 2>/dev/null | head -n1)
    [ -n "$backend" ] || e2e_fail "xdg-desktop-portal-kde is not installed"
    XDG_CURRENT_DESKTOP=KDE e2e_spawn portal-kde "$backend"
    e2e_wait_for 20 wl_has_name org.freedesktop.impl.portal.desktop.kde ||
        e2e_fail "the KDE portal did not start: $(tail -n 20 "$E2E_TMP/portal-kde.err")"
    XDG_CURRENT_DESKTOP=KDE wl_portal
}

wl_start_mutter() {
    WL_COMPOSITOR=mutter
    wl_compositor mutter mutter --headless --wayland --no-x11 --virtual-monitor 1280x800 \
        --wayland-display wayland-pindle
    e2e_wait_for 20 wl_has_name org.gnome.Mutter.RemoteDesktop ||
        e2e_fail "mutter offers no remote desktop: $(tail -n 20 "$WL_LOG")"
    mkdir -p "$E2E_TMP/no-portals"
    wl_portal "$E2E_TMP/no-portals"
    # One remote-desktop session for the whole test (see wayland_keys).
    coproc WL_KEYS { exec "$WL_TOOLS/wayland_keys" --mutter 2>"$E2E_TMP/wayland_keys.err"; }
    E2E_PIDS+=("$WL_KEYS_PID")
}

# wl_keys ACTION ARGUMENT...: real input, as `wayland_keys` takes it (key CHORD, type TEXT,
# pointer X Y); returns once the compositor has it.
wl_keys() {
    if [ "$WL_COMPOSITOR" = kwin ]; then
        "$WL_TOOLS/wayland_keys" "$@"
        return
    fi
    local reply
    while [ $# -gt 0 ]; do
        printf '%s %s\n' "$1" "$2" >&"${WL_KEYS[1]}"
        read -r -t 10 -u "${WL_KEYS[0]}" reply && [ "$reply" = ok ] || return 1
        shift 2
    done
}

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

# The windows of a process that KWin shows, one "x y width height" line each.
wl_kwin_windows_of() {
    wl_kwin_eval "$WL_KWIN_WINDOWS.filter(function (c) { return c.pid == $1; })
        .map(function (c) { var g = c.frameGeometry; return g.x + ' ' + g.y + ' ' + g.width + ' ' + g.height; })
        .join(';')" | tr ';' '\n' | sed '/^$/d'
}

# The pid of KWin's active window, or "none".
wl_kwin_active_pid() { wl_kwin_eval "($WL_KWIN_ACTIVE) ? ($WL_KWIN_ACTIVE).pid : 'none'"; }

wl_kwin_is_active() { [ "$(wl_kwin_active_pid)" = "$1" ]; }

# wl_kwin_activate PID: gives the focus to the process's window, as a click into it would.
wl_kwin_activate() {
    [ "$(wl_kwin_eval "(function () {
        var w = $WL_KWIN_WINDOWS.filter(function (c) { return c.pid == $1; })[0];
        if (!w) return false;
        if (workspace.windowList) workspace.activeWindow = w; else workspace.activeClient = w;
        return true; })()")" = true ]
}

# wl_output_at X: the output (0 or 1) that holds x = X; the outputs are side by side.
wl_output_at() { echo $(($1 / 1280)); }

# wl_window TITLE: a native test window (wayland_window), returning once it has the focus and
# takes typed keys. Its log is $E2E_TMP/TITLE.log, its pid WL_WINDOW_PID.
wl_window() {
    local log="$E2E_TMP/$1.log" attempt
    e2e_spawn "$1" "$WL_TOOLS/wayland_window" "$1" "$log"
    WL_WINDOW_PID=$E2E_PID
    e2e_wait_for_line "$log" '^focus in$' 15 || e2e_fail "the window $1 did not get the focus"
    # mutter's remote keyboard drops its first keys: Return until one gets through.
    for attempt in $(seq 1 20); do
        wl_keys key Return || e2e_fail "no key presses on $WL_COMPOSITOR"
        e2e_wait_for_line "$log" '^typed' 1 && return 0
    done
    e2e_fail "typed keys do not reach the window $1"
}

# wl_focus_count TITLE: how many times the test window TITLE has got the focus.
wl_focus_count() { grep -c '^focus in$' "$E2E_TMP/$1.log"; }

# wl_focused_since TITLE COUNT: true once the test window has got the focus more than COUNT times.
wl_focused_since() { [ "$(wl_focus_count "$1")" -gt "$2" ]; }

# wl_has_focus TITLE: true when the test window's last focus change gave it the focus.
wl_has_focus() { [ "$(grep '^focus ' "$E2E_TMP/$1.log" | tail -n1)" = "focus in" ]; }

wl_has_lost_focus() { ! wl_has_focus "$1"; }

# wl_typed TITLE TEXT: true when the test window got a line holding TEXT (keys that reached it
# while a test waited for a hot key to be bound may come first).
wl_typed() { grep '^typed ' "$E2E_TMP/$1.log" | grep -qF -- "$2"; }

# wl_clipboard_offers TYPE: true when the clipboard's owner offers TYPE; the list comes from the
# compositor, so an owner that hangs once asked for data is never asked.
wl_clipboard_offers() { timeout 5 wl-paste --list-types 2>/dev/null | grep -qxF -- "$1"; }
