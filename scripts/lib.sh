# shellcheck shell=bash
# Helpers shared by the project's scripts (test, demo, bench, fuzz, package).
# Source it from bash:  . "$(dirname "$0")/lib.sh"
#
#   rv_require_packages pkg...    install the Debian packages that are missing
#   rv_require_base               the packages every build of the driver needs
#   rv_require_build_deps <dir>   the Build-Depends of the unpacked source
#                                 package <dir> that are missing (apt-get build-dep)
#   rv_install_debs file...       install package files (.deb), dependencies too
#   rv_purge_packages pkg...      remove packages with their configuration
#   rv_build <dir> [cmake args]   configure <dir> (relative to the repository)
#                                 and build it; RV_TARGETS limits the targets
#   rv_armhf_sysroot <dir>        cross tools plus an armhf sysroot cached in <dir>
#   rv_armhf_download <dir> <dest> pkg...  armhf packages into <dest>, through
#                                 the private apt state of <dir>
#   rv_sanitizer_env              runtime options for the sanitizer builds
#   rv_qt4_qmake <arch> [qmake]   Qt 4.8 for amd64 or armhf; sets RV_QT4_QMAKE
#   rv_armhf_qt4_sysroot <dir>    the armhf sysroot of a Qt 4 build (no Qt 5 in it)
#   rv_report_skips <out> <log>   "skipped: NAME (reason)" per test program
#                                 that ctest (its output <out>) skipped
#
# RV_JOBS (default 2) sets the build parallelism.

RV_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
RV_JOBS=${RV_JOBS:-2}
# help2man: the tools' manual pages; dpkg-dev: dpkg-architecture and the
# Debian packages' tools; tshark: the monitor's test decodes its captures;
# ser2net and pymodbus (with the serial modules its server imports): the
# gateways the network tests reach a line through.
RV_BASE_PACKAGES=(cmake g++ make pkg-config qtbase5-dev libmodbus-dev libgtest-dev googletest
                  libgmock-dev libbenchmark-dev libcli11-dev dpkg-dev help2man python3 tshark
                  ser2net python3-pymodbus python3-serial python3-serial-asyncio)

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

# Runs apt-get with its output shown (on stderr) and kept in RV_APT_OUTPUT.
# A dpkg lock held by another apt or dpkg is waited for
# (DPkg::Lock::Timeout); apt-get's other locks (the lists, the download
# cache) fail at once, so those are tried again for up to the same 300 s.
_rv_apt()
{
    local - waited=0 rc line
    set -o pipefail
    while :; do
        rc=0
        # (Not tee /dev/stderr: reopening a redirected stderr writes over it.)
        RV_APT_OUTPUT=$("$@" -o DPkg::Lock::Timeout=300 2>&1 |
            while IFS= read -r line; do printf '%s\n' "$line" >&2; printf '%s\n' "$line"; done) || rc=$?
        if [ $rc -eq 0 ] || [ $waited -ge 300 ] || ! grep -q 'Could not get lock' <<<"$RV_APT_OUTPUT"; then
            break
        fi
        rv_log "another apt or dpkg holds a lock; waiting (${waited}s so far, at most 300s)"
        sleep 10
        waited=$((waited + 10))
    done
    return $rc
}

# apt-get update for the given apt-get command (and options). An index that
# a mirror could not serve ("Mirror sync in progress", "Hash Sum mismatch")
# makes apt print E: lines and fail, yet it keeps every list it did get, and
# those are enough to install from: say so plainly instead of leaving the
# E: lines to read as a failure. A real failure shows when the install or
# download that follows cannot find its packages.
_rv_apt_update_with()
{
    local unfetched
    _rv_apt "$@" -q update && return 0
    unfetched=$(grep -c '^[EW]: Failed to fetch' <<<"$RV_APT_OUTPUT")
    if [ "$unfetched" -gt 0 ] && ! grep -q 'Could not get lock' <<<"$RV_APT_OUTPUT"; then
        rv_log "note: the E: lines above are harmless: a mirror was being updated, so apt kept its earlier lists for $unfetched index(es); going on with them"
    else
        rv_log "apt-get update failed (see above); going on with the lists there are"
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
    _rv_apt_update_with _rv_root apt-get
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
    _rv_apt _rv_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -q --no-install-recommends "$@"
}

rv_require_base()
{
    rv_require_packages "${RV_BASE_PACKAGES[@]}"
}

rv_require_build_deps()
{
    (cd "$1" && dpkg-checkbuilddeps) >/dev/null 2>&1 && return 0
    _rv_apt_update
    rv_log "installing the build dependencies of $1"
    _rv_apt _rv_root env DEBIAN_FRONTEND=noninteractive \
        apt-get build-dep -y -q --no-install-recommends "$1" ||
        rv_die "could not install the build dependencies of $1"
}

