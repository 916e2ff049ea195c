#!/usr/bin/env bash
# Alt+U pressed twelve times in a row over a terminal toggles the launcher twelve times: shown
# and focused, then hidden with the terminal focused again, with no press lost to the previous
# one's key release. Losing the X server then ends Pindle with status 1, its sanitizers quiet.
source "$(dirname "$0")/pindle_lib.sh"

pindle_setup
pindle_webloc Docs https://docs.example.com/
pindle_start

for press in $(seq 1 12); do
    xdotool key alt+u
    if [ $((press % 2)) = 1 ]; then
        e2e_check "press $press shows the launcher with the focus" e2e_wait_for 5 pindle_is_active
    else
        e2e_check "press $press hides the launcher" e2e_wait_for 5 pindle_has_no_panel
        e2e_check "and gives the terminal its focus back" e2e_wait_active "$editor" 5
    fi
done

kill -KILL "$E2E_XVFB_PID"
wait "$PINDLE_PID"
status=$?
e2e_check "losing the X connection ends pindle with status 1 (was $status)" test "$status" -eq 1
e2e_check "cleanly" bash -c '! grep -Eq "Sanitizer|runtime error|Segmentation" "$0"' \
    "$E2E_TMP/pindle.err"
e2e_finish
