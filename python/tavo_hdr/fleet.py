"""Replaying many dumped captures on a Dask cluster (Debian's python3-distributed).

    import distributed, tavo_hdr.fleet
    client = distributed.Client("tcp://scheduler:8786")
    for record in tavo_hdr.fleet.replay_all(captures, client):
        print(record["capture"], record["status"])

Each capture is replayed by tavo_hdr.replay() on some worker; every worker
process runs its captures one at a time with a pool of its own, pinned to
cores that no other worker of its machine uses (the plan tavo-hdr replay
--jobs follows), so the workers of one machine do not pile onto the same four
cores. The workers need this package installed, and the captures' paths must
name the same files on every machine (a shared file system).
"""

import os

import distributed

from . import _native, replay, restart

__all__ = ["replay_all"]


def replay_all(captures, client, out_dir=None):
    """Maps tavo_hdr.replay over `captures` (paths of captures, as replay
    takes them) on the workers of `client`, a distributed.Client, and yields
    each capture's report record (a dict) as it finishes, in no set order."""
    paths = [os.fspath(capture) for capture in captures]
    futures = client.map(_replay_on_worker, paths, out_dir=out_dir, pure=False)
    for future in distributed.as_completed(futures):
        yield future.result()


_pinned = False


def _replay_on_worker(capture, out_dir):
    global _pinned
    if not _pinned:
        _pin_this_worker()
        _pinned = True
    return replay(capture, out_dir)


def _pin_this_worker():
    """Pins the pool of this worker process to the cores the plan gives it
    among the workers of its machine (in the order of their addresses): the
    calling thread is pinned, and the threads the next capture starts inherit
    that; "persist.bindcore.hdr" pins each pool thread to its core. A property
    file given in TAVO_HDR_PROPERTIES is kept, and its own binding wins."""
    worker = distributed.get_worker()
    workers = distributed.get_client().scheduler_info()["workers"]
    host = workers.get(worker.address, {}).get("host", worker.ip)
    mates = sorted(address for address, info in workers.items() if info.get("host") == host)
    index = mates.index(worker.address) if worker.address in mates else 0
    cores = _native.worker_cores(index, max(len(mates), 1), sorted(os.sched_getaffinity(0)))
    os.sched_setaffinity(0, cores)
    text = f"persist.bindcore.hdr={_native.bindcore_value(cores)}\n".encode()
    given = os.environ.get("TAVO_HDR_PROPERTIES")
    if given:
        with open(given, "rb") as f:
            text += f.read()
    # A file in memory only, which the library reads through /proc.
    fd = os.memfd_create("tavo_hdr_properties", os.MFD_CLOEXEC)
    os.write(fd, text)
    os.environ["TAVO_HDR_PROPERTIES"] = f"/proc/self/fd/{fd}"
    restart()  # the library reads its environment as its pool starts
