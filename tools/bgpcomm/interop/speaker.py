"""What a lab speaker (FRR bgpd, BIRD 2, gobgpd) is, whichever it is.

Each speaker runs in a scratch folder of its own (configuration, pid file,
control socket, log) on its own 127.0.0.x address and an unprivileged port,
is stopped by its process id, and dies with the lab process if that is
killed first (parent-death signal). A speaker is configured with its
sessions (`neighbor`) and, optionally, the rich table of richtable.py
(`announce`), in its own language; `sent(addr)` and `received(addr)` read
the speaker's own view of what it sent to / received from a neighbor, in
commnorm's form.
"""

import ctypes
import os
import signal
import subprocess
import time

import richtable

FRR_BGPD = "/usr/lib/frr/bgpd"


class LabError(Exception):
    pass


def die_with_parent():
    # PR_SET_PDEATHSIG (1): the speaker gets SIGTERM if the lab dies.
    ctypes.CDLL(None, use_errno=True).prctl(1, signal.SIGTERM)


def run(cmd, timeout=20, check=True):
    r = subprocess.run(cmd, capture_output=True, text=True, timeout=timeout)
    if check and r.returncode != 0:
        raise LabError(f"{' '.join(cmd)} failed ({r.returncode}): {(r.stdout + r.stderr).strip()}")
    return r


def wait_for(what, predicate, timeout, step=0.3, detail=lambda: ""):
    deadline = time.monotonic() + timeout
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() > deadline:
            raise LabError(f"timed out after {timeout} s waiting for {what}{detail()}")
        time.sleep(step)


class Speaker:
    """What the three speakers share: folder, process, sessions."""

    kind = "?"

    def __init__(self, labdir, name, addr, port, asn):
        self.name, self.addr, self.port, self.asn = name, addr, port, asn
        self.dir = os.path.join(labdir, name)
        os.makedirs(self.dir, exist_ok=True)
        self.neighbors = []
        self.announced = False
        self.proc = None
        self.log = os.path.join(self.dir, "daemon.log")

    def neighbor(self, addr, port, asn, passive=False):
        """A session with `addr` (AS `asn`), which listens on `port`; a passive
        session waits for `addr` to connect."""
        self.neighbors.append({"addr": addr, "port": port, "asn": asn, "passive": passive})
        return self

    def announce(self):
        self.announced = True
        return self

    @staticmethod
    def cannot_show(kind, value):
        """Values the speaker's view cannot show, left out of comparisons.
        FRR 8.4 and BIRD 2.0 have no printed form of the IPv6-address-specific
        extended communities."""
        return kind == "ipv6"

    def table(self):
        """The rich table as this speaker can express it, and what it left out."""
        return richtable.table(self.asn, self.can_express)

    def path(self, name):
        return os.path.join(self.dir, name)

    def start(self):
        with open(self.path("config"), "w") as f:
            f.write(self.config())
        with open(self.log, "w") as log:
            self.proc = subprocess.Popen(self.command(), stdout=log, stderr=subprocess.STDOUT,
                                         stdin=subprocess.DEVNULL, cwd=self.dir,
                                         preexec_fn=die_with_parent)
        with open(self.path("lab.pid"), "w") as f:
            f.write(f"{self.proc.pid}\n")
        wait_for(f"{self.kind} {self.name} to answer", self.ready, 20, detail=self.log_tail)
        return self

    def alive(self):
        if self.proc.poll() is not None:
            raise LabError(f"{self.kind} {self.name} exited with status {self.proc.returncode}"
                           + self.log_tail())
        return True

    def stop(self):
        if self.proc is None or self.proc.poll() is not None:
            return
        self.proc.terminate()
        try:
            self.proc.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait(timeout=10)

    def shut_down(self, addr):
        """Closes the session with `addr` by administrative shutdown (Cease
        2, RFC 4486), as an operator would, leaving the daemon running."""
        raise NotImplementedError

    def log_tail(self):
        try:
            with open(self.log, errors="replace") as f:
                tail = f.readlines()[-15:]
        except OSError:
            return ""
        return ("\n--- last lines of " + self.log + ":\n" + "".join(tail)) if tail else ""

    def wait_established(self, addr, timeout=30):
        wait_for(f"{self.kind} {self.name}'s session with {addr}",
                 lambda: self.alive() and self.established(addr), timeout, detail=self.log_tail)

    def wait_stable(self, view, timeout=15, settle=1.5):
        """The view once it has not changed for `settle` seconds."""
        last, since = None, time.monotonic()
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            now = view()
            if now != last:
                last, since = now, time.monotonic()
            elif time.monotonic() - since >= settle:
                return now
            time.sleep(0.3)
        return last
