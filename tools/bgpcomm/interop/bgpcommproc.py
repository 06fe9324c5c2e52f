"""`bgpcomm collect` and `bgpcomm replay` run by the interop tests: started
with a parent-death signal, their output read as it comes (stdout route
lines, stderr event lines), stopped by process id, every wait bounded."""

import re
import subprocess
import threading
import time

from speaker import LabError, die_with_parent


class Bgpcomm:
    def __init__(self, argv, name):
        self.name, self.argv = name, argv
        self.out, self.err = [], []
        self.lock = threading.Lock()
        self.proc = subprocess.Popen(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                     stdin=subprocess.DEVNULL, text=True,
                                     preexec_fn=die_with_parent)
        self.readers = [threading.Thread(target=self._read, args=(s, l), daemon=True)
                        for s, l in ((self.proc.stdout, self.out), (self.proc.stderr, self.err))]
        for t in self.readers:
            t.start()

    def _read(self, stream, into):
        for line in stream:
            with self.lock:
                into.append(line.rstrip("\n"))

    def lines(self):
        with self.lock:
            return list(self.out), list(self.err)

    def events(self):
        return self.lines()[1]

    def wait_event(self, pattern, timeout, count=1):
        """The stderr lines matching `pattern` once there are `count` of them."""
        deadline = time.monotonic() + timeout
        while True:
            found = [e for e in self.events() if re.search(pattern, e)]
            if len(found) >= count:
                return found
            if self.proc.poll() is not None and not any(t.is_alive() for t in self.readers):
                raise LabError(f"{self.name} exited ({self.proc.returncode}) before "
                               f"/{pattern}/" + self.tail())
            if time.monotonic() > deadline:
                raise LabError(f"timed out after {timeout} s waiting for {self.name} to say "
                               f"/{pattern}/" + self.tail())
            time.sleep(0.2)

    def wait_exit(self, timeout):
        try:
            self.proc.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            raise LabError(f"{self.name} still running after {timeout} s" + self.tail())
        for t in self.readers:
            t.join(timeout=5)
        return self.proc.returncode

    def stop(self, timeout=10):
        """SIGTERM (a clean exit: Cease to the peers, the check of the
        tables), SIGKILL if that does not end it in time."""
        if self.proc.poll() is None:
            self.proc.terminate()
            try:
                self.proc.wait(timeout=timeout)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait(timeout=10)
        for t in self.readers:
            t.join(timeout=5)
        return self.proc.returncode

    def tail(self, n=15):
        err = self.events()[-n:]
        return (f"\n--- last stderr lines of {self.name}:\n" + "\n".join(err)) if err else ""
