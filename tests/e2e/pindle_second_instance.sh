#!/usr/bin/env bash
# A second pindle finds both keys taken: it shows the start-up warning and keeps running, while
# the first keeps answering the keys. SIGTERM ends the first one cleanly,
# and SIGHUP (its session going away) the second.
source "$(dirname "$0")/pindle_lib.sh"

pindle_setup
pindle_webloc Docs https://docs.example.com/
pindle_start
first=$PINDLE_PID

e2e_spawn second "$PINDLE_BIN"
second=$E2E_PID
e2e_check "the second instance shows a warning window" e2e_wait_for 15 pindle_has_panel "$second"
warning=$(pindle_visible_windows "$second" | head -n1)
e2e_check "the warning is titled Pindle" test "$(xdotool getwindowname "$warning" 2>/dev/null)" = Pindle
e2e_check "the warning has the focus" e2e_wait_active "$warning" 5
pindle_screenshot second-instance-warning

xdotool key Return
e2e_check "Return dismisses the warning" e2e_wait_for 5 pindle_has_no_panel "$second"
sleep 0.5
e2e_check "the second instance keeps running without its keys" kill -0 "$second"

xdotool windowactivate "$editor"
e2e_wait_active "$editor" || e2e_fail "the editor did not come back"
xdotool key alt+u
e2e_check "Alt+U still opens the first instance's launcher" e2e_wait_for 5 pindle_has_panel "$first"
e2e_check "and not one of the second" pindle_has_no_panel "$second"
xdotool key Escape

pindle_stop TERM "$first"
pindle_stop HUP "$second"
e2e_finish
