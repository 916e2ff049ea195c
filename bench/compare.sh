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
        "how to build" "caf\303\251" xyzzy
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
    hyperfine --style none --warmup 3 --min-runs 15 --export-json "$work/$i.json" \
        -n pindle "$bench --filter $q < $corpus" \
        -n fzy "fzy -e $q < $corpus" \
        -n fzf "fzf --filter $q < $corpus" >/dev/null
    printf '%s\n' "$query" >"$work/$i.query"
done

python3 - "$work" "$i" <<'EOF'
import json, sys
work, count = sys.argv[1], int(sys.argv[2])
print(f"{'query':<16} {'pindle ms':>10} {'fzy ms':>8} {'fzf ms':>8} {'pindle/fzy':>11} {'pindle/fzf':>11}")
worst = 0
for i in range(1, count + 1):
    query = open(f"{work}/{i}.query", encoding="utf-8").read().rstrip("\n")
    runs = {r["command"]: r for r in json.load(open(f"{work}/{i}.json"))["results"]}
    # The median resists the stalls of a shared machine better than the mean.
    p, y, f = (runs[name]["median"] * 1000 for name in ("pindle", "fzy", "fzf"))
    worst = max(worst, p / y)
    print(f"{query:<16} {p:>10.2f} {y:>8.2f} {f:>8.2f} {p / y:>11.2f} {p / f:>11.2f}")
print(f"largest pindle/fzy ratio: {worst:.2f}")
EOF
