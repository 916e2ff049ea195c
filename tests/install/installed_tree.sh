#!/usr/bin/env bash
# The tree that `cmake --install` lays out, as the desktop's own validators and man read it:
# desktop entries with their actions, the metainfo and the desktop entry it launches, the manual
# page. Called as installed_tree.sh BUILD_DIR.
set -euo pipefail
build=${1:?usage: $0 BUILD_DIR}
tree=$(mktemp -d "${TMPDIR:-/tmp}/pindle-install.XXXXXX")
trap 'rm -rf "$tree"' EXIT

DESTDIR=$tree cmake --install "$build" --prefix /usr >/dev/null
desktop-file-validate "$tree"/usr/share/applications/*.desktop "$tree"/usr/etc/xdg/autostart/*.desktop
appstreamcli validate-tree --no-net --pedantic "$tree"
warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$tree/usr/share/man/man1/pindle.1" 2>&1 >/dev/null)
if [ -n "$warnings" ]; then
    printf 'pindle.1: %s\n' "$warnings" >&2
    exit 1
fi
