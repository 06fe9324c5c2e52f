# shellcheck shell=bash
# Shell side of the gobgpd lab, sourced by gobgp-interop.sh and
# ../sample/make-sample.sh: getting gobgpd onto the machine, and a scratch
# folder whose daemons are stopped by process id however the script ends.

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
    echo "installing gobgpd with apt-get" >&2
    DEBIAN_FRONTEND=noninteractive timeout 150 \
        apt-get install -y -q --no-install-recommends gobgpd >&2
}

# lab_workdir: makes the scratch folder LAB_DIR and arranges, on exit, to stop
# what still runs from it and to remove it.
lab_workdir() {
    LAB_DIR=$(mktemp -d "${TMPDIR:-/tmp}/gobgp-lab.XXXXXX")
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

# Stops a lab command still running (gobgplab.py stops its daemons when it
# gets SIGTERM), then any gobgpd left from LAB_DIR: by the pid gobgplab.py
# wrote, and only if that process's command line names a file in LAB_DIR.
lab_cleanup() {
    local f pid
    if [ -n "${LAB_JOB:-}" ]; then
        kill "$LAB_JOB" 2>/dev/null || true
        wait "$LAB_JOB" 2>/dev/null || true
    fi
    for f in "$LAB_DIR"/*.pid; do
        [ -f "$f" ] || continue
        pid=$(cat "$f")
        if tr '\0' ' ' 2>/dev/null <"/proc/$pid/cmdline" | grep -q -- " $LAB_DIR/"; then
            kill "$pid" 2>/dev/null || true
            timeout 10 tail --pid="$pid" -f /dev/null || kill -KILL "$pid" 2>/dev/null || true
        fi
    done
    rm -rf -- "$LAB_DIR"
}
