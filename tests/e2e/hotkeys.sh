#!/usr/bin/env bash
# Global hot keys on a real X server under openbox: Alt+U registered through HotKeyManager fires
# on xdotool's key presses whatever the lock keys, a key another client holds fails to register
# and leaves nothing grabbed, and a changed keyboard mapping is followed.
source "$(dirname "$0")/probe.sh"

readonly lockMask=2 alt=8 numLockMask=16

e2e_start
e2e_xterm editor
e2e_wait_active "$E2E_WINDOW" || e2e_fail "xterm did not become active"

probe_start main
probe_ask main "register Alt+U U" '^(registered|failed) U$'
e2e_check "Alt+U registers" probe_said '^registered U$'

xdotool key u alt+i alt+u
e2e_check "only Alt+U fires it" probe_wait main '^fired U$' 1

# Held down past the auto-repeat delay, the key fires once.
xdotool keydown alt+u
sleep 1.5
xdotool keyup alt+u
xdotool key alt+u
e2e_check "a held key fires once" probe_wait main '^fired U$' 3
e2e_check "not once per auto-repeat, and nothing else fired" test "$(probe_count main '^fired')" -eq 3

# Lock keys change the modifier state the press arrives with.
xdotool key Num_Lock
probe_ask main locks '^locks '
e2e_check "Num Lock is on" test $((${PROBE_ANSWER#locks } & numLockMask)) -ne 0
xdotool key alt+u
e2e_check "Alt+U fires with Num Lock on" probe_wait main '^fired U$' 4
xdotool key Caps_Lock
probe_ask main locks '^locks '
e2e_check "Caps Lock is on too" test $((${PROBE_ANSWER#locks } & lockMask)) -ne 0
xdotool key alt+u
e2e_check "Alt+U fires with both locks on" probe_wait main '^fired U$' 5
xdotool key Num_Lock
xdotool key alt+u
e2e_check "Alt+U fires with Caps Lock alone" probe_wait main '^fired U$' 6
xdotool key Caps_Lock
probe_ask main locks '^locks '
e2e_check "both locks are off again" test $((${PROBE_ANSWER#locks } & (lockMask | numLockMask))) -eq 0

# Another client holds Alt+I: that registration fails, Alt+U keeps working, and the press goes
# to the holder.
probe_start holder
probe_ask holder "register Alt+I I" '^(registered|failed) I$'
e2e_check "the other client registers Alt+I" probe_said '^registered I$'
probe_ask main "register Alt+I I" '^(registered|failed) I$'
e2e_check "Alt+I held elsewhere fails to register" probe_said '^failed I$'
xdotool key alt+i alt+u
e2e_check "Alt+U still fires" probe_wait main '^fired U$' 7
e2e_check "Alt+I reaches its holder" probe_wait holder '^fired I$' 1
e2e_check "Alt+I never fired here" test "$(probe_count main '^fired I$')" -eq 0

# A client holding only the Caps Lock variant of Alt+O makes the registration fail part way;
# what did get grabbed is released, so a third client can take plain Alt+O.
probe_ask holder "grab o $((alt | lockMask))" '^(grabbed|busy)$'
e2e_check "the other client grabs Alt+Caps+O" probe_said '^grabbed$'
probe_ask main "register Alt+O O" '^(registered|failed) O$'
e2e_check "Alt+O fails to register" probe_said '^failed O$'
probe_start third
probe_ask third "grab o $alt" '^(grabbed|busy)$'
e2e_check "the partial grab of Alt+O was undone" probe_said '^grabbed$'
probe_ask third "grab u $alt" '^(grabbed|busy)$'
e2e_check "while Alt+U is still held" probe_said '^busy$'

# Moving U to another key (as a layout switch does) re-grabs it there.
probe_ask third "remap u 200" '^remap'
e2e_check "U moved to keycode 200" probe_said '^remapped$'
e2e_wait_for 5 bash -c 'xdotool key alt+u; sleep 0.2; [ "$(grep -c "^fired U$" "$0")" -ge 8 ]' \
    "$E2E_TMP/main.out"
e2e_check "Alt+U fires from its new key" probe_wait main '^fired U$' 8

# Unregistering releases the grabs: another client can now take Alt+U.
probe_ask main unregister '^unregistered$'
probe_ask holder "register Alt+U U" '^(registered|failed) U$'
e2e_check "Alt+U is free after unregisterAll" probe_said '^registered U$'

probe_send main quit
probe_send holder quit
probe_send third quit
e2e_finish
