"""The lab speakers by name: FRR's bgpd, BIRD 2 and gobgpd (speaker.py)."""

from daemon_bird import Bird
from daemon_frr import Frr
from daemon_gobgp import Gobgp
from speaker import LabError, wait_for  # noqa: F401  (re-exported for the drivers)

SPEAKERS = {"frr": Frr, "bird": Bird, "gobgp": Gobgp}
