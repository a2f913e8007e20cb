#!/usr/bin/env python3
"""Recordings as their users make and see them: record through restarts and kills, and --from of the commands.

    record_test.py ZULSTAT ZULSTAT_SIM
"""
import contextlib
import json
import os
import pathlib
import resource
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from watch_test import ENVIRONMENT, ID, ZULSTAT, Dialogue, run, simulator, started

BEGIN = 1795231920  # 2026-11-21T03:32:00Z


def zulstat(*arguments, **options):
    return subprocess.run([ZULSTAT, *map(str, arguments)], capture_output=True, text=True, env=ENVIRONMENT | {'TZ': 'UTC'},
                          timeout=30, **options)


def document(number, target='gw1', elements=None, **more):
    items = [{'id': 'a.total', 'value': str(number * 10)}, {'id': 'a.state', 'value': 'RUNNING' if number % 40 < 30 else 'IDLE'},
             {'id': 'a.odd', 'value': '\x1b[31m\u202e'}]
    return {'schema': 'zulstat/1', 'target': {'host': target, 'port': 7531}, 'protocol': '1_0_0_0',
            'query': {'what': 'stats', 'ids': []}, 'time': '', 'wall': BEGIN + number, 'monotonic': 500.0 + number,
            'open_seconds': 0, 'query_seconds': 0, 'fresh_connection': number == 0, 'size': 99,
            'elements': elements or [{'element': 'a', 'rc': 0, 'items': items}]} | more


def gap(number, target='gw1', why='lost \x1b[31m it'):
    return document(number, target, [{'element': '', 'rc': -102, 'items': []}], gap=why, protocol='', size=0)


