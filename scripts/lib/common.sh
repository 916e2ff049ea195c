# Shared by the scripts: the Debian packages Pindle needs, installed when
# missing, and the CMake configure + build. Sourced, not run.

# What building and running Pindle needs: compiler, CMake, Ninja, Qt 6, ICU, libplist, xcb, the
# Wayland client library, Qt's private Gui headers (Qt 6.4 hands out its Wayland connection only
# through them) and the MIME database tools; qt6-wayland is Pindle's own Wayland platform plugin.
# Recommended packages are installed too, as a desktop has them.
PINDLE_BUILD_PACKAGES=(
    g++ cmake ninja-build pkg-config
    qt6-base-dev qt6-qpa-plugins qt6-wayland libqt6opengl6-dev libicu-dev libplist-dev
    libxcb1-dev libxcb-keysyms1-dev libwayland-dev qt6-base-private-dev shared-mime-info
)
# What the end-to-end tests need beside the program: the X server, the window manager, key
# presses, lock keys and key maps (x11-xserver-utils), the clipboard, a terminal to take focus
# from (xterm needs the core fonts of xfonts-base), fonts for Qt, a private session bus per test.
# Also installed into the Debian 13 system that CI tests the package in.
PINDLE_E2E_PACKAGES=(
    xvfb xauth openbox xdotool xclip xterm xfonts-base x11-utils x11-xserver-utils fonts-dejavu-core
    dbus-daemon dbus-bin
)
# The rest of the tests: GoogleTest, and the desktop-entry, AppStream and manual page checks of
# the installed tree.
PINDLE_TEST_PACKAGES=(
    googletest libgtest-dev desktop-file-utils appstream man-db
    "${PINDLE_E2E_PACKAGES[@]}"
)
# Fuzzing: clang with its libFuzzer runtime.
PINDLE_FUZZ_PACKAGES=(clang libclang-rt-14-dev)

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

# pindle_build DIR [--target TARGET] [cmake options...]: configures once, then builds (all, or
# TARGET) incrementally.
pindle_build() {
    local dir=$1 target=()
    shift
    if [ "${1:-}" = --target ]; then
        target=(--target "$2")
        shift 2
    fi
    # Configured again when the options asked for change, so that an existing build folder
    # follows what this script asks of it.
    local options="$*"
    if [ ! -f "$dir/CMakeCache.txt" ] || [ "$(cat "$dir/.pindle-options" 2>/dev/null)" != "$options" ]; then
        cmake -S "$pindle_root" -B "$dir" -G Ninja "$@"
        printf '%s' "$options" >"$dir/.pindle-options"
    fi
    cmake --build "$dir" "${target[@]}"
}
