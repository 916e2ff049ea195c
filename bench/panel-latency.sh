#!/usr/bin/env bash
# Pindle as a user feels it, under Xvfb + openbox with a Release build and COUNT shortcut files:
#   - Alt+U until the launcher is painted on screen (the folder is scanned on every showing),
#   - Alt+I until the creator is painted with its list of shortcuts for the copied address,
#   - resident memory once idle with the folder scanned,
#   - the longest time Pindle's main thread leaves a ping unanswered while Alt+I opens the
#     creator on a folder it has never read, swapped in for the first one, with the kernel's
#     caches dropped when this user may (the output says whether they were), and Pindle's own
#     files read back in unless PINDLE_BENCH_ALL_COLD is set.
# The key presses are real XTEST key events; "painted" means a pixel of the panel read back from
# the X server. The first showing is reported apart (cold); the rest give the warm figures.
#
#     bench/panel-latency.sh [RUNS] [COUNT]
#         (default 30 per panel and 10,000 files; PINDLE_BENCH_BUILD picks the build)
set -euo pipefail
source "$(dirname "$0")/../scripts/lib/common.sh"
source "$(dirname "$0")/panel_latency_lib.sh"
runs=${1:-30}
count=${2:-10000}

pindle_ensure_packages "${PINDLE_BUILD_PACKAGES[@]}" "${PINDLE_E2E_PACKAGES[@]}"
bench_build
build=$bench_dir
probe="$build/bench/panel_latency_probe"
source_file="$pindle_root/bench/panel_latency_probe.cpp"
if [ ! -x "$probe" ] || [ "$source_file" -nt "$probe" ]; then
    mkdir -p "$(dirname "$probe")"
    # shellcheck disable=SC2046
    g++ -std=c++20 -O2 -o "$probe" "$source_file" $(pkg-config --cflags --libs xcb xcb-keysyms)
fi

# The library brings the harness, whose teardown stops the X server and the window manager.
source "$pindle_root/tests/e2e/harness.sh"
x11_start
PINDLE_BIN="$build/src/app/pindle"

shared=https://example.com/shared/page
bench_shortcuts "$PINDLE_FOLDER" "$shared" "$count"

pindle_start
# Ready once Alt+U opens the launcher; no window is needed to take the focus from.
for attempt in $(seq 1 60); do
    xdotool key alt+u
    e2e_wait_for 1 pindle_is_active && break
done
pindle_is_active || e2e_fail "Alt+U never opened the launcher"
xdotool key Escape
e2e_wait_for 5 pindle_has_no_panel || e2e_fail "the launcher did not close"
sleep 0.5

# The panels are 660 wide, centred on the 1280x800 screen, their top 22 % down (y = 176).
# Launcher: a pixel of its header right of the text. Creator: a pixel of its first row.
"$probe" u 900 205 "$runs" >"$E2E_TMP/launcher.ms" || e2e_fail "launcher timing failed"
pindle_clipboard "$shared"
"$probe" i 900 294 "$runs" >"$E2E_TMP/creator.ms" || e2e_fail "creator timing failed"
sleep 1
rss_kb=$(awk '/^VmRSS:/ {print $2}' "/proc/$PINDLE_PID/status")

# A folder of other names, never read by this Pindle, put in place of the first one.
xdotool key alt+u
e2e_wait_for 5 pindle_has_panel || e2e_fail "the launcher did not open"
window=$(pindle_windows "$PINDLE_PID" | head -n1)
xdotool key Escape
e2e_wait_for 5 pindle_has_no_panel || e2e_fail "the launcher did not close"
bench_shortcuts "$PINDLE_FOLDER.new" "$shared" "$count" "new "
mv "$PINDLE_FOLDER" "$PINDLE_FOLDER.old"
mv "$PINDLE_FOLDER.new" "$PINDLE_FOLDER"
sync
caches="page cache NOT dropped"
if { echo 3 >/proc/sys/vm/drop_caches; } 2>/dev/null; then
    caches="page cache dropped"
    # Only the folder is to be cold: what Pindle has mapped (its code, libraries, fonts) is read
    # back in. PINDLE_BENCH_ALL_COLD=1 leaves it out too.
    if [ -z "${PINDLE_BENCH_ALL_COLD:-}" ]; then
        awk '$6 ~ /^\// { print $6 }' "/proc/$PINDLE_PID/maps" | sort -u | xargs cat >/dev/null 2>&1 || true
        caches="page cache dropped, Pindle's mapped files read back"
    fi
fi
pindle_clipboard "$shared"
"$probe" stall "$window" i 900 294 >"$E2E_TMP/stall.txt" || e2e_fail "stall timing failed"
read -r stall_ms pings stall_painted_ms <"$E2E_TMP/stall.txt"

echo "Pindle, Release, $count shortcut files, Xvfb + openbox, $(nproc) CPUs"
# The launcher's first showing since start-up is pindle_wait_ready's; every timed run is warm.
bench_summary "$E2E_TMP/launcher.ms" "Alt+U -> launcher painted (warm)"
head -n1 "$E2E_TMP/creator.ms" >"$E2E_TMP/creator-cold.ms"
tail -n +2 "$E2E_TMP/creator.ms" >"$E2E_TMP/creator-warm.ms"
bench_summary "$E2E_TMP/creator-cold.ms" "Alt+I -> creator with list (first)"
bench_summary "$E2E_TMP/creator-warm.ms" "Alt+I -> creator with list (warm)"
awk -v kb="$rss_kb" 'BEGIN { printf "%-38s %6.1f MB\n", "idle resident memory (VmRSS)", kb / 1024 }'
printf '%-38s %6.1f ms   (%d pings; list painted after %.0f ms; %s)\n' \
    "Alt+I on a new folder: longest stall" "$stall_ms" "$pings" "$stall_painted_ms" "$caches"
kill -TERM "$PINDLE_PID"
wait "$PINDLE_PID" || true
