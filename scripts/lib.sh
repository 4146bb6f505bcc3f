# Helpers shared by the project's scripts (test, demo, bench, fuzz, package).
# Source it from bash:  . "$(dirname "$0")/lib.sh"
#
#   rv_require_packages pkg...    install the Debian packages that are missing
#   rv_require_base               the packages every build of the driver needs
#   rv_build <dir> [cmake args]   configure <dir> (relative to the repository)
#                                 and build it; RV_TARGETS limits the targets
#   rv_armhf_sysroot <dir>        cross tools plus an armhf sysroot cached in <dir>
#   rv_sanitizer_env              runtime options for the sanitizer builds
#
# RV_JOBS (default 2) sets the build parallelism.

RV_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
RV_JOBS=${RV_JOBS:-2}
RV_BASE_PACKAGES=(cmake g++ make pkg-config qtbase5-dev libmodbus-dev libgtest-dev googletest
                  libgmock-dev libbenchmark-dev libserialport-dev libcli11-dev)

rv_log()
{
    printf '== %s\n' "$*" >&2
}

rv_die()
{
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# Runs a command as root: directly when we are root, through sudo otherwise.
_rv_root()
{
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null 2>&1; then
        sudo "$@"
    else
        rv_die "need root (or sudo) to run: $*"
    fi
}

# apt-get update at most once per hour across all scripts of one run. Every
# update touches lists/partial, while the lists themselves keep the server's
# dates; a machine without any lists always updates.
_rv_apt_update()
{
    if [ "${1:-}" != --force ] &&
        [ -n "$(find /var/lib/apt/lists/partial -maxdepth 0 -mmin -60 2>/dev/null)" ] &&
        [ -n "$(find /var/lib/apt/lists -maxdepth 1 -name '*_Packages*' 2>/dev/null | head -n 1)" ]; then
        return 0
    fi
    rv_log "apt-get update"
    # A mirror caught mid-sync fails one index; the others still serve.
    _rv_root apt-get update -q || rv_log "apt-get update reported errors; going on with the lists it got"
}

rv_require_packages()
{
    local missing=() p
    for p in "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'ok installed' || missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    _rv_apt_update
    rv_log "installing ${missing[*]}"
    # Lists an hour old can name files the mirror no longer has: refresh them
    # once and try again before giving up.
    _rv_apt_install "${missing[@]}" ||
        { _rv_apt_update --force && _rv_apt_install "${missing[@]}"; } ||
        rv_die "could not install ${missing[*]}"
}

_rv_apt_install()
{
    _rv_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -q --no-install-recommends "$@"
}

rv_require_base()
{
    rv_require_packages "${RV_BASE_PACKAGES[@]}"
}

# Absolute form of a build folder; relative ones live in the repository
# (the /build*/ pattern keeps them out of git).
rv_build_dir()
{
    case $1 in
    /*) printf '%s\n' "$1" ;;
    *) printf '%s\n' "$RV_ROOT/$1" ;;
    esac
}

rv_build()
{
    local dir
    dir=$(rv_build_dir "$1") || return
    shift
    cmake -S "$RV_ROOT" -B "$dir" "$@" || return
    if [ -n "${RV_TARGETS:-}" ]; then
        # shellcheck disable=SC2086
        cmake --build "$dir" -j "$RV_JOBS" --target $RV_TARGETS
    else
        cmake --build "$dir" -j "$RV_JOBS"
    fi
}

# armhf libraries the driver and its tests link against. qt5-qmake and
# qtbase5-dev-tools are never run: Qt's CMake files only check that qmake,
# moc, rcc and the mkspecs are where they expect them.
RV_ARMHF_DEBS=(libqt5core5a qtbase5-dev qt5-qmake qtbase5-dev-tools libpcre2-16-0
               libdouble-conversion3 libicu72 zlib1g libzstd1 libglib2.0-0 libpcre2-8-0
               libmodbus5 libmodbus-dev)

# Prepares <dir>/armhf-sysroot from a private apt state in <dir>/armhf-apt, so
# the host's dpkg never learns of a second architecture. The sysroot is
# reused while the package list above is unchanged. Sets RV_ARMHF_SYSROOT.
rv_armhf_sysroot()
{
    local dir a sysroot stamp want f
    dir=$(rv_build_dir "$1")
    rv_require_packages crossbuild-essential-armhf qemu-user binutils-arm-linux-gnueabihf
    a=$dir/armhf-apt
    sysroot=$dir/armhf-sysroot
    stamp=$sysroot/.rv-packages
    want="${RV_ARMHF_DEBS[*]}"
    RV_ARMHF_SYSROOT=$sysroot
    export RV_ARMHF_SYSROOT
    if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$want" ]; then
        return 0
    fi
    rv_log "preparing the armhf sysroot in $sysroot"
    mkdir -p "$a/lists/partial" "$a/cache/archives/partial" "$a/debs" || return
    touch "$a/status"
    local o=(-o APT::Architecture=armhf -o APT::Architectures::=armhf
             -o "Dir::State::Lists=$a/lists" -o "Dir::Cache=$a/cache"
             -o "Dir::State::status=$a/status" -o APT::Sandbox::User=root)
    # An index that is out of step with the host's security updates only
    # warns; the main index is enough to download from.
    apt-get "${o[@]}" -q update || true
    rm -f "$a"/debs/*.deb
    (cd "$a/debs" && apt-get "${o[@]}" -q download "${RV_ARMHF_DEBS[@]}") ||
        rv_die "could not download the armhf packages"
    rm -rf "$sysroot"
    mkdir -p "$sysroot"
    for f in "$a"/debs/*.deb; do
        dpkg -x "$f" "$sysroot" || rv_die "could not unpack $f"
    done
    printf '%s\n' "$want" >"$stamp"
}

# Sanitizer runtime options: stop at the first report. Leak checks need no
# suppressions; TSan's file covers only what uninstrumented QtCore hides.
rv_sanitizer_env()
{
    local supp=$RV_ROOT/scripts/sanitizers
    export ASAN_OPTIONS=${ASAN_OPTIONS:-halt_on_error=1:abort_on_error=0:detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1}
    export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
    export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$supp/tsan.supp}
}