# Files are named by absolute paths (apt-get takes "./x.deb" or "/x.deb");
# --reinstall replaces a build of the same version.
rv_install_debs()
{
    _rv_apt_update
    rv_log "installing $*"
    _rv_apt_install --reinstall "$@" || rv_die "could not install $*"
}

rv_purge_packages()
{
    rv_log "removing $*"
    _rv_apt _rv_root env DEBIAN_FRONTEND=noninteractive apt-get purge -y -q "$@"
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

# apt-get on a private state in <dir>/armhf-apt that knows armhf alone, so
# the host's dpkg never learns of a second architecture.
_rv_armhf_apt_get()
{
    local a=$1
    shift
    mkdir -p "$a/lists/partial" "$a/cache/archives/partial" || return
    touch "$a/status"
    apt-get -o APT::Architecture=armhf -o APT::Architectures::=armhf \
        -o "Dir::State::Lists=$a/lists" -o "Dir::Cache=$a/cache" \
        -o "Dir::State::status=$a/status" -o APT::Sandbox::User=root "$@"
}

# Downloads armhf packages into <dest> (emptied first) through the private
# state of build folder <dir>, whose lists are refreshed when an hour old.
rv_armhf_download()
{
    local a dest=$2
    a=$(rv_build_dir "$1")/armhf-apt
    shift 2
    if [ -z "$(find "$a/lists" -maxdepth 1 -name '*_Packages*' -mmin -60 2>/dev/null | head -n 1)" ]; then
        rv_log "armhf package lists (private to $a)"
        _rv_apt_update_with _rv_armhf_apt_get "$a"
    fi
    rv_log "downloading $# armhf packages: $*"
    rm -rf "$dest" && mkdir -p "$dest" || return
    (cd "$dest" && _rv_apt _rv_armhf_apt_get "$a" -q download "$@" >/dev/null) ||
        rv_die "could not download the armhf packages"
}

# Prepares <dir>/armhf-sysroot from the packages above, unpacked with dpkg -x.
# The sysroot is reused while the package list is unchanged. Sets
# RV_ARMHF_SYSROOT.
rv_armhf_sysroot()
{
    local dir sysroot stamp want f n=0 debs
    dir=$(rv_build_dir "$1")
    rv_require_packages crossbuild-essential-armhf qemu-user binutils-arm-linux-gnueabihf
    sysroot=$dir/armhf-sysroot
    stamp=$sysroot/.rv-packages
    want="${RV_ARMHF_DEBS[*]}"
    RV_ARMHF_SYSROOT=$sysroot
    export RV_ARMHF_SYSROOT
    if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$want" ]; then
        rv_log "armhf sysroot $sysroot is up to date"
        return 0
    fi
    rv_log "preparing the armhf sysroot in $sysroot"
    rv_armhf_download "$dir" "$dir/armhf-apt/debs" "${RV_ARMHF_DEBS[@]}"
    rm -rf "$sysroot"
    mkdir -p "$sysroot"
    debs=("$dir"/armhf-apt/debs/*.deb)
    for f in "${debs[@]}"; do
        n=$((n + 1))
        printf '  unpacking (%d/%d) %s\n' "$n" "${#debs[@]}" "$(basename "$f")" >&2
        dpkg -x "$f" "$sysroot" || rv_die "could not unpack $f"
    done
    printf '%s\n' "$want" >"$stamp"
    rv_log "armhf sysroot ready"
}

# Sanitizer runtime options: stop at the first report. Leak checks need no
# suppressions; TSan's file covers only what uninstrumented QtCore hides.
rv_sanitizer_env()
{
    local supp=$RV_ROOT/tests/sanitizers
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

# ctest lists the programs that skipped (SKIP_RETURN_CODE) without a reason;
# each program prints "skip reason: Suite.Case: why" (tests/test_main.cpp),
# which ctest keeps in Testing/Temporary/LastTest.log (<log>). Prints one
# line per skipped case: skipped: NAME (Suite.Case: why).
rv_report_skips()
{
    local log=$2 name reasons r
    sed -n 's/^[[:space:]]*[0-9]* - \(.*\) (Skipped)$/\1/p' "$1" | while IFS= read -r name; do
        reasons=$(awk -v t="$name" '/^[0-9]+\/[0-9]+ Test: / { n = $3 }
            n == t && sub(/^skip reason: /, "")' "$log" 2>/dev/null) || true
        while IFS= read -r r; do
            printf 'skipped: %s (%s)\n' "$name" "${r:-no reason given}"
        done <<<"$reasons"
    done
}
