#!/usr/bin/env bash
# The Wayland session the Pindle tests stand on, with plain test windows: typed keys reach the
# focused window, the focus is seen, and on KWin a new window opens on the output under the
# pointer. Called as SCRIPT kwin|mutter, with WL_TOOLS set (see wayland_harness.sh).
source "$(dirname "$0")/harness.sh"
source "$(dirname "$0")/wayland_harness.sh"

wl_session
case $1 in
kwin) wl_start_kwin ;;
mutter) wl_start_mutter ;;
*) e2e_fail "unknown compositor $1" ;;
esac

wl_window first
wl_keys type "Hello: https://example.com/a_b" key Return
e2e_check "typed text reaches the focused window" e2e_wait_for 5 wl_typed first "Hello: https://example.com/a_b"

if [ "$1" = kwin ]; then
    e2e_check "KWin names the focused window" wl_kwin_is_active "$WL_WINDOW_PID"
    first=$WL_WINDOW_PID
    wl_keys pointer 1900 400
    wl_window second
    geometry=$(wl_kwin_windows_of "$WL_WINDOW_PID")
    e2e_check "a window opens on the output under the pointer ($geometry)" \
        test "$(wl_output_at "${geometry%% *}")" = 1
    e2e_check "the first window saw its focus go" e2e_wait_for 5 wl_has_lost_focus first
    kill "$WL_WINDOW_PID"
    e2e_check "closing the second window gives the first the focus back" e2e_wait_for 5 wl_has_focus first
    e2e_check "and KWin says so" e2e_wait_for 5 wl_kwin_is_active "$first"
else
    wl_window second
    e2e_check "the first window saw its focus go" e2e_wait_for 5 wl_has_lost_focus first
    wl_keys type "to the second" key Return
    e2e_check "typed text follows the focus" e2e_wait_for 5 wl_typed second "to the second"
fi
e2e_finish
