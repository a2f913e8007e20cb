#!/usr/bin/env python3
"""Runs the example of two Gateways in one loop, one of which goes and comes back.

    example_test.py EXAMPLE ZULSTAT_SIM ZULSTATS_WORKER
"""
import os
import subprocess
import sys
import time

EXAMPLE, SIM, WORKER = sys.argv[1:4]


def simulator(port='0'):
    process = subprocess.Popen([SIM, '--port', port, '--speed', '0'], stdout=subprocess.PIPE, text=True)
    return process, process.stdout.readline().strip().rpartition(':')[2]


def lines(process, *wanted):
    """Reads until a line holds each of the texts."""
    missing, deadline = set(wanted), time.monotonic() + 20
    while missing:
        line = process.stdout.readline()
        assert line and time.monotonic() < deadline, missing
        missing = {text for text in missing if text not in line}


first, first_port = simulator()
second, second_port = simulator()
environment = os.environ | {'ZULSTATS_WORKER': WORKER}
with subprocess.Popen([EXAMPLE, first_port, second_port], stdout=subprocess.PIPE, text=True, env=environment) as example:
    try:
        lines(example, f':{first_port} host.load.1m 8.04', f':{second_port} host.load.1m 8.04')
        second.kill()
        second.wait()
        lines(example, f':{second_port} lost the connection', f':{first_port} host.load.1m')
        second, _ = simulator(second_port)
        lines(example, f':{second_port} host.load.1m 8.04')
    finally:
        for process in (example, first, second):
            process.kill()
            process.wait()
assert subprocess.run([EXAMPLE, first_port, second_port], env=environment, timeout=20, check=False).returncode == 1
assert subprocess.run([EXAMPLE], timeout=20, check=False, stderr=subprocess.DEVNULL).returncode == 2
