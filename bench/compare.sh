#!/bin/sh
# Whole-process filtering time of pindle-bench --filter against fzy -e and fzf --filter on the
# generated corpus of 100,000 names, one hyperfine run per query, then the ratios.
#
#   bench/compare.sh [PINDLE_BENCH] [QUERY...]
#
# PINDLE_BENCH defaults to build/search-rel/bench/pindle-bench (a Release build).
set -eu

bench=${1:-build/search-rel/bench/pindle-bench}
[ $# -gt 0 ] && shift
if [ $# -eq 0 ]; then
    set -- n gh nf news mail "rust book" "issue 12" "stack overflow" "release notes" \
        "how to build" "$(printf 'caf\303\251')" xyzzy
fi

for tool in hyperfine fzy fzf python3; do
    command -v "$tool" >/dev/null || { echo "compare.sh: $tool is not installed" >&2; exit 2; }
done
[ -x "$bench" ] || { echo "compare.sh: no $bench; build pindle-bench first" >&2; exit 2; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
corpus=$work/corpus.txt
"$bench" --corpus 100000 >"$corpus"

quote() { printf "'%s'" "$(printf '%s' "$1" | sed "s/'/'\\\\''/g")"; }

i=0
for query in "$@"; do
    i=$((i + 1))
    q=$(quote "$query")
    hyperfine --style none --ignore-failure --warmup 3 --min-runs 15 \
        --export-json "$work/$i.json" \
        -n pindle "$bench --filter $q < $corpus" \
        -n fzy "fzy -e $q < $corpus" \
        -n fzf "fzf --filter $q < $corpus" >/dev/null
    printf '%s\n' "$query" >"$work/$i.query"
done

python3 - "$work" "$i" <<'EOF'
import json, sys
work, count = sys.argv[1], int(sys.argv[2])
# Wall-clock medians, which resist the stalls of a shared machine better than means, and the
# processes' CPU time (user + system), which other load on the machine inflates least.
names = ("pindle", "fzy", "fzf")
print(f"{'':<16} {'wall-clock ms':^23}   {'CPU ms':^23}   {'pindle/fzy':^11}")
print(f"{'query':<16} {'pindle':>7} {'fzy':>7} {'fzf':>7}   {'pindle':>7} {'fzy':>7} {'fzf':>7}"
      f"   {'wall':>5} {'cpu':>5}")
worst_wall = worst_cpu = 0
for i in range(1, count + 1):
    query = open(f"{work}/{i}.query", encoding="utf-8").read().rstrip("\n")
    runs = {r["command"]: r for r in json.load(open(f"{work}/{i}.json"))["results"]}
    wall = [runs[name]["median"] * 1000 for name in names]
    cpu = [(runs[name]["user"] + runs[name]["system"]) * 1000 for name in names]
    worst_wall = max(worst_wall, wall[0] / wall[1])
    worst_cpu = max(worst_cpu, cpu[0] / cpu[1])
    print(f"{query:<16} {wall[0]:>7.1f} {wall[1]:>7.1f} {wall[2]:>7.1f}   {cpu[0]:>7.1f}"
          f" {cpu[1]:>7.1f} {cpu[2]:>7.1f}   {wall[0] / wall[1]:>5.2f} {cpu[0] / cpu[1]:>5.2f}")
print(f"largest pindle/fzy ratio: {worst_wall:.2f} wall-clock, {worst_cpu:.2f} CPU")
EOF
