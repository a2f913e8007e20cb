#!/usr/bin/env python3
"""Runs zulstat's watch, top and demo as their users do: in pipes and terminals, with Gateways that restart.

    watch_test.py ZULSTAT ZULSTAT_SIM
"""
import contextlib
import csv
import fcntl
import json
import os
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import termios
import time
import unittest

ZULSTAT, SIM = sys.argv[1:3]
ENVIRONMENT = {k: v for k, v in os.environ.items() if not k.startswith('ZULSTAT_')} | {
    'LC_ALL': 'C.UTF-8', 'XDG_CONFIG_HOME': '/nosuch', 'TERM': 'xterm', 'PATH': os.path.dirname(SIM) + ':' + os.environ['PATH']}
ID, COUNTER = 'conn.open.now', 'conn.accepted.total'


def run(port, *arguments):
    return subprocess.run([ZULSTAT, '-p', str(port), *arguments], capture_output=True, text=True, env=ENVIRONMENT, timeout=30)


@contextlib.contextmanager
def started(*arguments, **options):
    pipes = {'stdin': subprocess.PIPE, 'stdout': subprocess.PIPE, 'stderr': subprocess.PIPE}
    with subprocess.Popen(arguments, text=True, **{'env': ENVIRONMENT, **pipes, **options}) as process:
        try:
            yield process
        finally:
            process.kill()


@contextlib.contextmanager
def simulator(port=0, speed='100', options=()):
    with started(SIM, '--port', str(port), '--speed', speed, *options) as process:
        yield process.stdout.readline().strip().split(':')[1]
        process.terminate()
        process.wait(10)


