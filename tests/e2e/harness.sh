# End-to-end harness, sourced by the test scripts, called as SCRIPT PINDLE_BINARY with E2E_TOOLS
# naming the folder of the test programs built beside it. Every script gets a private temporary
# folder (E2E_TMP) holding an empty HOME and runtime folder, a folder of shortcuts, a logging
# xdg-open first on PATH, and the logs of what it spawns; everything spawned is torn down whatever
# happens. x11_start brings up a private Xvfb with openbox; wayland_harness.sh adds compositors.
# e2e_check carries on after a failure (hence no set -e); e2e_finish exits 0 when all passed.

set -uo pipefail

PINDLE_BIN=${1:?usage: $0 PINDLE_BINARY}
E2E_TMP=$(mktemp -d "${TMPDIR:-/tmp}/pindle-e2e.XXXXXX")
E2E_PIDS=()
E2E_FAILURES=0

e2e_log() { printf '%s\n' "$*" >&2; }

e2e_teardown() {
    local status=$? pid
    trap - EXIT INT TERM
    # With set -e in a caller, one process that has already ended must not stop the rest.
    for pid in "${E2E_PIDS[@]}"; do kill "$pid" 2>/dev/null || true; done
    for pid in "${E2E_PIDS[@]}"; do wait "$pid" 2>/dev/null || true; done
    # E2E_KEEP=1 keeps the logs for a look after a failure.
    if [ "${E2E_KEEP:-0}" = 1 ]; then e2e_log "kept $E2E_TMP"; else rm -rf "$E2E_TMP"; fi
    exit "$status"
}
trap e2e_teardown EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

e2e_fail() {
    e2e_log "FAIL: $*"
    exit 1
}

# e2e_wait_for SECONDS CMD...: polls CMD every 0.05 s until it succeeds; fails after SECONDS.
e2e_wait_for() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@" >/dev/null 2>&1; do
        [ "$SECONDS" -le "$deadline" ] || return 1
        sleep 0.05
    done
}

# e2e_wait_for_line FILE REGEX [SECONDS]: waits until a line of FILE matches REGEX.
e2e_wait_for_line() { e2e_wait_for "${3:-10}" grep -Eq -- "$2" "$1"; }

# e2e_check DESCRIPTION CMD...: runs CMD, reports, and counts a failure without stopping.
e2e_check() {
    local description=$1
    shift
    if "$@"; then
        e2e_log "ok: $description"
    else
        e2e_log "FAIL: $description"
        E2E_FAILURES=$((E2E_FAILURES + 1))
    fi
}

e2e_finish() {
    [ "$E2E_FAILURES" -eq 0 ] || e2e_fail "$E2E_FAILURES check(s) failed"
    e2e_log "all checks passed"
    exit 0
}

# e2e_spawn NAME CMD...: runs CMD in the background, its output in $E2E_TMP/NAME.{out,err};
# sets E2E_PID.
e2e_spawn() {
    local name=$1
    shift
    "$@" </dev/null >"$E2E_TMP/$name.out" 2>"$E2E_TMP/$name.err" &
    E2E_PID=$!
    E2E_PIDS+=("$E2E_PID")
}

# e2e_session_bus: a private session bus, so that well-known names never meet other tests'.
e2e_session_bus() {
    e2e_spawn dbus dbus-daemon --session --nofork --nopidfile \
        --address="unix:path=$E2E_TMP/session-bus" --print-address=1
    e2e_wait_for_line "$E2E_TMP/dbus.out" '^unix:' || e2e_fail "no session bus: $(cat "$E2E_TMP/dbus.err")"
    DBUS_SESSION_BUS_ADDRESS=$(head -n1 "$E2E_TMP/dbus.out")
    export DBUS_SESSION_BUS_ADDRESS
}

# e2e_bus_name_owner NAME: the pid of the process that owns NAME on the session bus.
e2e_bus_name_owner() {
    dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.GetConnectionUnixProcessID "string:$1" 2>/dev/null | awk '{ print $NF }'
}

export HOME="$E2E_TMP/home" XDG_RUNTIME_DIR="$E2E_TMP/runtime"
export XDG_DATA_HOME="$HOME/.local/share" XDG_CONFIG_HOME="$HOME/.config" PATH="$E2E_TMP/bin:$PATH"
PINDLE_FOLDER="$HOME/conflocal/urls"
PINDLE_OPENED="$E2E_TMP/opened.log"
mkdir -p "$XDG_RUNTIME_DIR" "$XDG_DATA_HOME" "$XDG_CONFIG_HOME" "$E2E_TMP/bin" "$PINDLE_FOLDER"
chmod 700 "$XDG_RUNTIME_DIR"
: >"$PINDLE_OPENED"
printf '#!/bin/sh\nprintf "%%s\\n" "$*" >>"%s"\n' "$PINDLE_OPENED" >"$E2E_TMP/bin/xdg-open"
chmod +x "$E2E_TMP/bin/xdg-open"
unset BROWSER DEFAULT_BROWSER XDG_CURRENT_DESKTOP DESKTOP_SESSION WAYLAND_DISPLAY XDG_SESSION_TYPE \
    QT_QPA_PLATFORM
# Qt and fontconfig keep caches for the life of the process; only real errors should fail.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0}

