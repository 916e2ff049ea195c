# Drives platform_probe, the test client of the X11 backend, by its line protocol. Sourced by
# scripts called with the probe's path; brings in harness.sh.
#
#     probe_start main                               # waits for "ready"
#     probe_ask main "register Alt+U U" '^(registered|failed) U$'
#     probe_said '^registered U$'                    # the answer to the last question
#     probe_wait main '^fired U$' 2                  # waits for the 2nd such line in all output

PINDLE_PROBE=${1:?usage: $0 PATH/TO/platform_probe}
source "$(dirname "${BASH_SOURCE[0]}")/harness.sh"

# probe_start NAME: starts a probe whose commands come from a FIFO held open by this shell.
probe_start() {
    local name=$1 fd
    mkfifo "$E2E_TMP/$name.in"
    # Read-write, so that opening waits for no reader, and the probe never sees end of file
    # between two commands.
    exec {fd}<>"$E2E_TMP/$name.in"
    printf -v "PROBE_FD_$name" %s "$fd"
    e2e_spawn --stdin "$E2E_TMP/$name.in" "$name" "$PINDLE_PROBE"
    printf -v "PROBE_PID_$name" %s "$E2E_PID"
    e2e_wait_for_line "$E2E_TMP/$name.out" '^ready$' 20 ||
        e2e_fail "probe $name did not start: $(cat "$E2E_TMP/$name.err")"
}

# probe_send NAME COMMAND: sends without waiting.
probe_send() {
    local fd_var="PROBE_FD_$1"
    printf '%s\n' "$2" >&"${!fd_var}"
}

# probe_ask NAME COMMAND REGEX: sends and waits for a new answer line matching REGEX.
probe_ask() {
    local name=$1 before
    before=$(wc -l <"$E2E_TMP/$name.out")
    probe_send "$name" "$2"
    e2e_wait_for 10 probe_has_line_after "$name" "$before" "$3" ||
        e2e_fail "probe $name gave no answer to '$2' (wanted /$3/): $(tail -n3 "$E2E_TMP/$name.out")"
    PROBE_ANSWER=$(tail -n +"$((before + 1))" "$E2E_TMP/$name.out" | grep -E -m1 -- "$3")
}

probe_has_line_after() { tail -n +"$(($2 + 1))" "$E2E_TMP/$1.out" | grep -Eq -- "$3"; }

# probe_said REGEX: whether the last answer matches.
probe_said() { grep -Eq -- "$1" <<<"$PROBE_ANSWER"; }

# probe_count NAME REGEX: how many output lines match.
probe_count() { grep -Ec -- "$2" "$E2E_TMP/$1.out"; }

# probe_wait NAME REGEX COUNT [SECONDS]: waits until COUNT output lines match.
probe_wait() { e2e_wait_for "${4:-5}" probe_count_is_at_least "$1" "$2" "$3"; }

probe_count_is_at_least() { [ "$(probe_count "$1" "$2")" -ge "$3" ]; }
