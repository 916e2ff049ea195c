#!/usr/bin/env bash
# Alt+U until the launcher is on screen with the focus, as a user feels it, under KWin Wayland
# (virtual backend, the desktop portal binding the key) with a Release build and 10,000 shortcut
# files, over a native window that had the focus. Reports; asserts nothing.
#
# The key press is a real one, through KWin's fake-input protocol; the time it went out is taken
# by wayland_keys just before the U goes down (Alt is already held). The end is read inside KWin
# by a script on its own clock (the same wall clock, to the millisecond):
#   - painted: KWin adds a Wayland window to its workspace once the client has committed its
#     first buffer, i.e. once Pindle has painted the panel and handed it over; the compositor
#     shows it on its next repaint. (Seen: the window already has the size of its buffer, 660 x 58,
#     when it is added; a window only gets its size from a committed buffer.) (No client can see another's frames, and polling KWin's
#     screenshot interface would render the scene on demand and take a CPU from Pindle on a small
#     machine, without being closer to what reaches the screen.)
#   - focused: KWin activates that window.
# A run ends at the later of the two. The launcher's first showing since start-up is the one
# that waits for the key to be bound; every timed run is warm.
#
#     bench/panel-latency-wayland.sh [RUNS]   (default 30; PINDLE_BENCH_BUILD picks the build)
set -euo pipefail
source "$(dirname "$0")/../scripts/lib/common.sh"
source "$(dirname "$0")/panel_latency_lib.sh"
runs=${1:-30}

pindle_ensure_packages "${PINDLE_BUILD_PACKAGES[@]}" "${PINDLE_TEST_PACKAGES[@]}"
pindle_ensure_packages --no-install-recommends "${PINDLE_WAYLAND_TEST_PACKAGES[@]}"
bench_build

# The end-to-end tests' key tool and test window, built here as the Release build has no tests.
tools="$bench_dir/bench/wayland-tools"
e2e_dir="$pindle_root/tests/e2e"
if [ ! -x "$tools/wayland_keys" ] || [ "$e2e_dir/wayland_keys.cpp" -nt "$tools/wayland_keys" ] ||
    [ "$e2e_dir/wayland_window.cpp" -nt "$tools/wayland_window" ]; then
    mkdir -p "$tools"
    xml=/usr/share/plasma-wayland-protocols/fake-input.xml
    wayland-scanner client-header "$xml" "$tools/fake-input-client-protocol.h"
    wayland-scanner private-code "$xml" "$tools/fake-input-protocol.c"
    gcc -c -O2 -o "$tools/fake-input-protocol.o" "$tools/fake-input-protocol.c"
    # shellcheck disable=SC2046
    g++ -std=c++20 -O2 -fPIC -I"$tools" -o "$tools/wayland_keys" "$e2e_dir/wayland_keys.cpp" \
        "$tools/fake-input-protocol.o" $(pkg-config --cflags --libs wayland-client Qt6DBus)
    # shellcheck disable=SC2046
    g++ -std=c++20 -O2 -fPIC -o "$tools/wayland_window" "$e2e_dir/wayland_window.cpp" \
        $(pkg-config --cflags --libs Qt6Widgets)
fi

# The library brings the harness, whose teardown stops the compositor and the portal.
source "$e2e_dir/harness.sh" "$bench_dir/src/app/pindle"
E2E_TOOLS=$tools
source "$e2e_dir/wayland_harness.sh"
wl_start_kwin
bench_shortcuts "$PINDLE_FOLDER" https://example.com/shared/page

wl_window editor
editor=$WL_WINDOW_PID
e2e_spawn pindle "$PINDLE_BIN"
PINDLE_PID=$E2E_PID
pindle_wait_ready

# Stays loaded for the whole run: each event a line in KWin's log.
watch="$E2E_TMP/watch.js"
cat >"$watch" <<EOS
workspace.clientAdded.connect(function (c) {
    if (c.pid == $PINDLE_PID) print("bench-painted " + Date.now());
});
workspace.clientActivated.connect(function (c) {
    if (c && c.pid == $PINDLE_PID) print("bench-focused " + Date.now());
});
EOS
dbus-send --session --print-reply --dest=org.kde.KWin /Scripting \
    org.kde.kwin.Scripting.loadScript "string:$watch" string:pindle-bench >/dev/null
dbus-send --session --print-reply --dest=org.kde.KWin /Scripting org.kde.kwin.Scripting.start >/dev/null

# bench_event NAME N: the time of the Nth NAME event, once there is one.
bench_event() { grep "^js: bench-$1 " "$WL_LOG" | sed -n "$2p" | awk '{print $3}'; }
bench_events_reach() { [ -n "$(bench_event painted "$1")" ] && [ -n "$(bench_event focused "$1")" ]; }

: >"$E2E_TMP/launcher.ms"
for run in $(seq 1 "$runs"); do
    wl_keys timed alt+u || e2e_fail "run $run: no key press"
    pressed=${WL_KEYS_ANSWER#ok }
    e2e_wait_for 5 bench_events_reach "$run" || e2e_fail "run $run: the launcher did not show"
    awk -v p="$pressed" -v a="$(bench_event painted "$run")" -v b="$(bench_event focused "$run")" \
        'BEGIN { end = a > b ? a : b; printf "%.1f\n", end - p }' >>"$E2E_TMP/launcher.ms"
    wl_keys key Escape
    e2e_wait_for 5 pindle_has_no_panel || e2e_fail "run $run: the launcher did not close"
    e2e_wait_for 5 wl_has_focus editor || e2e_fail "run $run: the editor did not get the focus back"
done
sleep 1
rss_kb=$(awk '/^VmRSS:/ {print $2}' "/proc/$PINDLE_PID/status")

echo "Pindle, Release, 10,000 shortcut files, KWin Wayland (virtual, llvmpipe), $(nproc) CPUs"
bench_summary "$E2E_TMP/launcher.ms" "Alt+U -> launcher painted+focused"
awk -v kb="$rss_kb" 'BEGIN { printf "%-38s %6.1f MB\n", "idle resident memory (VmRSS)", kb / 1024 }'
kill -TERM "$PINDLE_PID"
wait "$PINDLE_PID" || true