# pindle_webloc NAME URL: writes NAME.webloc into the shortcut folder.
pindle_webloc() {
    printf '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict><key>URL</key><string>%s</string></dict></plist>\n' \
        "$2" >"$PINDLE_FOLDER/$1.webloc"
}

pindle_opened() { grep -qxF -- "$1" "$PINDLE_OPENED"; }

# pindle_stop SIGNAL PID: sends SIGNAL and checks that the process ends with status 0.
pindle_stop() {
    local status
    kill -"$1" "$2"
    wait "$2"
    status=$?
    e2e_check "SIG$1 ends pindle $2 with status 0 (was $status)" test "$status" -eq 0
}

# pindle_wait_ready: waits until Alt+U shows the launcher (the keys are bound some time after
# start-up), then closes it with Escape and waits for the editor to have the focus back.
pindle_wait_ready() {
    local attempt
    for attempt in $(seq 1 40); do
        pindle_key alt+u
        if e2e_wait_for 1 pindle_is_active; then
            pindle_key Escape
            e2e_wait_for 5 pindle_is_back_to_editor || e2e_fail "the launcher did not close to the editor"
            return 0
        fi
        kill -0 "$PINDLE_PID" 2>/dev/null || e2e_fail "pindle exited: $(cat "$E2E_TMP/pindle.err")"
    done
    e2e_fail "Alt+U never showed the launcher"
}

# The rest is X11: Xvfb on a display number it picks itself, so that tests run in parallel.

# x11_start: Xvfb, openbox and a session bus; returns once all three answer.
x11_start() {
    e2e_spawn xvfb Xvfb -displayfd 1 -screen 0 1280x800x24 -nolisten tcp -noreset
    E2E_XVFB_PID=$E2E_PID
    e2e_wait_for_line "$E2E_TMP/xvfb.out" '^[0-9]' 20 || e2e_fail "no Xvfb: $(cat "$E2E_TMP/xvfb.err")"
    export DISPLAY=":$(head -n1 "$E2E_TMP/xvfb.out")" QT_QPA_PLATFORM=xcb
    e2e_spawn openbox openbox --sm-disable
    # Ready once it has set up EWMH: the root names its check window.
    e2e_wait_for 20 sh -c "xprop -root _NET_SUPPORTING_WM_CHECK | grep -q 'window id'" ||
        e2e_fail "no openbox: $(cat "$E2E_TMP/openbox.err")"
    e2e_session_bus
}

pindle_key() { xdotool key "$@"; }

# pindle_editor: an xterm whose typed lines land in $E2E_TMP/editor.typed; its id in $editor.
pindle_editor() {
    e2e_spawn editor xterm -title editor -e sh -c "exec cat >'$E2E_TMP/editor.typed'"
    editor=$(timeout 15 xdotool search --sync --onlyvisible --name '^editor$' | head -n1)
    e2e_wait_for 10 pindle_is_back_to_editor || e2e_fail "the editor did not become active"
}

# pindle_start: the editor, then pindle (PINDLE_PID), returning once the hot keys answer.
pindle_start() {
    pindle_editor
    e2e_spawn pindle "$PINDLE_BIN"
    PINDLE_PID=$E2E_PID
    pindle_wait_ready
}

# pindle_windows [PID]: the visible windows of pindle (of one process when given).
pindle_windows() {
    if [ -n "${1:-}" ]; then
        xdotool search --onlyvisible --pid "$1" 2>/dev/null
    else
        xdotool search --onlyvisible --class '^pindle$' 2>/dev/null
    fi
}

pindle_has_panel() { [ -n "$(pindle_windows "$@")" ]; }
pindle_has_no_panel() { [ -z "$(pindle_windows "$@")" ]; }

pindle_is_active() {
    local active
    active=$(xdotool getactivewindow 2>/dev/null) && xprop -id "$active" WM_CLASS | grep -q '"pindle"'
}

pindle_is_back_to_editor() { pindle_has_no_panel && [ "$(xdotool getactivewindow 2>/dev/null)" = "$editor" ]; }

# pindle_shows KEY: presses KEY and waits for a pindle window to be active.
pindle_shows() {
    xdotool key "$1"
    e2e_wait_for 5 pindle_is_active
}

# pindle_clipboard TEXT: offers TEXT as the clipboard; xclip serves it until replaced. Returns
# once it does: xclip may still be taking the clipboard when it returns.
pindle_clipboard() {
    printf '%s' "$1" | xclip -selection clipboard -i >/dev/null 2>&1
    e2e_wait_for 5 pindle_clipboard_is "$(printf '%s' "$1")" || e2e_fail "xclip did not take the clipboard"
}

pindle_clipboard_is() { [ "$(xclip -selection clipboard -o 2>/dev/null)" = "$1" ]; }

# pindle_watch_windows: logs each list of the windows openbox manages from now on to
# $E2E_TMP/windows.out, until pindle_stop_watching_windows. A panel shown even for a moment is in it.
pindle_watch_windows() {
    e2e_spawn windows stdbuf -oL xprop -root -spy _NET_CLIENT_LIST
    PINDLE_WATCH_PID=$E2E_PID
    e2e_wait_for_line "$E2E_TMP/windows.out" '^_NET_CLIENT_LIST' 5 || e2e_fail "xprop did not start"
}

pindle_stop_watching_windows() {
    kill "$PINDLE_WATCH_PID"
    wait "$PINDLE_WATCH_PID" 2>/dev/null
}