class Watch(unittest.TestCase):
    def test_rows_and_rates(self):
        with simulator() as port:
            start = time.monotonic()
            result = run(port, 'watch', '0.2', '6', ID, COUNTER, 'host.name', '-r', '*', '--header-every', '6')
            self.assertGreater(time.monotonic() - start, 0.9, 'six samples have five intervals')
            falling = run(port, 'watch', '0.05', '40', ID, '-r', ID, '--no-header').stdout
            partly = run(port, 'watch', '0.05', '2', ID, 'nosuch', '-d', ID)
            groups = run(port, 'watch', '-g', 'host', 'conn', '0.05', '2', '-o', 'plain').stdout
        self.assertEqual((result.returncode, result.stderr), (0, ''))
        rows = [line.split() for line in result.stdout.splitlines()]
        self.assertEqual([i for i, row in enumerate(rows) if row[0] == 'TIME'], [0, 7, 14])
        self.assertRegex(rows[1][0], r'^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$')
        first, *rates = [row[2] for row in rows if row[1] == COUNTER]
        self.assertTrue(first == '-' and min(float(rate.removesuffix('/s')) for rate in rates) > 0, rates)
        self.assertEqual({row[2] for row in rows if row[1] == 'host.name'}, {'zulhost'})
        # A value that falls on the same connection has no rate, and never a negative one.
        self.assertRegex(falling, r'^\S+  \S+ +-\n(\S+  \S+ +(R|\d[0-9.e+-]*/s)\n){39}$')
        self.assertIn(' R\n', falling)
        self.assertEqual((partly.returncode, partly.stdout.count('nosuch'), partly.stderr.count('nosuch')), (1, 2, 1))
        self.assertRegex(partly.stdout.splitlines()[3], r' ([+-]\d+|0)$')
        self.assertEqual(({line.split('\t')[3] for line in groups.splitlines()}, groups.count('host.name')),
                         ({'host', 'conn'}, 2))

    def test_formats(self):
        with simulator() as port:
            jsonl, table, plain, metrics = (run(port, 'watch', '0.05', '3', ID, 'nosuch', '-q', '-o', f).stdout
                                            for f in ('jsonl', 'csv', 'plain', 'openmetrics'))
            ticks = run(port, 'watch', '0.05', '2', '-g', 'daemon', '-o', 'openmetrics').stdout.split('# EOF\n')
        documents = [json.loads(line) for line in jsonl.splitlines()]
        self.assertEqual([(d['fresh_connection'], d['elements'][1]['rc']) for d in documents],
                         [(True, -1), (False, -1), (False, -1)])
        self.assertEqual([row[2] for row in csv.reader(table.splitlines())], ['element'] + [ID, 'nosuch'] * 3)
        self.assertEqual([line.split('\t')[3] for line in plain.splitlines()], [ID, 'nosuch'] * 3)
        self.assertEqual(metrics.count('# EOF\n'), 3)
        # A clock's new value is no new series.
        series = [[line.rpartition(' ')[0] for line in tick.splitlines()] for tick in ticks[:2]]
        self.assertEqual(series[0], series[1])
        self.assertRegex(ticks[0], r'\ngateway_daemon_time_now_seconds\{target="127.0.0.1:\d+",.*\} \d{10}\n')

    def test_wide(self):
        with simulator(speed='0') as port, simulator() as other:
            arguments = ['watch', '--wide', 'host.name', ID, 'nosuch', '0.05', '5', '-q']
            table = run(port, *arguments, '--header-every', '2')
            table_csv = run(port, *arguments, '-o', 'csv').stdout
            rates = run(other, 'watch', '--wide', COUNTER, '0.05', '3', '-r', '*', '--no-header').stdout
            both = run(1, '-H', f'127.0.0.1:{port},127.0.0.1:{other}', 'watch', '--wide', '-g', 'conn', '-I', '*.now', '0.1', '2')
            refused = [run(port, 'watch', '--wide', *more).returncode for more in (['-j'], ['-o', 'csv', '-r', '*'])]
        rows = [line.split() for line in table.stdout.splitlines()]
        self.assertEqual([(row[0] == 'TIME', row[1:]) for row in rows[:4]],
                         [(True, ['host.name', ID, 'nosuch'])] + 2 * [(False, ['zulhost', rows[1][2], '-'])] +
                         [(True, ['host.name', ID, 'nosuch'])])
        self.assertEqual((table.returncode, len(rows), len({len(line) for line in table.stdout.splitlines()})), (1, 8, 1))
        header, *lines = csv.reader(table_csv.splitlines())
        self.assertEqual(header, ['time', 'target', 'host.name', ID, 'nosuch'])
        self.assertEqual([line[1:] for line in lines], 5 * [[f'127.0.0.1:{port}', 'zulhost', rows[1][2], '']])
        self.assertRegex(rates, r'^\S+  +-\n(\S+  +\d+/s\n){2}$')
        header, *lines = [line.split() for line in both.stdout.splitlines()]
        self.assertEqual((header[:2], all(id.endswith('.now') for id in header[2:]), len(header) > 4), (['TIME', 'TARGET'], True, True))
        self.assertEqual(sorted(line[1] for line in lines), sorted(2 * [f'127.0.0.1:{port}', f'127.0.0.1:{other}']))
        self.assertEqual(refused, [2, 2])

    def test_a_recording_replayed_is_the_same(self):
        def answers(port):
            return [json.loads(line)['elements']
                    for query in (['stats'], ['stats', '-g', 'conn'], ['stats', ID, 'nosuch'], ['ids'], ['groups'])
                    for line in run(port, *query, '-o', 'jsonl').stdout.splitlines()]

        with tempfile.TemporaryDirectory() as directory:
            with simulator(speed='0') as port:
                expected = answers(port)
                with open(f'{directory}/recording', 'w', encoding='utf-8') as file:
                    file.write(run(port, 'watch', '0.05', '3', '-o', 'jsonl').stdout)
            with simulator(options=['--replay', file.name]) as port:
                self.assertEqual(answers(port), expected)
        self.assertEqual(len(expected), 5)

    def test_an_interrupt_ends_it_while_nobody_reads(self):
        with simulator() as port, started(ZULSTAT, 'watch', '0.05', '-p', port) as watch:
            pipe = watch.stdout.fileno()
            fcntl.fcntl(pipe, fcntl.F_SETPIPE_SZ, 4096)
            time.sleep(1)
            watch.send_signal(signal.SIGINT)
            self.assertEqual(watch.wait(5), 0)

    def test_gateway_restarts(self):
        # In each format, what the output has once after the first samples.
        for form, *once in (('table', ' -- no connection --\n', ' R\n'), ('csv', ',,-102,,\n'),
                            ('jsonl', 'connection":true', '"elements":[{"element":"","rc":-102,"items":[]}]'),
                            ('openmetrics', ',element=""} -102\n')):
            arguments = [ZULSTAT, 'watch', '0.2', COUNTER, '-o', form, *['-r*'] * (form == 'table'), '-p']
            with self.subTest(form), contextlib.ExitStack() as stack:
                with simulator() as port:
                    watch = stack.enter_context(started(*arguments, port))
                    quitter = stack.enter_context(started(*arguments, port, '--no-reconnect'))
                    for _ in range(4):  # flushed per sample
                        self.assertTrue(watch.stdout.readline() and quitter.stdout.readline())
                self.assertEqual(quitter.wait(5), 5)
                self.assertRegex(watch.stderr.readline(), r'^zulstat: lost the connection .*; trying again$')
                time.sleep(0.7)  # for attempts that fail, without a word
                with simulator(port, speed='0'):  # its counters begin anew, and stay
                    self.assertIn('again after', watch.stderr.readline())
                    time.sleep(0.5)
                    watch.send_signal(signal.SIGINT)
                    output, errors = watch.communicate(timeout=5)
                self.assertEqual((watch.returncode, errors), (0, ''))
                self.assertEqual([output.count(text) for text in once], [1] * len(once), output)

    def read_until(self, process, text, times=1):
        lines, deadline = '', time.monotonic() + 10
        while lines.count(text) < times:
            line = process.stdout.readline()
            self.assertTrue(line and time.monotonic() < deadline, (text, lines))
            lines += line

    def test_one_of_several_gateways_stops(self):
        for form, row, gap in (('table', '  {}  ' + COUNTER + '  ', '  {}  -- no connection --\n'),
                               ('plain', '\t{}\n', '\t\t\t\t-102\t{}\n'), ('csv', ',{},' + COUNTER, ',{},,-102,,\n')):
            with self.subTest(form), simulator() as stays, contextlib.ExitStack() as stack:
                with simulator() as goes:
                    names = [f'127.0.0.1:{port}' for port in (stays, goes)]
                    watch = stack.enter_context(started(ZULSTAT, 'watch', '0.1', COUNTER, '-o', form, '-H',
                                                        f'127.0.0.1:1,{names[0]}', '-H', names[1]))
                    self.read_until(watch, row.format(names[1]), 2)
                self.read_until(watch, gap.format(names[1]))
                for _ in range(4):
                    self.assertIn(row.format(names[0]).strip(), watch.stdout.readline())
                watch.send_signal(signal.SIGINT)
                output, errors = watch.communicate(timeout=5)
                self.assertNotIn(names[1], output)
                self.assertRegex(errors, r'(?s)^zulstat: cannot connect to 127.0.0.1:1.*zulstat: lost .*; trying again\n$')
                self.assertEqual(watch.returncode, 3)

    def test_demo_takes_no_simulator_from_elsewhere(self):
        with tempfile.TemporaryDirectory() as directory:
            os.makedirs(f'{directory}/simgateway')
            os.makedirs(f'{directory}/bin')
            shutil.copy(ZULSTAT, f'{directory}/bin')
            os.symlink(os.path.realpath(SIM), f'{directory}/simgateway/zulstat-sim')
            result = subprocess.run([f'{directory}/bin/zulstat', 'demo', '-o', 'csv'], env=ENVIRONMENT | {'PATH': directory},
                                    capture_output=True, text=True, timeout=5, check=False)
            self.assertEqual((result.returncode, result.stdout), (6, ''), result)
            self.assertIn('zulstat-sim is neither beside zulstat nor in PATH', result.stderr)

    def test_demo_in_a_pipe(self):
        for end, code in ((signal.SIGTERM, 0), (signal.SIGKILL, -9), (None, 0)):
            with tempfile.TemporaryDirectory() as directory, started(
                    ZULSTAT, 'demo', '-o', 'jsonl', env=ENVIRONMENT | {'TMPDIR': directory}) as process:
                port = json.loads(process.stdout.readline())['target']['port']
                _ = process.send_signal(end) if end else process.stdout.close()
                self.assertEqual((process.wait(5), os.listdir(directory)), (code, []))
                deadline = time.monotonic() + 3
                while run(port, 'ids').returncode != 3:
                    self.assertLess(time.monotonic(), deadline, 'the simulator goes on')


