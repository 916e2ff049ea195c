# Shared by the pindle_*.sh end-to-end tests, called as SCRIPT PINDLE_BINARY [SCREENSHOT_DIR]:
# the real pindle under the harness, a folder of shortcuts in the temporary HOME, URL opening
# caught by a logging xdg-open first on PATH, and screenshots of each panel state for review.

PINDLE_BIN=${1:?usage: $0 PINDLE_BINARY [SCREENSHOT_DIR]}
PINDLE_SCREENSHOTS=${2:-}
source "$(dirname "${BASH_SOURCE[0]}")/harness.sh"

# pindle_setup: starts the X server and prepares the environment and the empty folder.
pindle_setup() {
    e2e_start
    e2e_session_bus
    pindle_prepare
}

# pindle_prepare: the environment and the empty folder in the temporary HOME, whatever the display.
pindle_prepare() {
    export XDG_DATA_HOME="$HOME/.local/share" XDG_CONFIG_HOME="$HOME/.config"
    mkdir -p "$XDG_DATA_HOME" "$XDG_CONFIG_HOME" "$E2E_TMP/bin"
    unset BROWSER DEFAULT_BROWSER XDG_CURRENT_DESKTOP DESKTOP_SESSION
    PINDLE_OPENED="$E2E_TMP/opened.log"
    : >"$PINDLE_OPENED"
    cat >"$E2E_TMP/bin/xdg-open" <<EOS
#!/bin/sh
printf '%s\n' "\$*" >>"$PINDLE_OPENED"
EOS
    chmod +x "$E2E_TMP/bin/xdg-open"
    export PATH="$E2E_TMP/bin:$PATH"
    PINDLE_FOLDER="$HOME/conflocal/urls"
    mkdir -p "$PINDLE_FOLDER"
    # Qt and fontconfig keep caches for the life of the process; only real errors should fail.
    export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0}
}

# pindle_webloc NAME URL: writes NAME.webloc into the shortcut folder.
pindle_webloc() {
    printf '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict><key>URL</key><string>%s</string></dict></plist>\n' \
        "$2" >"$PINDLE_FOLDER/$1.webloc"
}

# pindle_start: an xterm "editor" (its typed lines land in $E2E_TMP/editor.typed; its id in
# $editor), then pindle (PINDLE_PID), returning once the hot keys answer.
pindle_start() {
    e2e_xterm editor -e sh -c "exec cat >'$E2E_TMP/editor.typed'"
    editor=$E2E_WINDOW
    e2e_wait_active "$editor" || e2e_fail "the editor did not become active"
    e2e_spawn pindle "$PINDLE_BIN"
    PINDLE_PID=$E2E_PID
    pindle_wait_ready "$editor"
}

# pindle_stop SIGNAL PID: sends SIGNAL and checks that the process ends with status 0.
pindle_stop() {
    local status
    kill -"$1" "$2"
    wait "$2"
    status=$?
    e2e_check "SIG$1 ends pindle $2 with status 0 (was $status)" test "$status" -eq 0
}

# pindle_visible_windows [PID]: the visible windows of pindle (of one process when given).
pindle_visible_windows() {
    if [ -n "${1:-}" ]; then
        xdotool search --onlyvisible --pid "$1" 2>/dev/null
    else
        xdotool search --onlyvisible --class '^pindle$' 2>/dev/null
    fi
}

pindle_has_panel() { [ -n "$(pindle_visible_windows "$@")" ]; }
pindle_has_no_panel() { [ -z "$(pindle_visible_windows "$@")" ]; }

# True when the active window belongs to pindle.
pindle_is_active() {
    local active
    active=$(e2e_active_window) && [ -n "$active" ] &&
        xprop -id "$active" WM_CLASS 2>/dev/null | grep -q '"pindle"'
}