class Directory(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.file = f'{self.directory.name}/r.jsonl'

    def write(self, documents):
        pathlib.Path(self.file).write_text(''.join(json.dumps(d, separators=(',', ':')) + '\n' for d in documents), 'utf-8')
        return self.file

    def documents(self, file=None, *arguments):
        shown = zulstat('watch', '--from', file or self.file, '-j', *arguments)
        return [json.loads(line) for line in shown.stdout.splitlines()]


def is_gap(one):
    return one['elements'][0]['element'] == ''


class Record(Directory):
    def wait_for(self, condition, what):
        deadline = time.monotonic() + 20
        while not condition():
            self.assertLess(time.monotonic(), deadline, what)
            time.sleep(0.05)

    def test_restarts_and_kills_of_either_side(self):
        for ending in ('', '.zst'):
            file = self.file + ending
            record = lambda port, *more: started(ZULSTAT, 'record', file, '-i', '0.05', '-p', port, *more)  # noqa: E731
            grown = lambda size=0: os.path.exists(file) and os.path.getsize(file) > size  # noqa: E731
            with self.subTest(ending), contextlib.ExitStack() as stack:
                with simulator() as port:
                    for _ in range(3):
                        with record(port) as process:
                            size = os.path.getsize(file) if os.path.exists(file) else 0
                            self.wait_for(lambda: grown(size + 2000), 'samples')  # pylint: disable=cell-var-from-loop
                            process.kill()
                    size = os.path.getsize(file)
                    process = stack.enter_context(record(port))
                    self.wait_for(lambda: grown(size + 2000), 'samples')  # pylint: disable=cell-var-from-loop
                    other = run(port, 'record', file)
                    self.assertEqual((other.returncode, 'another program records into it' in other.stderr), (6, True), other)
                    time.sleep(0.5)
                self.assertRegex(process.stderr.readline(), r'^zulstat: (lost the|cannot) .*; trying again$')
                with simulator(port):
                    self.assertIn('again after', process.stderr.readline())
                    time.sleep(0.3)
                    process.send_signal(signal.SIGTERM)
                    self.assertEqual((process.wait(5), process.stderr.read()), (0, ''))
                gaps = [d.get('gap', '') for d in self.documents(file) if is_gap(d)]
                self.assertEqual((gaps[:3], len(gaps)), (3 * ['the recording was not running'], 4))
                self.assertRegex(gaps[3], '127.0.0.1')
                self.assertGreater(len([d for d in self.documents(file) if not is_gap(d)]), 10)

    def test_waits_for_a_gateway_that_is_not_there_yet(self):
        with simulator() as port:
            pass
        with started(ZULSTAT, 'record', self.file, '-i', '0.1', '-p', port, '-c', '2') as process:
            self.assertRegex(process.stderr.readline(), 'cannot connect .*; trying again')
            with simulator(port):
                self.assertEqual(process.wait(10), 0)
        self.assertEqual([is_gap(d) for d in self.documents()], [True, False, False])

    def test_a_full_file_system_is_told_and_left(self):
        file = self.file + '.zst'
        with simulator() as port, started(ZULSTAT, 'record', file, '-i', '0.05', '-p', port) as process:
            self.wait_for(lambda: os.path.exists(file) and os.path.getsize(file) > 4000, 'samples')
            former = resource.prlimit(process.pid, resource.RLIMIT_FSIZE, (os.path.getsize(file), resource.RLIM_INFINITY))
            self.assertIn('takes no more samples', process.stderr.readline())
            resource.prlimit(process.pid, resource.RLIMIT_FSIZE, former)
            self.assertIn('takes samples again', process.stderr.readline())
            time.sleep(0.3)
            process.send_signal(signal.SIGINT)
            self.assertEqual((process.wait(5), process.stderr.read()), (0, ''))
        kinds = [is_gap(d) for d in self.documents(file)]
        self.assertEqual((kinds.count(True), kinds[0], kinds[-1]), (1, False, False))

    def test_several_gateways_and_a_replay(self):
        with simulator() as one, simulator() as other:
            result = zulstat('-H', f'127.0.0.1:{one},127.0.0.1:{other}', 'record', self.file, '-i', '0.1', '-c', '3', '-g', 'conn')
            self.assertEqual((result.returncode, result.stdout + result.stderr), (0, ''))
        self.assertEqual(sorted(str(d['target']['port']) for d in self.documents()), sorted(3 * [one, other]))
        table = zulstat('stats', ID, '--from', self.file, '-q')
        self.assertEqual((table.returncode, {line.split()[0] for line in table.stdout.splitlines()}),
                         (0, {'TARGET', f'127.0.0.1:{one}', f'127.0.0.1:{other}'}))
        self.assertEqual(zulstat('check', ID, '--from', self.file, '-w', '0:100000').returncode, 0)

        # Recorded, served from the recording, and recorded again.
        again = self.file + '.again.zst'
        whole = self.file + '.whole.zst'
        with simulator() as port:
            run(port, 'record', whole, '-i', '0.2', '-c', '6')
        with simulator(speed='1', options=['--replay', whole]) as port:
            run(port, 'record', again, '-i', '0.05', '-c', '30')
        contents = [[d['elements'] for d in self.documents(file)] for file in (whole, again)]
        contents[1] = [e for e, former in zip(contents[1], [None, *contents[1]]) if e != former]
        self.assertEqual(contents[1], contents[0])

    def test_mistakes(self):
        for arguments, message in ((['record'], 'FILE is required'), (['record', self.file, '--keep', '3'], '--keep goes with --rotate'),
                                   (['record', self.file, '--rotate', '1w'], "'1w' is not a time such as"),
                                   (['stats', '--at', '-1m'], '--at goes with --from'),
                                   (['watch', '--from', self.file, '--at', '3'], "'3' is not a time such as"),
                                   (['watch', '--from', self.file, '-p', '1'], '--port is about Gateways'),
                                   (['@x', 'top', '--from', self.file], 'there is no target'),
                                   (['watch', '--from', self.file], 'No such file'), (['top', '--from', '/'], 'directory')):
            with self.subTest(arguments):
                result = zulstat(*arguments)
                self.assertEqual((result.returncode, message in result.stderr), (2, True), result)
        result = zulstat('record', '/nosuch/r')
        self.assertEqual((result.returncode, result.stderr), (6, 'zulstat: /nosuch/r: No such file or directory\n'))


class From(Directory):
    def test_watch(self):
        texts = [document(n) for n in range(5)] + [gap(5), gap(6)] + [document(n, fresh_connection=n == 20) for n in range(20, 25)]
        self.write(texts)
        with open(self.file, 'a', encoding='utf-8') as file:
            file.write('{"schema":"zulstat/1"')
        result = zulstat('watch', 'a.total', '-r', '*', '--from', self.file)
        self.assertEqual(result.stderr, f'zulstat: {self.file}: passed over what is no whole sample, lines: 1\n')
        table = result.stdout.splitlines()
        self.assertEqual([' '.join(line.split()[1:]) for line in table], [
            'ID VALUE', 'a.total -', *4 * ['a.total 10.0/s'], '-- no connection --', 'a.total -', *4 * ['a.total 10.0/s']])
        self.assertEqual(table[6][:24], '2026-11-21T03:32:05.000Z')
        copy = self.documents()
        del texts[6]  # a gap is shown once
        self.assertEqual([{**d, 'time': '', 'elements': [{**e, 'items': [
            {k: v for k, v in item.items() if k != 'number'} for item in e['items']]} for e in d['elements']]} for d in copy], texts)
        numbers = lambda *more: [round(d['wall'] - BEGIN) for d in self.documents(None, *more)]  # noqa: E731
        self.assertEqual(numbers('--at', '03:32:03.5', '--to', '2026-11-21T03:32:21Z'), [3, 4, 5, 20, 21])
        self.assertEqual(numbers('--at', '-2s'), [22, 23, 24])
        self.assertEqual(numbers('-c', '6'), [0, 1, 2, 3, 4, 5, 20])
        self.assertEqual(numbers('-i', '2'), [0, 2, 4, 5, 20, 22, 24])
        start = time.monotonic()
        self.assertEqual(numbers('--speed', '40'), [0, 1, 2, 3, 4, 5, 20, 21, 22, 23, 24])
        self.assertTrue(0.5 < time.monotonic() - start < 15)
        self.assertIn('begins at 2026-11-21T03:32:00.000Z only', zulstat('watch', '--from', self.file, '--at', '@5').stderr)
        csv = zulstat('watch', '--wide', '-o', 'csv', '--lf', 'a.total', '--from', self.file).stdout.splitlines()
        self.assertEqual(csv[6], '2026-11-21T03:32:05.000Z,gw1:7531,')

    def test_stats_and_check(self):
        self.write([document(n) for n in range(60)] + [gap(60)] + [document(n, fresh_connection=n == 70) for n in range(70, 80)] +
                   [gap(80)])
        at = lambda *arguments: zulstat(*arguments, '--from', self.file)  # noqa: E731
        shown = at('stats', '-I', 'a.total', '--at', '03:32:30.9')
        self.assertEqual((shown.returncode, shown.stdout.split()[3:5]), (0, ['a.total', '300']))
        self.assertIn('the sample of 2026-11-21T03:32:30.000Z', shown.stderr)
        last = at('stats', '-o', 'plain')
        self.assertEqual(last.stdout.splitlines()[0], 'a.total\t790\ta\t0')
        self.assertIn(r'no sample of gw1:7531 from 2026-11-21T03:33:20.000Z on: lost \x1b[31m it', last.stderr)
        self.assertEqual(at('stats', 'a.total', 'nosuch').returncode, 1)
        self.assertIn('it has no statistic nosuch', at('stats', 'nosuch').stderr)
        for arguments, code, text in (
                (['a.total', '--at', '03:32:30', '-w', '290'], 1, 'WARNING - a.total is 300 |'),
                (['a.total', '--at', '03:32:30', '--rate', '-i', '5'], 0, 'OK - a.total is 10.0/s |'),
                (['a.total', '--at', '03:32:30', '--delta', '-i', '20'], 0, 'OK - a.total is +200 |'),
                (['a.total', '--at', '03:33:12', '--rate', '-i', '1'], 0, 'OK - a.total is 10.0/s |'),
                (['a.total', '--at', '03:33:12', '--rate', '-i', '30'], 3, 'UNKNOWN - a.total has no former value'),
                (['a.state', '--at', '03:32:35', '--expect', 'RUNNING'], 2, 'CRITICAL - a.state is IDLE, expected RUNNING'),
                (['a.total', '--at', '03:33:05'], 2, r'CRITICAL - no sample at 2026-11-21T03:33:00.000Z: lost \x1b[31m it'),
                (['a.total', '--at', '@1'], 3, 'UNKNOWN - ')):
            with self.subTest(arguments):
                result = at('check', *arguments)
                self.assertEqual((result.returncode, text in result.stdout, result.stderr), (code, True, ''), result)

    def test_clocks_that_were_wrong(self):
        value = lambda at: zulstat('stats', 'a.total', '--from', self.file, '--at', at, '-o', 'plain', '-q').stdout.split('\t')[1:2]  # noqa: E731
        numbers = lambda *more: [round(d['monotonic'] - 500) for d in self.documents(None, *more)]  # noqa: E731
        self.write(document(n, **({'wall': 4e9} if n == 30 else {})) for n in range(120))
        self.assertEqual((value('-10s'), value('03:32:40')), (['1090'], ['400']))
        self.assertEqual(numbers('--to', '-10s'), [n for n in range(110) if n != 30])
        self.write(document(n, wall=BEGIN + n - (3600 if n >= 60 else 0)) for n in range(120))
        self.assertEqual((value('-10s'), value('03:32:10')), (['1090'], ['100']))
        self.assertEqual(numbers('--to', '-10s'), list(range(60, 110)))
        self.assertIn('begins at 2026-11-21T02:33:00.000Z only', zulstat('watch', '--from', self.file, '--to', '-70s').stderr)

    def test_check_of_several_gateways(self):
        at = lambda n, target, offset: document(n, target, wall=BEGIN + offset, monotonic=500 + offset)  # noqa: E731
        self.write(one for n in range(60) for one in (at(n, 'gw1', n * 1.0003), at(n, 'gw2', n * 1.0003 + 0.0002)))
        for arguments, value in ((['--rate'], '10.00/s'), (['--delta', '--at', '-5s', '-i', '2'], '+20'), (['--delta', '-i', '9'], '+90')):
            with self.subTest(arguments):
                result = zulstat('check', 'a.total', '--from', self.file, *arguments)
                self.assertEqual((result.returncode, result.stdout.count(f':7531 is {value}')), (0, 2), result)

    def test_hostile_files(self):
        texts = [document(1), document(2, elements=[{'element': '*', 'rc': 0, 'items': [{'id': '\x1b]0;x\x07', 'value': '<b>'}]}])]
        self.write(texts)
        with open(self.file, 'ab') as file:
            file.write(b'[' * 100000 + b'\n{"schema":"zulstat/1","elements":' + b'\xff' * 1000 + b'\n\0\0\0\n')
        self.assertNotIn('\x1b', zulstat('stats', '--from', self.file).stdout)
        self.assertEqual(len(self.documents()), 2)
        huge = self.file + '.huge'
        with open(huge, 'wb') as file:
            file.truncate(1 << 30)
        self.assertRegex(zulstat('watch', '--from', huge).stderr, '(?s)no whole sample, lines: 1.*has no sample')
        named = self.file + '.zst'
        os.rename(self.write(texts), named)
        self.assertRegex(zulstat('watch', '--from', named).stderr, '(?s)lines: 1.*has no sample: it is damaged: [A-Z]')
        self.write(texts)
        self.assertIn('begins at', zulstat('watch', '--from', self.file, '--to', '@1').stderr)
        self.assertIn('has no sample', zulstat('watch', '--from', __file__).stderr)


class Screen(Dialogue, Directory):
    def test_keys_of_top(self):
        # The screen writes what has changed, so these have no letter at the same place.
        word = lambda n: ''.join(chr(97 + (n * 7 + i * 3) % 26) for i in range(6))  # noqa: E731
        words = [document(n, elements=[{'element': 'a', 'rc': 0, 'items': [{'id': 'a.word', 'value': word(n)}]}])
                 for n in (*range(400), *range(420, 430))]
        self.write(words[:400] + [gap(400)] + words[400:])
        self.dialogue(None, 'top', '--from', self.file, '--at', '03:32:10', '--speed', '0.01', TZ='UTC', end=b'q', talk=[
            (b'', '2026-11-21 03:32:10  recorded, x0.01'), (b'>', word(310)), (b'.', word(320)), (b',', word(310)),
            (b'p', 'paused'), (b'n', word(311)), (b'<', word(11)), (b'.n', word(22)), (b'>>', 'the end'), (b',', 'no sample: ')])


if __name__ == '__main__':
    signal.signal(signal.SIGINT, signal.default_int_handler)  # a job in the background inherits that it is ignored
    unittest.main(argv=sys.argv[:1], verbosity=1)