class Dialogue(unittest.TestCase):
    def wait_for(self, terminal, text):
        shown, deadline = b'', time.monotonic() + 15
        while text.encode() not in shown:
            self.assertLess(time.monotonic(), deadline, (text, shown))
            shown += os.read(terminal, 65536) if select.select([terminal], [], [], 0.1)[0] else b''

    def dialogue(self, port, *arguments, end, talk, **environment):
        """Types keys and waits for texts to appear; the process has to end with 0 and the terminal as it was."""
        master, slave = pty.openpty()
        self.addCleanup(lambda: (os.close(master), os.close(slave)))
        termios.tcsetwinsize(slave, (20, 90))
        modes = termios.tcgetattr(slave)
        with started(ZULSTAT, *(['-p', port] if port else []), *arguments, env=ENVIRONMENT | environment, stdin=slave, stdout=slave) as process:
            for keys, text in talk:
                os.write(master, keys) if isinstance(keys, bytes) else keys()
                self.wait_for(master, text)
            os.write(master, end) if isinstance(end, bytes) else process.send_signal(end)
            self.assertEqual((process.wait(5), termios.tcgetattr(slave)), (0, modes))


class FullScreen(Dialogue):
    def test_top_and_watch(self):
        with contextlib.ExitStack() as stack:
            gateway = stack.enter_context(contextlib.ExitStack())
            port = gateway.enter_context(simulator())
            self.dialogue(port, 'top', ID, talk=[(b'', 'open.now')], end=signal.SIGTERM, LC_ALL='C')
            self.dialogue(port, 'watch', '0.2', ID, talk=[(b'', '\x1b[K'), (b'', ID)], end=signal.SIGINT)
            self.dialogue(port, 'top', '-i', '0.2', end=b'q', talk=[
                (b'', 'uptime.seconds'), (b'', '\u2588'), (b'/worker.q', 'worker.queue.now'), (b'\rh', 'leaves it'),
                (b'x', 'worker.queue.now'), (b'\r', 'first seen'), (b'\r\x1b', '\u25be worker'), (b'a', '\u25b8 server.foxtrot'),
                (b'a', '\u25be worker'), (b'p', 'paused'), (b'p', '\x1b['), (gateway.close, 'next attempt')])
            stays = stack.enter_context(simulator())
            other = contextlib.ExitStack()
            goes = other.enter_context(simulator())
            self.dialogue(stays, 'top', '-H', f'127.0.0.1:{goes},127.0.0.1:{stays}', end=b'q', talk=[
                (b'', 'uptime.seconds'), (b'tt', 'TARGET'), (other.close, 'lost the connection'), (b't', 'ID  ')])
        self.assertEqual([run(port, *words).returncode for words in (['top'], ['watch'], ['watch', '-j', '-r*'])], [2, 3, 2])

    def test_a_signal_ends_it_while_the_terminal_takes_nothing(self):
        with simulator() as port:
            for stop, command in ((b'\x13', 'top'), (b'', 'top'), (b'\x13', 'watch'), (b'', 'watch')):
                with self.subTest(stop=stop, command=command):
                    master, slave = pty.openpty()
                    self.addCleanup(lambda ends=(master, slave): [os.close(end) for end in ends])
                    termios.tcsetwinsize(slave, (200, 200))
                    modes = termios.tcgetattr(slave)
                    with started(ZULSTAT, '-p', port, command, '-i', '0.05', stdin=slave, stdout=slave) as process:
                        self.wait_for(master, 'open.now')
                        os.write(master, stop)  # Ctrl-S, or nobody reads
                        deadline = time.monotonic() + 20
                        while select.select([], [slave], [], 0.05)[1]:
                            os.write(master, b'?')  # top draws the help and the rows in turns
                            time.sleep(0.02)  # more keys than it takes would fill the terminal the other way
                            self.assertLess(time.monotonic(), deadline, 'the terminal is never full')
                        time.sleep(0.3)
                        process.send_signal(signal.SIGTERM)
                        self.assertEqual((process.wait(5), termios.tcgetattr(slave)), (0, modes))

    def test_keys_work_while_the_gateway_is_silent(self):
        with simulator(options=['--fault', 'invoke:silent']) as port:
            self.dialogue(port, 'top', talk=[(b'', 'waiting for all statistics')], end=b'q')


if __name__ == '__main__':
    signal.signal(signal.SIGINT, signal.default_int_handler)  # a job in the background inherits that it is ignored
    unittest.main(argv=sys.argv[:1], verbosity=1)