# pindle_wait_ready EDITOR: waits until Alt+U opens the launcher (the keys are grabbed once the
# event loop has started), then closes it again with Escape and waits for EDITOR to be active.
pindle_wait_ready() {
    local attempt
    for attempt in $(seq 1 30); do
        xdotool key alt+u
        if e2e_wait_for 1 pindle_is_active; then
            xdotool key Escape
            e2e_wait_for 5 pindle_has_no_panel || e2e_fail "the launcher did not close on Escape"
            e2e_wait_active "$1" 5 || e2e_fail "the editor did not get the focus back"
            return 0
        fi
        kill -0 "$PINDLE_PID" 2>/dev/null || e2e_fail "pindle exited: $(cat "$E2E_TMP/pindle.err")"
    done
    e2e_fail "Alt+U never opened the launcher"
}

# pindle_shows KEY: presses the hot key and waits for a pindle window to be active.
pindle_shows() {
    xdotool key "$1"
    e2e_wait_for 5 pindle_is_active
}

# pindle_screenshot NAME: the whole screen as $PINDLE_SCREENSHOTS/NAME.png.
pindle_screenshot() {
    [ -n "${PINDLE_SCREENSHOTS:-}" ] || return 0
    mkdir -p "$PINDLE_SCREENSHOTS"
    # Lets the last key stroke's repaint reach the server first.
    sleep 0.3
    import -window root "$PINDLE_SCREENSHOTS/$1.png" 2>/dev/null ||
        e2e_log "note: no screenshot $1"
}

# pindle_clipboard TEXT: offers TEXT as the clipboard; xclip serves it until replaced. Returns
# once it does: xclip may still be taking the clipboard when it returns.
pindle_clipboard() {
    printf '%s' "$1" | xclip -selection clipboard -i >/dev/null 2>&1
    e2e_wait_for 5 pindle_clipboard_is "$(printf '%s' "$1")" || e2e_fail "xclip did not take the clipboard"
}

pindle_clipboard_is() { [ "$(xclip -selection clipboard -o 2>/dev/null)" = "$1" ]; }

# pindle_clipboard_once TEXT: offers TEXT as the clipboard for a single read; its owner ends once
# someone has read it, which pindle_clipboard_was_read tells.
pindle_clipboard_once() {
    printf '%s' "$1" >"$E2E_TMP/clipboard-once"
    e2e_spawn --stdin "$E2E_TMP/clipboard-once" clipboard-once \
        xclip -selection clipboard -i -loops 1 -quiet
    PINDLE_CLIPBOARD_PID=$E2E_PID
    e2e_wait_for 5 grep -qs '^Waiting for' "$E2E_TMP/clipboard-once.out" "$E2E_TMP/clipboard-once.err" ||
        e2e_fail "xclip did not take the clipboard"
}

pindle_clipboard_was_read() { ! kill -0 "$PINDLE_CLIPBOARD_PID" 2>/dev/null; }

# pindle_watch_windows: logs every list of the windows the window manager manages from now on;
# pindle_windows_seen prints each window in them once, in hex. A panel shown even for a moment
# is in them. pindle_stop_watching_windows ends the log.
pindle_watch_windows() {
    e2e_spawn windows stdbuf -oL xprop -root -spy _NET_CLIENT_LIST
    PINDLE_WATCH_PID=$E2E_PID
    e2e_wait_for_line "$E2E_TMP/windows.out" '^_NET_CLIENT_LIST' 5 || e2e_fail "xprop did not start"
}

pindle_windows_seen() { grep -o '0x[0-9a-f]*' "$E2E_TMP/windows.out" | sort -u; }

pindle_stop_watching_windows() {
    kill "$PINDLE_WATCH_PID"
    wait "$PINDLE_WATCH_PID" 2>/dev/null
}

# True while WINDOW is minimised.
pindle_is_minimised() { xprop -id "$1" WM_STATE 2>/dev/null | grep -q Iconic; }

pindle_opened() { grep -qxF -- "$1" "$PINDLE_OPENED"; }
