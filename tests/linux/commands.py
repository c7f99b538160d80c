"""What the tests of a kernel in network namespaces share."""

import os
import subprocess
import sys
import time

SKIP_NOTHING = "ZUSKUX_SKIP_NOTHING" in os.environ
SKIPPED = 77


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def wait_until(true, what, patience):
    end = time.monotonic() + patience
    while not true():
        if time.monotonic() > end:
            raise SystemExit(f"FAILED: {what} takes more than {patience} s")
        time.sleep(0.01)


def skip_without_namespaces():
    # `ip netns add` needs mounts of its own, which a chroot does not have.
    needs = ("unshare", "--net", "--mount", "--propagation", "slave", "true")
    if subprocess.run(needs, capture_output=True).returncode != 0:
        print("skipped: needs permission to create network namespaces and mounts of its own")
        sys.exit(1 if SKIP_NOTHING else SKIPPED)
