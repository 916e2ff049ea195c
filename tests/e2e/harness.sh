# End-to-end harness, sourced by the bash test scripts: a private Xvfb (a display number it
# picks, so tests run in parallel) with openbox unless e2e_start --no-wm, an empty HOME and
# XDG_RUNTIME_DIR under the private E2E_TMP, and teardown of everything spawned whatever happens.
# e2e_session_bus gives the test a private session D-Bus of its own.
# e2e_spawn NAME CMD... puts CMD's output in $E2E_TMP/NAME.{out,err} and its pid in E2E_PID.
# e2e_check carries on after a failure (hence no set -e); e2e_finish exits 0 when all passed.

set -uo pipefail

E2E_TMP=$(mktemp -d "${TMPDIR:-/tmp}/pindle-e2e.XXXXXX")
E2E_PIDS=()
E2E_FAILURES=0
E2E_XVFB_PID=
E2E_WM_PID=
E2E_PID=

e2e_log() { printf '%s\n' "$*" >&2; }

e2e_teardown() {
    local status=$? pid
    trap - EXIT INT TERM
    # Processes that have already ended make kill and wait fail: that must not stop the
    # teardown of the rest in a caller running with set -e.
    for pid in "${E2E_PIDS[@]}" $E2E_WM_PID $E2E_XVFB_PID; do
        kill "$pid" 2>/dev/null || true
    done
    for pid in "${E2E_PIDS[@]}" $E2E_WM_PID $E2E_XVFB_PID; do
        wait "$pid" 2>/dev/null || true
    done
    # E2E_KEEP=1 keeps the logs for a look after a failure.
    if [ "${E2E_KEEP:-0}" = 1 ]; then
        e2e_log "kept $E2E_TMP"
    else
        rm -rf "$E2E_TMP"
    fi
    exit "$status"
}
trap e2e_teardown EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# e2e_fail MESSAGE: stops the test with a failure.
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

# e2e_start [--no-wm]: starts Xvfb and, unless --no-wm, openbox; returns once both answer.
e2e_start() {
    local with_wm=1
    [ "${1:-}" = --no-wm ] && with_wm=0
    command -v Xvfb >/dev/null || e2e_fail "Xvfb is not installed"

    # -displayfd: Xvfb picks a free display number itself and writes it once it accepts clients.
    Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset \
        3>"$E2E_TMP/display" >"$E2E_TMP/xvfb.log" 2>&1 &
    E2E_XVFB_PID=$!
    e2e_wait_for 20 grep -q '^[0-9]' "$E2E_TMP/display" ||
        e2e_fail "Xvfb did not start: $(cat "$E2E_TMP/xvfb.log")"
    export DISPLAY=":$(head -n1 "$E2E_TMP/display")"
    export HOME="$E2E_TMP/home" XDG_RUNTIME_DIR="$E2E_TMP/runtime"
    mkdir -p "$HOME" "$XDG_RUNTIME_DIR"
    chmod 700 "$XDG_RUNTIME_DIR"
    unset WAYLAND_DISPLAY XDG_SESSION_TYPE
    export QT_QPA_PLATFORM=xcb

    if [ "$with_wm" = 1 ]; then
        openbox --sm-disable >"$E2E_TMP/openbox.log" 2>&1 &
        E2E_WM_PID=$!
        # Ready once it has set up EWMH: the root names its check window.
        e2e_wait_for 20 e2e_has_ewmh_wm ||
            e2e_fail "openbox did not start: $(cat "$E2E_TMP/openbox.log")"
    fi
}

# e2e_session_bus: starts a private session bus (torn down with the rest) and exports its
# address, so that programs owning well-known names never meet those of other tests.
e2e_session_bus() {
    command -v dbus-daemon >/dev/null || e2e_fail "dbus-daemon is not installed"
    dbus-daemon --session --nofork --nopidfile --address="unix:path=$E2E_TMP/session-bus" \
        --print-address=3 3>"$E2E_TMP/bus-address" >"$E2E_TMP/dbus.log" 2>&1 &
    E2E_PIDS+=("$!")
    e2e_wait_for 10 grep -q '^unix:' "$E2E_TMP/bus-address" ||
        e2e_fail "dbus-daemon did not start: $(cat "$E2E_TMP/dbus.log")"
    DBUS_SESSION_BUS_ADDRESS=$(head -n1 "$E2E_TMP/bus-address")
    export DBUS_SESSION_BUS_ADDRESS
}

# e2e_bus_name_owner NAME: the pid of the process that owns NAME on the session bus.
e2e_bus_name_owner() {
    dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.GetConnectionUnixProcessID "string:$1" 2>/dev/null |
        awk '{ print $NF }'
}

e2e_has_ewmh_wm() { xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id'; }

# e2e_spawn [--stdin FILE] NAME CMD...: runs CMD in the background (stdin from FILE, else
# /dev/null); sets E2E_PID.
e2e_spawn() {
    local input=/dev/null
    if [ "$1" = --stdin ]; then
        input=$2
        shift 2
    fi
    local name=$1
    shift
    "$@" <"$input" >"$E2E_TMP/$name.out" 2>"$E2E_TMP/$name.err" &
    E2E_PID=$!
    E2E_PIDS+=("$E2E_PID")
}

# e2e_xterm TITLE: an xterm (further arguments are passed on); sets E2E_WINDOW to its id.
e2e_xterm() {
    e2e_spawn "$1" xterm -title "$@"
    E2E_WINDOW=$(e2e_window_named "$1" 15) || e2e_fail "xterm $1 did not appear"
}

# e2e_window_named TITLE [SECONDS]: prints the id of the visible window with exactly this title.
e2e_window_named() {
    local title=$1 id deadline=$((SECONDS + ${2:-10}))
    while :; do
        id=$(xdotool search --onlyvisible --name "^$title\$" 2>/dev/null | head -n1)
        [ -n "$id" ] && { echo "$id"; return 0; }
        [ "$SECONDS" -le "$deadline" ] || return 1
        sleep 0.05
    done
}

# e2e_active_window: the id in _NET_ACTIVE_WINDOW (decimal), or nothing.
e2e_active_window() { xdotool getactivewindow 2>/dev/null; }

e2e_is_active() { [ "$(e2e_active_window)" = "$1" ]; }

# e2e_wait_active WINDOW [SECONDS]: waits until WINDOW is the active window.
e2e_wait_active() { e2e_wait_for "${2:-10}" e2e_is_active "$1"; }

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

# e2e_finish: exits 0 when every check passed.
e2e_finish() {
    [ "$E2E_FAILURES" -eq 0 ] || e2e_fail "$E2E_FAILURES check(s) failed"
    e2e_log "all checks passed"
    exit 0
}
