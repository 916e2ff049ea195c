#!/usr/bin/env bash
# A clipboard owner that never answers, or dies halfway through handing over the text: Alt+I gives
# up after a short bound and does nothing, and Pindle stays responsive all the while (Alt+U right
# after shows the launcher at once). Called as SCRIPT PINDLE SCREENSHOT_DIR CLIPBOARD_OWNER.
source "$(dirname "$0")/pindle_lib.sh"
OWNER_BIN=${3:?usage: $0 PINDLE SCREENSHOT_DIR CLIPBOARD_OWNER}

pindle_setup
pindle_webloc Docs https://docs.example.com/
pindle_start

for mode in silent dying; do
    e2e_spawn "owner-$mode" "$OWNER_BIN" "$mode"
    owner=$E2E_PID
    e2e_wait_for_line "$E2E_TMP/owner-$mode.out" '^owning$' ||
        e2e_fail "the $mode owner did not take the clipboard"
    xdotool key alt+i
    e2e_wait_for_line "$E2E_TMP/owner-$mode.out" '^asked$' ||
        e2e_fail "Alt+I did not ask the $mode owner"
    xdotool key alt+u
    # Qt's own read waits 5 to 10 s for such an owner, with the interface frozen.
    e2e_check "$mode owner: Alt+U right after Alt+I shows the launcher at once" \
        e2e_wait_for 2 pindle_is_active
    xdotool key Escape
    e2e_check "$mode owner: Escape closes it" e2e_wait_for 5 pindle_has_no_panel
    e2e_wait_active "$editor" 5 || e2e_fail "the editor did not get the focus back"
    kill "$owner" 2>/dev/null
    wait "$owner" 2>/dev/null

    # The read gives up within its bound and leaves nothing behind: a press of Alt+I soon reads
    # a good owner. (Presses while the read still waits add nothing to it.)
    pindle_clipboard "https://example.com/after-$mode"
    creator_opens() {
        local attempt
        for attempt in 1 2 3 4; do
            pindle_shows alt+i && return 0
        done
        return 1
    }
    e2e_check "$mode owner: afterwards Alt+I opens the creator for a good owner" creator_opens
    xdotool key Escape
    e2e_check "$mode owner: Escape closes the creator" e2e_wait_for 5 pindle_has_no_panel
    e2e_wait_active "$editor" 5 || e2e_fail "the editor did not get the focus back"
done

pindle_stop TERM "$PINDLE_PID"
e2e_finish
