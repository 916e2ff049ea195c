#!/usr/bin/env bash
# Writes binary property lists that are small on disk and enormous once expanded, as seeds for the
# reader's fuzzer: the fuzzer then mutates from shapes a plain byte mutation would hardly find.
#   tests/fuzz/make-bombs.sh DIR
set -euo pipefail
out=${1:?usage: make-bombs.sh DIR}
mkdir -p "$out"

# $1 as a big-endian number of $2 bytes, written as printf escapes.
be() {
    local value=$1 size=$2 i escapes=
    for ((i = size - 1; i >= 0; i--)); do
        escapes+=$(printf '\\x%02x' $(((value >> (8 * i)) & 255)))
    done
    printf '%s' "$escapes"
}

# $1 repeated $2 times, as text.
repeat() {
    local text= i
    for ((i = 0; i < $2; i++)); do
        text+=$1
    done
    printf '%s' "$text"
}

# bomb FILE OBJECT...: a list of the given objects (printf escapes), object 0 at the top, with
# two-byte references and four-byte offsets.
bomb() {
    local file=$1 offset=8 body= offsets= object
    shift
    for object in "$@"; do
        offsets+=$(be "$offset" 4)
        body+=$object
        offset=$((offset + $(printf "$object" | wc -c)))
    done
    printf "bplist00$body$offsets\\x00\\x00\\x00\\x00\\x00\\x00\\x04\\x02$(be $# 8)$(be 0 8)$(be "$offset" 8)" \
        >"$file"
}

# { URL: https://bomb/, x: object 4 }, then object 4 onwards.
shortcut() {
    local file=$1
    shift
    bomb "$file" "\\xd2$(be 1 2)$(be 2 2)$(be 3 2)$(be 4 2)" '\x53URL' '\x51x' '\x5dhttps://bomb/' "$@"
}

# Each level an array holding the next level twice: 2^levels leaves from a few hundred bytes.
levels=()
for ((i = 0; i < 40; i++)); do
    levels+=("\\xa2$(be $((5 + i)) 2)$(be $((5 + i)) 2)")
done
shortcut "$out/doubling.webloc" "${levels[@]}" '\x09'

# Each level a dictionary whose keys and values are all the next level.
levels=()
for ((i = 0; i < 12; i++)); do
    levels+=("\\xd4$(repeat "$(be $((5 + i)) 2)" 8)")
done
shortcut "$out/dictionaries.webloc" "${levels[@]}" '\x51k'

# One array referring to one long text a thousand times.
shortcut "$out/repeated.webloc" "\\xaf\\x11$(be 1000 2)$(repeat "$(be 5 2)" 1000)" \
    "\\x4f\\x11$(be 4096 2)$(repeat a 4096)"
