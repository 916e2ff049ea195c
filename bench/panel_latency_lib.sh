# Shared by the panel latency benchmarks (X11 and Wayland), sourced after scripts/lib/common.sh:
# the build under test, a folder of shortcut files, and the summary line of a list of timings.

# bench_build: builds pindle (PINDLE_BENCH_BUILD, else the Release folder scripts/run uses) and
# sets bench_dir to its build folder.
bench_build() {
    bench_dir="${PINDLE_BENCH_BUILD:-$pindle_root/build/release}"
    if [ -n "${PINDLE_BENCH_BUILD:-}" ]; then
        # A build folder of the caller's: built as it is configured.
        cmake --build "$bench_dir" --target pindle
    else
        pindle_build "$bench_dir" -DCMAKE_BUILD_TYPE=Release -DPINDLE_BUILD_TESTS=OFF -DPINDLE_BUILD_BENCH=OFF
    fi
}

# bench_shortcuts FOLDER SHARED_URL [COUNT [PREFIX]]: COUNT (10,000) shortcuts with varied names,
# each starting with PREFIX; three point at SHARED_URL, the address the creator is opened with.
bench_shortcuts() {
    local words=(alpha budget cloud docs editor forum gallery health issues journal kernel library
        market news office photos quarterly recipes search travel update video weather xkcd)
    local count=${3:-10000} prefix=${4:-}
    local i name url
    mkdir -p "$1"
    for ((i = 0; i < count; i++)); do
        name="$prefix${words[i % 24]} ${words[(i / 24) % 24]} $i"
        url="https://site$i.example.org/${words[(i / 7) % 24]}"
        [ "$i" -lt 3 ] && url=$2
        printf '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0"><dict><key>URL</key><string>%s</string></dict></plist>\n' \
            "$url" >"$1/$name.webloc"
    done
}

# bench_summary FILE LABEL: median, p90, min and max of the milliseconds in FILE, one a line.
bench_summary() {
    sort -n "$1" | awk -v label="$2" '
        { v[NR] = $1; sum += $1 }
        END {
            printf "%-38s median %6.1f ms   p90 %6.1f ms   min %6.1f ms   max %6.1f ms   (%d runs)\n",
                label, v[int((NR + 1) / 2)], v[int(NR * 0.9 + 0.5)], v[1], v[NR], NR
        }'
}
