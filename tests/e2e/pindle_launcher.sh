#!/usr/bin/env bash
# The launcher over a terminal: typing, Return opening the target, Ctrl-C copying the address and
# handing the focus back (but not with Caps Lock on), Ctrl+Delete moving a file to the Trash.
source "$(dirname "$0")/harness.sh"

x11_start
pindle_webloc Docs https://docs.example.com/
pindle_webloc News https://news.example.com/
pindle_webloc Netflix https://www.netflix.com/
pindle_webloc "Old Stuff" https://old.example.com/
pindle_start

pindle_is_minimised() { xprop -id "$editor" WM_STATE | grep -q Iconic; }

# Minimised, the editor comes back only if Pindle asks for it, which opening must not do.
pindle_shows alt+u || e2e_fail "Alt+U did not show the launcher"
xdotool type --delay 40 docs
xdotool windowminimize "$editor"
e2e_wait_for 5 pindle_is_minimised || e2e_fail "the editor was not minimised"
xdotool key Return
e2e_check "Return opens the selected shortcut's address" e2e_wait_for 5 pindle_opened https://docs.example.com/
e2e_check "Return hides the launcher" e2e_wait_for 5 pindle_has_no_panel
# A request for the focus made on hiding reaches the window manager before the next launcher.
pindle_shows alt+u || e2e_fail "Alt+U did not show the launcher after the open"
e2e_check "Return leaves the focus to whatever opens the file" pindle_is_minimised
xdotool key Escape
e2e_wait_for 5 pindle_has_no_panel || e2e_fail "the launcher did not close"

# The editor is minimised while the panel is up, so only Pindle's own focus restore can bring it
# back (openbox's fallback skips minimised windows).
xdotool windowactivate "$editor"
e2e_wait_for 5 pindle_is_back_to_editor || e2e_fail "the editor did not come back after the open"
pindle_shows alt+u || e2e_fail "Alt+U did not show the launcher a second time"
xdotool type --delay 40 news
xdotool windowminimize "$editor"
xdotool key ctrl+c
e2e_check "Ctrl-C puts the address on the clipboard" e2e_wait_for 5 pindle_clipboard_is https://news.example.com/
e2e_check "Ctrl-C hides the launcher and gives the editor its focus back" e2e_wait_for 5 pindle_is_back_to_editor
# A U without Alt is the editor's.
xdotool type --delay 20 u-after-copy
xdotool key Return
e2e_check "typing goes to the editor again" e2e_wait_for_line "$E2E_TMP/editor.typed" 'u-after-copy$' 5

# With Caps Lock on, Ctrl-C is not the copy chord: the clipboard keeps what it had, as seen once
# the Escapes typed after it have closed the launcher; and the launcher stays, as the keys typed
# after it show by copying another address.
pindle_shows alt+u || e2e_fail "Alt+U did not show the launcher for the Caps Lock case"
xdotool type --delay 40 docs
xdotool key Caps_Lock ctrl+c Caps_Lock Escape Escape
e2e_wait_for 5 pindle_is_back_to_editor || e2e_fail "Escape twice did not close the launcher"
e2e_check "Ctrl-C with Caps Lock on leaves the clipboard alone" pindle_clipboard_is https://news.example.com/
pindle_shows alt+u || e2e_fail "Alt+U did not show the launcher for the Caps Lock case"
xdotool type --delay 40 docs
xdotool key Caps_Lock ctrl+c Caps_Lock BackSpace BackSpace BackSpace BackSpace
xdotool type --delay 40 netflix
xdotool key ctrl+c
e2e_check "Ctrl-C with Caps Lock on leaves the launcher open" \
    e2e_wait_for 5 pindle_clipboard_is https://www.netflix.com/
e2e_wait_for 5 pindle_is_back_to_editor || e2e_fail "Ctrl-C did not close the launcher"

# Ctrl+Delete asks; Return on the sheet picks "Delete"; the file goes to the Trash.
pindle_shows alt+u || e2e_fail "Alt+U did not show the launcher a third time"
xdotool type --delay 40 old
xdotool key ctrl+Delete
pindle_asks() { [ "$(pindle_windows | wc -l)" -ge 2 ]; }
e2e_wait_for 5 pindle_asks || e2e_fail "Ctrl+Delete showed no confirmation sheet"
xdotool key Return
e2e_check "the confirmed file is in the Trash" e2e_wait_for 5 test -f "$XDG_DATA_HOME/Trash/files/Old Stuff.webloc"
e2e_check "the confirmed file left the folder" test ! -e "$PINDLE_FOLDER/Old Stuff.webloc"
# Keys typed now reach the launcher only if it stayed open after the deletion.
xdotool key BackSpace BackSpace BackSpace
xdotool type --delay 40 docs
xdotool key ctrl+c
e2e_check "the launcher stays open after the deletion" \
    e2e_wait_for 5 pindle_clipboard_is https://docs.example.com/
e2e_check "and closes on the copy" e2e_wait_for 5 pindle_has_no_panel

pindle_stop TERM "$PINDLE_PID"
e2e_finish
