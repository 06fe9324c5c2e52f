# shellcheck shell=bash
# Shell side of the labs, sourced by gobgp-interop.sh, peer-interop.sh and
# ../sample/make-sample.sh: getting the BGP daemons (gobgpd, FRR, BIRD 2) onto
# the machine, and a scratch folder whose daemons are stopped by process id
# however the script ends.

# ensure_gobgpd [--update|--no-update]: returns 0 when gobgpd and gobgp are on PATH,
# installing the Debian package gobgpd with apt-get (as root) when they are
# not. --update allows an `apt-get update` and a second try; the test does not
# use it, to stay within its time limit. The package's service starts only
# with an /etc/gobgpd.conf, which it does not ship, so installing it starts
# no daemon.
ensure_gobgpd() {
    _lab_have_gobgpd && return 0
    if [ "$(id -u)" -ne 0 ] || ! command -v apt-get >/dev/null 2>&1; then
        echo "gobgpd is not installed and cannot be (needs root and apt-get)" >&2
        return 1
    fi
    if ! _lab_apt_install && [ "${1:-}" = --update ]; then
        DEBIAN_FRONTEND=noninteractive timeout 150 apt-get update -q >&2 && _lab_apt_install
    fi
    _lab_have_gobgpd
}

_lab_have_gobgpd() {
    command -v gobgpd >/dev/null 2>&1 && command -v gobgp >/dev/null 2>&1
}

_lab_apt_install() {
    local pkg=${1:-gobgpd}
    echo "installing $pkg with apt-get" >&2
    DEBIAN_FRONTEND=noninteractive timeout 150 \
        apt-get install -y -q --no-install-recommends "$pkg" >&2
}

# ensure_speaker frr|bird|gobgp: as ensure_gobgpd, for the daemon and the
# program that queries it: FRR's bgpd and vtysh (package frr), BIRD 2's bird
# and birdc (package bird2), gobgpd and gobgp. The frr and bird2 packages
# start their own service on installation where an init system runs; the
# labs never use it (they run their own daemon on 127.0.0.x, an unprivileged
# port, and sockets in their own folder).
ensure_speaker() {
    local pkg
    case $1 in
        frr) pkg=frr ;;
        bird) pkg=bird2 ;;
        gobgp) ensure_gobgpd --no-update; return ;;
        *) echo "ensure_speaker: unknown speaker $1" >&2; return 2 ;;
    esac
    _lab_have_speaker "$1" && return 0
    if [ "$(id -u)" -ne 0 ] || ! command -v apt-get >/dev/null 2>&1; then
        echo "$pkg is not installed and cannot be (needs root and apt-get)" >&2
        return 1
    fi
    _lab_apt_install "$pkg" || true
    _lab_have_speaker "$1"
}

_lab_have_speaker() {
    case $1 in
        frr) [ -x /usr/lib/frr/bgpd ] && command -v vtysh >/dev/null 2>&1 ;;
        bird) command -v bird >/dev/null 2>&1 && command -v birdc >/dev/null 2>&1 ;;
    esac
}

# lab_workdir: makes the scratch folder LAB_DIR and arranges, on exit, to stop
# what still runs from it and to remove it.
lab_workdir() {
    # The name is short: FRR's vty socket path inside it must fit a socket address.
    LAB_DIR=$(mktemp -d "${TMPDIR:-/tmp}/bgplab.XXXXXX")
    LAB_JOB=
    trap lab_cleanup EXIT
    trap 'exit 143' TERM INT HUP
}

# lab_run SECONDS CMD...: runs CMD under a time limit in the background and
# waits for it, so that a signal to this script is handled at once.
lab_run() {
    local limit=$1 rc=0
    shift
    timeout "$limit" "$@" &
    LAB_JOB=$!
    wait "$LAB_JOB" || rc=$?
    LAB_JOB=
    return "$rc"
}

# Stops a lab command still running (gobgplab.py and interop.py stop their
# daemons when they get SIGTERM), then any daemon left from LAB_DIR: by the
# pid the lab wrote (LAB_DIR/*.pid, LAB_DIR/SPEAKER/lab.pid), and only if
# that process's command line names a file in LAB_DIR.
lab_cleanup() {
    local f pid
    if [ -n "${LAB_JOB:-}" ]; then
        kill "$LAB_JOB" 2>/dev/null || true
        wait "$LAB_JOB" 2>/dev/null || true
    fi
    for f in "$LAB_DIR"/*.pid "$LAB_DIR"/*/lab.pid; do
        [ -f "$f" ] || continue
        pid=$(cat "$f")
        if tr '\0' ' ' 2>/dev/null <"/proc/$pid/cmdline" | grep -q -- " $LAB_DIR/"; then
            kill "$pid" 2>/dev/null || true
            timeout 10 tail --pid="$pid" -f /dev/null || kill -KILL "$pid" 2>/dev/null || true
        fi
    done
    rm -rf -- "$LAB_DIR"
}
