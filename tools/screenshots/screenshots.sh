#!/bin/sh
# Renders the panel under Xvfb at scale 1 and 2 and writes PNGs for review:
#   tools/screenshots/screenshots.sh [build-dir]   (default: build/panel)
# Output: <build-dir>/screenshots/{1x,2x}/panel-{rows,message}-{light,dark}.png
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build/panel}
cmake --build "$build" --target pindle_panel_screenshots -j2 >/dev/null
program="$build/tools/screenshots/pindle_panel_screenshots"

display=:$(( 90 + $$ % 100 ))
Xvfb "$display" -screen 0 2880x1800x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null' EXIT INT TERM
for _ in $(seq 50); do
    DISPLAY=$display xdpyinfo >/dev/null 2>&1 && break
    sleep 0.1
done

for scale in 1 2; do
    DISPLAY=$display QT_QPA_PLATFORM=xcb QT_SCALE_FACTOR=$scale \
        LSAN_OPTIONS="suppressions=$root/tests/lsan.supp" \
        "$program" "$build/screenshots/${scale}x"
done
