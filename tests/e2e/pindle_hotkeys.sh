#!/usr/bin/env bash
# The hot keys on X11. Another program holding one of Alt+I's grabs makes Pindle warn at start-up
# and keep none of Alt+I. Alt+U toggles the launcher press after press over a terminal, shown and
# focused, then hidden with the focus back, whatever the lock keys; held down it toggles once;
# moved to another key, it follows. Losing the X server ends Pindle with status 1, quietly.
source "$(dirname "$0")/harness.sh"

readonly lock=2 alt=8
keycode_of() { xmodmap -pke | awk -v key="$1" '$4 == key { print $2; exit }'; }
locks_are() { xset q | grep -q "Caps Lock: *$1 .*Num Lock: *$2 "; }

x11_start
pindle_editor
e2e_spawn holder "$E2E_TOOLS/x11_client" grab "$(keycode_of i)" $((alt | lock))
e2e_wait_for_line "$E2E_TMP/holder.out" '^grabbed$' || e2e_fail "the other program did not grab Alt+Caps+I"
e2e_spawn pindle "$PINDLE_BIN"
PINDLE_PID=$E2E_PID
e2e_check "Alt+I held elsewhere: pindle warns that another application owns it" \
    e2e_wait_for_line "$E2E_TMP/pindle.err" 'Another application already owns Alt\+I\.' 15
e2e_wait_for 5 pindle_is_active || e2e_fail "the warning did not take the focus"
xdotool key Return
pindle_wait_ready
e2e_spawn third "$E2E_TOOLS/x11_client" grab "$(keycode_of i)" "$alt"
e2e_check "what pindle had grabbed of Alt+I is released" e2e_wait_for_line "$E2E_TMP/third.out" '^grabbed$'

# Each lock state, with a check that xdotool did set it, then presses in a row.
for step in Num_Lock:off:on Caps_Lock:on:on Num_Lock:on:off Caps_Lock:off:off; do
    IFS=: read -r key caps num <<<"$step"
    xdotool key "$key"
    e2e_wait_for 5 locks_are "$caps" "$num" || e2e_fail "Caps Lock did not go $caps, Num Lock $num"
    for press in 1 2 3; do
        xdotool key alt+u
        e2e_check "Caps Lock $caps, Num Lock $num: Alt+U shows the launcher, focused" \
            e2e_wait_for 5 pindle_is_active
        xdotool key alt+u
        e2e_check "Caps Lock $caps, Num Lock $num: Alt+U hides it, focus back to the terminal" \
            e2e_wait_for 5 pindle_is_back_to_editor
    done
done

# Held down past the auto-repeat delay, Alt+U shows the launcher once: the window manager's
# list of windows changes once for it, and once more for the Escape after it.
pindle_watch_windows
xdotool keydown alt+u
sleep 1.5
xdotool keyup alt+u
e2e_check "Alt+U held down shows the launcher" e2e_wait_for 5 pindle_is_active
xdotool key Escape
e2e_wait_for 5 pindle_is_back_to_editor || e2e_fail "Escape did not close the launcher"
list_changes() { [ "$(grep -c '^_NET_CLIENT_LIST' "$E2E_TMP/windows.out")" -ge 3 ]; }
e2e_wait_for 5 list_changes || e2e_fail "the window list did not change for the launcher"
pindle_stop_watching_windows
e2e_check "and only once, however long it is held" test "$(grep -c '^_NET_CLIENT_LIST' "$E2E_TMP/windows.out")" -eq 3

# U moved to another key, as a layout switch does: pindle grabs it there once told of the change.
xmodmap -e "keycode $(keycode_of u) =" -e "keycode 200 = u U"
shows_launcher() { xdotool key alt+u && e2e_wait_for 1 pindle_is_active; }
e2e_check "Alt+U follows U to its new key" e2e_wait_for 10 shows_launcher

kill -KILL "$E2E_XVFB_PID"
wait "$PINDLE_PID"
status=$?
e2e_check "losing the X connection ends pindle with status 1 (was $status)" test "$status" -eq 1
e2e_check "cleanly" bash -c '! grep -Eq "Sanitizer|runtime error|Segmentation" "$0"' "$E2E_TMP/pindle.err"
e2e_finish
