#!/usr/bin/env bash
# The X11 clipboard as Pindle reads it: nothing without an owner, UTF-8 text whole, a text too
# long for one transfer whole (sent in parts), Latin-1 from an owner without UTF-8.
source "$(dirname "$0")/probe.sh"

e2e_start --no-wm
probe_start main

# clipboard_is DESCRIPTION FILE: the probe reads exactly FILE's content (UTF-8) from the clipboard.
clipboard_is() {
    local expected
    expected="clipboard $(iconv -f UTF-8 -t UTF-16LE <"$2" | wc -c | awk '{ print $1 / 2 }') $(md5sum <"$2" | cut -d' ' -f1)"
    probe_ask main clipboard '^clipboard '
    e2e_check "$1 ($PROBE_ANSWER)" test "$PROBE_ANSWER" = "$expected"
}

probe_ask main clipboard '^clipboard '
e2e_check "no owner: no text" probe_said '^clipboard none$'

printf 'https://example.com/caf\xc3\xa9?q=\xe2\x9c\x93' >"$E2E_TMP/short"
xclip -selection clipboard -i "$E2E_TMP/short"
clipboard_is "a UTF-8 address is read whole" "$E2E_TMP/short"

# Far more than one request may carry: xclip sends it in parts.
{ printf 'https://example.com/'; head -c 3000000 /dev/zero | tr '\0' 'a'; } >"$E2E_TMP/long"
xclip -selection clipboard -i "$E2E_TMP/long"
clipboard_is "a 3 MB address arrives whole through the incremental transfer" "$E2E_TMP/long"

printf 'https://example.com/caf\xe9' | xclip -selection clipboard -t STRING -i
printf 'https://example.com/caf\xc3\xa9' >"$E2E_TMP/latin1"
clipboard_is "an owner offering Latin-1 only is read as Latin-1" "$E2E_TMP/latin1"

e2e_finish
