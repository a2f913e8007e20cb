"""Simulated Gateways, and waiting, for the tests of the exporter."""
import subprocess
import sys
import time

SIM = sys.argv[2]  # as of every test here


def eventually(holds, seconds=10):
    """What it gives as soon as that is true, or at the end of the time."""
    deadline = time.monotonic() + seconds
    while not (result := holds()) and time.monotonic() < deadline:
        time.sleep(0.02)
    return result


class Gateways:
    """Simulated ones, whose faults and lives the test decides."""

    def __init__(self, count=1, *options, port=0):
        self.process = subprocess.Popen([SIM, '--port', str(port), '--speed', '0', '--gateways', str(count), *options],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.ports = [int(self.process.stdout.readline().rpartition(':')[2]) for _ in range(count)]
        self.targets = [f'127.0.0.1:{port}' for port in self.ports]

    def fault(self, words):
        self.process.stdin.write(words + '\n')
        self.process.stdin.flush()
        self.process.stdout.readline()

    def end(self):
        self.process.terminate()
        self.process.communicate()
