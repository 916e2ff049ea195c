#!/usr/bin/env bash
# The creator in the real program: Alt+I with a web address on the clipboard, a name, Return
# writes the .webloc and hands the focus back; with anything else on the clipboard, nothing.
source "$(dirname "$0")/pindle_lib.sh"

pindle_setup
pindle_webloc "Example Article" https://example.com/article
pindle_webloc "Example Mirror" https://example.com/article
pindle_webloc Elsewhere https://elsewhere.example/
pindle_start

# Not a web address: the key does nothing at all. Each text is served for one read, so that its
# owner ending shows Alt+I has read it; the launcher shown after that comes later than the
# creator would have, and the window manager lists its windows in that order.
for text in "ftp://files.example.com/" "example.com/page" "   "; do
    pindle_clipboard_once "$text"
    pindle_watch_windows
    xdotool key alt+i
    e2e_wait_for 5 pindle_clipboard_was_read || e2e_fail "Alt+I did not read '$text'"
    pindle_shows alt+u || e2e_fail "Alt+U did not show the launcher after Alt+I with '$text'"
    launcher=$(printf '0x%x' "$(pindle_visible_windows | head -n1)")
    e2e_wait_for 5 grep -q "$launcher" "$E2E_TMP/windows.out" || e2e_fail "the launcher was not listed"
    pindle_stop_watching_windows
    e2e_check "Alt+I with '$text' on the clipboard shows nothing" \
        test -z "$(pindle_windows_seen | grep -vx -e "$launcher" -e "$(printf '0x%x' "$editor")")"
    xdotool key Escape
    e2e_wait_for 5 pindle_has_no_panel || e2e_fail "the launcher did not close"
    e2e_wait_active "$editor" 5 || e2e_fail "the editor did not get the focus back"
done

# A web address, with blanks around it as copied from a terminal.
pindle_clipboard "  https://example.com/article
"
pindle_shows alt+i || e2e_fail "Alt+I did not show the creator"
pindle_screenshot creator-url-matches
# Only Pindle's own focus restore can bring a minimised editor back.
xdotool windowminimize "$editor"
xdotool type --delay 40 "Ex"
pindle_screenshot creator-name-matches
xdotool key BackSpace BackSpace
xdotool type --delay 40 "Saved Article"
xdotool key Return
saved="$PINDLE_FOLDER/Saved Article.webloc"
e2e_check "Return writes the new shortcut" e2e_wait_for 5 test -f "$saved"
e2e_check "the shortcut holds the address without the blanks" grep -q '<string>https://example.com/article</string>' "$saved"
e2e_check "saving hides the creator" e2e_wait_for 5 pindle_has_no_panel
e2e_check "saving gives the editor its focus back" e2e_wait_active "$editor" 5

# Alt+I twice: the second press closes it again.
pindle_shows alt+i || e2e_fail "Alt+I did not show the creator a second time"
xdotool key alt+i
e2e_check "a second Alt+I hides the creator" e2e_wait_for 5 pindle_has_no_panel
e2e_check "and gives the editor its focus back" e2e_wait_active "$editor" 5

pindle_stop INT "$PINDLE_PID"
e2e_finish
