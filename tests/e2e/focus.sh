#!/usr/bin/env bash
# Focus restore under openbox: the frontmost application is read from _NET_ACTIVE_WINDOW and
# _NET_WM_PID, a window of ours takes the focus, and restoring gives it back to the captured
# xterm even where openbox on its own would focus another window.
source "$(dirname "$0")/probe.sh"

e2e_start
e2e_xterm alpha
alpha_pid=$E2E_PID alpha=$E2E_WINDOW
e2e_xterm beta
beta=$E2E_WINDOW
probe_start main
probe_ask main pid '^pid '
probe_pid=${PROBE_ANSWER#pid }

activate() {
    xdotool windowactivate "$1" 2>/dev/null
    e2e_wait_active "$1" || e2e_fail "window $1 did not become active"
}

# show: shows our window and waits for it to become active; its id in $ours.
show() {
    probe_ask main show '^window '
    ours=${PROBE_ANSWER#window }
    e2e_wait_active "$ours" || e2e_fail "our window did not become active"
}

# Shows our window, hides it after capturing alpha with beta focused in between, so that
# openbox's own choice on hiding is beta; with restore, alpha must come back.
round() {
    local restore=$1
    activate "$alpha"
    probe_ask main capture '^captured$'
    activate "$beta"
    show
    probe_ask main hide '^hidden$'
    [ "$restore" = restore ] && probe_ask main restore '^restored$'
}

activate "$alpha"
probe_ask main frontmost '^frontmost '
e2e_check "frontmost is alpha's window" test "$(cut -d' ' -f3 <<<"$PROBE_ANSWER")" = "$alpha"
e2e_check "frontmost is alpha's process" test "$(cut -d' ' -f2 <<<"$PROBE_ANSWER")" = "$alpha_pid"

# Control: without restore, openbox gives the focus to beta, the window focused last.
round no-restore
e2e_check "openbox alone refocuses beta" e2e_wait_active "$beta" 5

round restore
e2e_check "restore gives the focus back to alpha" e2e_wait_active "$alpha" 5

# While our window is active this process is frontmost, and a capture keeps alpha.
activate "$alpha"
probe_ask main capture '^captured$'
show
probe_ask main frontmost '^frontmost '
e2e_check "this process is frontmost" test "$(cut -d' ' -f2 <<<"$PROBE_ANSWER")" = "$probe_pid"
probe_ask main capture '^captured$'
activate "$beta"
show
probe_ask main hide '^hidden$'
probe_ask main restore '^restored$'
e2e_check "the second capture kept alpha" e2e_wait_active "$alpha" 5

# Making our window key while it is shown but another window has the focus brings it forward.
show
activate "$beta"
probe_ask main show '^window '
e2e_check "a shown window of ours takes the focus back" e2e_wait_active "$ours" 5
probe_ask main hide '^hidden$'

# A captured application that has quit is not activated: openbox's own choice stands.
round no-restore
kill "$alpha_pid"
e2e_wait_for 5 bash -c '! xdotool search --name "^alpha$"' || e2e_fail "alpha did not close"
probe_ask main "terminated $alpha_pid $alpha" '^terminated '
e2e_check "alpha counts as terminated" probe_said '^terminated yes$'
probe_ask main "terminated 0 $beta" '^terminated '
e2e_check "beta does not" probe_said '^terminated no$'
probe_ask main restore '^restored$'

probe_send main quit
e2e_finish
