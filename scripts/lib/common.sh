# Shared by scripts/run and scripts/test: the Debian packages Pindle needs, installed when
# missing, and the CMake configure + build. Sourced, not run.

# Build: compiler, CMake, Ninja, Qt 6, ICU, libplist, xcb, the Wayland client library and Qt's
# private Gui headers (Qt 6.4 hands out its Wayland connection only through them). Tests: GoogleTest, the X server, the
# window manager, key presses, the clipboard, a terminal to take focus from (xterm needs the core
# fonts of xfonts-base), fonts for Qt, a private session bus per test. Recommended packages are installed too, as a desktop has
# them.
# Fuzzing: clang with its libFuzzer runtime. qt6-wayland: Pindle's own Wayland platform plugin.
PINDLE_PACKAGES=(
    g++ cmake ninja-build pkg-config
    qt6-base-dev qt6-qpa-plugins qt6-wayland libqt6opengl6-dev libicu-dev libplist-dev
    libxcb1-dev libxcb-keysyms1-dev libwayland-dev qt6-base-private-dev shared-mime-info
    googletest libgtest-dev
    xvfb xauth openbox xdotool xclip xterm xfonts-base x11-utils fonts-dejavu-core
    dbus-daemon dbus-bin
    clang libclang-rt-14-dev
)

# The Wayland end-to-end tests: headless KWin and mutter, the desktop portal with KDE's backend
# (a Qt 5 program, hence Qt 5's Wayland plugin), wl-copy/wl-paste, and what builds the
# fake-input key tool. Without their recommended packages: kwin-common's pull in
# the whole Plasma desktop, about 1,000 packages instead of about 270.
PINDLE_WAYLAND_TEST_PACKAGES=(
    kwin-wayland mutter xdg-desktop-portal xdg-desktop-portal-kde qtwayland5
    wl-clipboard plasma-wayland-protocols
)

pindle_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# pindle_ensure_packages [--no-install-recommends] PACKAGE...: installs what is missing: as root
# directly, otherwise prints the one command to run and fails.
pindle_ensure_packages() {
    local missing=() pkg options=()
    if [ "${1:-}" = --no-install-recommends ]; then
        options=("$1")
        shift
    fi
    for pkg in "$@"; do
        if [ "$(dpkg-query -W -f='${db:Status-Status}' "$pkg" 2>/dev/null)" != installed ]; then
            missing+=("$pkg")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    if [ "$(id -u)" -ne 0 ]; then
        echo "Pindle needs Debian packages that are missing; install them with:" >&2
        echo "sudo apt-get install -y ${options[*]} ${missing[*]}" >&2
        return 1
    fi
    echo "Installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq "${options[@]}" "${missing[@]}"
}

# pindle_build DIR [cmake options...]: configures once, then builds incrementally.
pindle_build() {
    local dir=$1
    shift
    # Configured again when the options asked for change, so that an existing build folder
    # follows what this script asks of it.
    local options="$*"
    if [ ! -f "$dir/CMakeCache.txt" ] || [ "$(cat "$dir/.pindle-options" 2>/dev/null)" != "$options" ]; then
        cmake -S "$pindle_root" -B "$dir" -G Ninja "$@"
        printf '%s' "$options" >"$dir/.pindle-options"
    fi
    cmake --build "$dir"
}
