#!/usr/bin/env bash
# The creator and the X11 clipboard: Pindle's reader gets each text whole; Alt+I with a web
# address copied lists the shortcuts that hold it, and a name and Return save a new one and hand
# the focus back; with anything else copied, or an owner that hangs or dies, Alt+I does nothing
# and Pindle stays responsive.
source "$(dirname "$0")/harness.sh"

x11_start
pindle_webloc "Example Article" https://example.com/article
pindle_webloc "Example Mirror" https://example.com/article
pindle_webloc Elsewhere https://elsewhere.example/

# The reader on its own: no text without an owner, and each text exact: UTF-8, 3 MB that xclip
# sends in parts, Latin-1 from an owner that offers nothing else.
pastes() { "$E2E_TOOLS/x11_paste" >"$E2E_TMP/pasted" && cmp -s "$E2E_TMP/pasted" "$1"; }
e2e_check "no clipboard owner, no text" test "$("$E2E_TOOLS/x11_paste"; echo "status $?")" = "status 1"
printf 'https://example.com/caf\xc3\xa9?q=\xe2\x9c\x93' >"$E2E_TMP/UTF-8"
{ printf 'https://example.com/'; head -c 3000000 /dev/zero | tr '\0' a; } >"$E2E_TMP/3-MB"
for text in UTF-8 3-MB; do
    xclip -selection clipboard -i "$E2E_TMP/$text"
    e2e_check "the $text text is read whole" e2e_wait_for 20 pastes "$E2E_TMP/$text"
done
printf 'https://example.com/caf\xe9' | xclip -selection clipboard -t STRING -i
printf 'https://example.com/caf\xc3\xa9' >"$E2E_TMP/latin1"
e2e_check "the Latin-1 text is read as Latin-1" e2e_wait_for 10 pastes "$E2E_TMP/latin1"

pindle_start

# A web address, with blanks around it as copied from a terminal. Down and Return take the name
# of the first shortcut listed for it.
pindle_clipboard "  https://example.com/article
"
pindle_shows alt+i || e2e_fail "Alt+I did not show the creator"
xdotool key Down Return
xdotool type --delay 40 " 2"
xdotool key Return
saved="$PINDLE_FOLDER/Example Article 2.webloc"
e2e_check "the shortcuts holding the address are listed; Return saves" e2e_wait_for 5 test -f "$saved"
e2e_check "the shortcut holds the address without the blanks" grep -q '<string>https://example.com/article</string>' "$saved"
e2e_check "saving gives the editor its focus back" e2e_wait_for 5 pindle_is_back_to_editor
pindle_shows alt+i || e2e_fail "Alt+I did not show the creator a second time"
xdotool key alt+i
e2e_check "a second Alt+I hides the creator, focus back to the editor" e2e_wait_for 5 pindle_is_back_to_editor

# Not a web address, or an owner that never answers or dies halfway through handing the text
# over: Alt+I shows nothing, and Alt+U right after shows the launcher at once. Each owner says
# when it has answered Alt+I; the launcher comes later than the creator would have, and openbox
# lists windows in that order.
for case in ftp://files.example.com/ example.com/page "   " silent dying; do
    mode=serve
    [ "$case" = silent ] || [ "$case" = dying ] && mode=$case
    pindle_watch_windows
    e2e_spawn owner "$E2E_TOOLS/x11_client" "$mode" "$case"
    owner=$E2E_PID
    e2e_wait_for_line "$E2E_TMP/owner.out" '^owning$' || e2e_fail "no owner of '$case'"
    xdotool key alt+i
    e2e_wait_for_line "$E2E_TMP/owner.out" '^asked$' 5 || e2e_fail "Alt+I did not read '$case'"
    xdotool key alt+u
    # Qt's own read waits 5 to 10 s for such an owner, with the interface frozen.
    e2e_check "Alt+U right after Alt+I with '$case' shows the launcher at once" e2e_wait_for 2 pindle_is_active
    launcher=$(printf '0x%x' "$(pindle_windows | head -n1)")
    e2e_wait_for 5 grep -q "$launcher" "$E2E_TMP/windows.out" || e2e_fail "the launcher was not listed"
    pindle_stop_watching_windows
    e2e_check "Alt+I with '$case' showed nothing" test -z "$(grep -o '0x[0-9a-f]*' "$E2E_TMP/windows.out" |
        sort -u | grep -vx -e "$launcher" -e "$(printf '0x%x' "$editor")")"
    xdotool key Escape
    e2e_wait_for 5 pindle_is_back_to_editor || e2e_fail "the launcher did not close to the editor"
    kill "$owner" 2>/dev/null
    wait "$owner" 2>/dev/null
    # The read gives up within its bound and leaves nothing behind: a press of Alt+I soon reads
    # a good owner. (Presses while the read still waits add nothing to it.)
    pindle_clipboard https://example.com/after
    e2e_check "then Alt+I shows the creator for a web address" e2e_wait_for 20 pindle_shows alt+i
    xdotool key Escape
    e2e_wait_for 5 pindle_is_back_to_editor || e2e_fail "the creator did not close to the editor"
done

pindle_stop INT "$PINDLE_PID"
e2e_finish
