# Helpers shared by the project's scripts (test, demo, bench, fuzz, package).
# Source it from bash:  . "$(dirname "$0")/lib.sh"
#
#   rv_require_packages pkg...    install the Debian packages that are missing
#   rv_require_base               the packages every build of the driver needs
#   rv_build <dir> [cmake args]   configure <dir> (relative to the repository)
#                                 and build it; RV_TARGETS limits the targets
#   rv_armhf_sysroot <dir>        cross tools plus an armhf sysroot cached in <dir>
#   rv_sanitizer_env              runtime options for the sanitizer builds
#   rv_qt4_qmake <arch> [qmake]   Qt 4.8 for amd64 or armhf; sets RV_QT4_QMAKE
#   rv_armhf_qt4_sysroot <dir>    the armhf sysroot of a Qt 4 build (no Qt 5 in it)
#
# RV_JOBS (default 2) sets the build parallelism.

RV_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
RV_JOBS=${RV_JOBS:-2}
RV_BASE_PACKAGES=(cmake g++ make pkg-config qtbase5-dev libmodbus-dev libgtest-dev googletest
                  libgmock-dev libbenchmark-dev libserialport-dev)

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

# Qt 4.8, the panel runtime's Qt, for the RV_QT=4 builds. Sets RV_QT4_QMAKE to
# <qmake> when one is given (a panel maker's SDK), otherwise to a QtCore
# built once by build-qt4 (from a shared/qt4 folder beside or above the
# clone, or RV_QT4_BUILD) into ${XDG_CACHE_HOME:-~/.cache}/quorvel-rv/qt4-<arch>.
# build-qt4 returns at once when that build is already there.
rv_qt4_qmake()
{
    local arch=$1 given=${2:-} script=${RV_QT4_BUILD:-} dir prefix start rc ticker
    if [ -n "$given" ]; then
        [ -x "$given" ] || rv_die "no qmake at $given"
        RV_QT4_QMAKE=$(cd "$(dirname "$given")" && pwd)/$(basename "$given")
        export RV_QT4_QMAKE
        return 0
    fi
    dir=$RV_ROOT
    while [ -z "$script" ] && [ "$dir" != / ]; do
        dir=$(dirname "$dir")
        [ -x "$dir/shared/qt4/build-qt4" ] && script=$dir/shared/qt4/build-qt4
    done
    [ -n "$script" ] || rv_die "no shared/qt4/build-qt4 beside the clone: give a Qt 4.8 with --qt4-qmake PATH"
    rv_require_packages g++ make perl xz-utils
    if [ "$arch" = armhf ]; then rv_require_packages crossbuild-essential-armhf; fi
    prefix=${XDG_CACHE_HOME:-$HOME/.cache}/quorvel-rv/qt4-$arch
    start=$(date +%s)
    rv_log "Qt 4.8 for $arch in $prefix (the first build takes several minutes)"
    # The compile step is silent for minutes: say that it is still going.
    # (sleep holds no output open, so nothing waits on it once killed.)
    ( while sleep 60 >/dev/null 2>&1; do _rv_qt4_elapsed "$start" "still building"; done ) &
    ticker=$!
    rc=0
    "$script" "$arch" "$prefix" 2>&1 | while IFS= read -r line; do _rv_qt4_elapsed "$start" "$line"; done ||
        rc=$?
    kill "$ticker" 2>/dev/null
    wait "$ticker" 2>/dev/null || true
    [ "$rc" -eq 0 ] || rv_die "could not build Qt 4.8 for $arch (log: $prefix/build-qt4.log)"
    RV_QT4_QMAKE=$prefix/bin/qmake
    export RV_QT4_QMAKE
}

_rv_qt4_elapsed()
{
    local s=$(($(date +%s) - $1))
    rv_log "$(printf '[%d:%02d] %s' $((s / 60)) $((s % 60)) "$2")"
}

# armhf packages of a Qt 4 build: libmodbus for the tests; QtCore comes
# from the Qt 4.8 prefix.
RV_ARMHF_QT4_DEBS=(libmodbus5 libmodbus-dev)

rv_armhf_qt4_sysroot()
{
    local RV_ARMHF_DEBS=("${RV_ARMHF_QT4_DEBS[@]}")
    rv_armhf_sysroot "$1"
}
