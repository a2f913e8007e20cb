#!/usr/bin/env python3
"""Runs zulstat as its users do, against simulated Gateways that behave and that do not.

    commands_test.py ZULSTAT ZULSTAT_SIM SLOW_RESOLVER ODD_SYSTEM ZULSTATS_H
"""
import contextlib
import csv
import datetime
import io
import json
import os
import pty
import re
import select
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

ZULSTAT, SIM, RESOLVER, SYSTEM, HEADER = sys.argv[1:6]
ENVIRONMENT = {k: v for k, v in os.environ.items() if not k.startswith('ZULSTAT_')} | {
    'LC_ALL': 'C.UTF-8', 'XDG_CONFIG_HOME': '/nosuch'}


@contextlib.contextmanager
def gateway(*faults, options=()):
    """Runs a Gateway; its port."""
    words = [word for fault in faults for word in ('--fault', fault)]
    with subprocess.Popen([SIM, '--port', '0', '--speed', '0', *options, *words], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE) as process:
        try:
            yield process.stdout.readline().decode().strip().rpartition(':')[2]
        finally:
            process.terminate()


def counted(characters):
    return struct.pack('>H', len(characters)) + characters


def class_description(name):
    return b'r' + counted(name) + bytes(8) + b'\x0c\0\0x'


def payload(elements):
    """Of the answer to a query: elements of text, return code and items, which are an identifier and a value each."""
    answer = b'\1' + struct.pack('>i', len(elements))
    for text, code, items in elements:
        block = counted(text) + struct.pack('>i', code) + (struct.pack('>i', len(items)) if code >= 0 else b'')
        answer += b'\xac\xed\0\5s' + class_description(b'Element') + class_description(b'Base') + b'p'
        answer += b'w' + bytes([len(block)]) + block
        for place, item in enumerate(items):
            block = b''.join(map(counted, item))
            answer += b's' + (b'q\0\x7e\0\3' if place else class_description(b'Item') + b'p')
            answer += b'w' + bytes([len(block)]) + block + b'x'
        answer += b'x'
    return answer


@contextlib.contextmanager
def answering(*elements):
    """Runs a Gateway that gives every query this answer; its port."""
    with tempfile.NamedTemporaryFile() as file:
        file.write(payload(elements))
        file.flush()
        with gateway(f'invoke:payload={file.name}:always') as port:
            yield port


def hostile():
    return answering(
        (b'line\nbreak', 0, [(b'tab\tid', b'a,b "quoted"\r\nsecond'), (b'\x1b[31mred', b'\xff\xfe\xe2\x82 not UTF-8'),
                             (b'back\\slash', b"|'=;"), (b'same', b'1'), (b'same', b'2'), (b'', b''), (b'nul\0id', b'x\0y')]),
        (b'bad\x07', -7, []),
        (b'line\nbreak', 0, [('gr\u00fc\u00df'.encode(), '\u202e reversed'.encode()), (b'big', b'18446744073709551615')]),
        (b'', 3, [(b'007', b'007'), (b'minus', b'-12.50'), (b'double', b'17.442674924057755')]))


def big():
    return answering((b'big', 0, [(b'i' * 50, b'v' * 50)] * 400))


def run(port, *arguments, text=True, **options):
    environment = ENVIRONMENT | options.pop('environment', {})
    return subprocess.run([ZULSTAT, '-p', str(port), *arguments], text=text, env=environment, timeout=30,
                          **{'stdout': subprocess.PIPE, 'stderr': subprocess.PIPE, **options})


def preloaded(library, **environment):
    return environment | {'LD_PRELOAD': library, 'ASAN_OPTIONS': 'verify_asan_link_order=0:detect_leaks=0'}


def worker_of(process):
    """The worker, once there is one."""
    deadline = time.monotonic() + 5
    while time.monotonic() < deadline:
        with open(f'/proc/{process.pid}/task/{process.pid}/children', encoding='ascii') as numbers:
            workers = numbers.read().split()
        if workers:
            return int(workers[0])
        time.sleep(0.01)
    raise AssertionError('no worker')


def free_port():
    with socket.socket() as probe:
        probe.bind(('127.0.0.1', 0))
        return probe.getsockname()[1]


def lines_of(text):
    return text.split('\n')[:-1]


def entries_json(output):
    document = json.loads(output)
    assert document['schema'] == 'zulstat/1'
    entries = []
    for element in document['elements']:
        head = (element['element'], element['rc'])
        entries += [(*head, '', '')] * (element['rc'] < 0)
        entries += [(*head, item['id'], item.get('value', str(item.get('statistics', '')))) for item in element['items']]
    return entries


def entries_csv(output):
    rows = list(csv.reader(io.StringIO(output.decode('utf-8', 'replace'), newline='')))
    assert rows[0] == ['time', 'target', 'element', 'rc', 'id', 'value']
    return [(row[2], int(row[3]), row[4], row[5]) for row in rows[1:]]


def entries_plain(output):
    rows = [line.split('\t') for line in lines_of(output.decode('utf-8', 'replace'))]
    return [(row[2], int(row[3]), row[0], row[1]) for row in rows]


SAMPLE = re.compile(r'(\w+)(?:\{(.*)\})? (\S+)')
LABEL = re.compile(r'(\w+)="((?:[^"\\\n]|\\.)*)",?')
ESCAPES = {'\\n': '\n', '\\"': '"', '\\\\': '\\'}


def metric_value(text):
    """A moment is a number in metrics."""
    moment = re.fullmatch(r'[\d-]+T[\d:]+Z', text)
    return f'{datetime.datetime.fromisoformat(text).timestamp():.0f}' if moment else text


def entries_openmetrics(output, port):
    lines = lines_of(output.decode())
    assert lines[-1] == '# EOF' and lines.count('# EOF') == 1
    entries, seen, family, families = [], set(), None, set()
    for line in lines[:-1]:
        if line.startswith('# TYPE '):
            family = line.split(' ')[2]
            assert family not in families, family
            families.add(family)
        elif not line.startswith('# HELP '):
            name, labels, value = SAMPLE.fullmatch(line).groups()
            assert name == family and (name, labels) not in seen and float(value) == float(value), line
            seen.add((name, labels))
            assert LABEL.sub('', labels or '') == '', line
            label = {k: re.sub(r'\\.', lambda m: ESCAPES[m[0]], v) for k, v in LABEL.findall(labels or '')}
            assert label.pop('target') == f'127.0.0.1:{port}', line
            if name == 'zulstat_element_rc':
                entries += [(label['element'], '', '')] * (float(value) < 0)
            elif 'id' in label:
                shown = '' if name == 'zulstat_identifier' else label.get('value', value)
                entries.append((label['element'], label['id'], shown))
    return entries


class Healthy(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.port = cls.enterClassContext(gateway())

    def test_formats_agree(self):
        for query in (['stats'], ['stats', '-g', 'conn', 'host:nosuch'], ['stats', 'host.name:host.load.1m', 'nosuch'],
                      ['ids'], ['ids', '-g', 'host'], ['groups'], ['groups', '-l']):
            with self.subTest(query):
                outputs = {f: run(self.port, *query, '-o', f, text=False).stdout
                           for f in ('json', 'jsonl', 'csv', 'plain', 'openmetrics', 'table')}
                expected = entries_json(outputs['json'])
                self.assertGreater(len(expected), 2)
                self.assertEqual(outputs['jsonl'].count(b'\n'), 1)
                self.assertEqual(entries_json(outputs['jsonl']), expected)
                self.assertEqual(entries_csv(outputs['csv']), expected)
                lf = run(self.port, *query, '-o', 'csv', '--lf', text=False).stdout
                self.assertEqual((entries_csv(lf), lf.count(b'\r'), outputs['csv'].count(b'\r\n')),
                                 (expected, 0, lf.count(b'\n')))
                self.assertEqual(entries_plain(outputs['plain']), expected)
                self.assertCountEqual(entries_openmetrics(outputs['openmetrics'], self.port),
                                      [(e, i, metric_value(v)) for e, _, i, v in expected])
                rows = lines_of(outputs['table'].decode())[1:]
                self.assertEqual([row.split()[0] for row in rows], [i or e for e, _, i, _ in expected])
                self.assertTrue(all(v in row for row, (_, _, _, v) in zip(rows, expected)))

    def test_promtool_accepts_openmetrics(self):
        metrics = run(self.port, 'stats', '-o', 'openmetrics').stdout
        subprocess.run(['promtool', 'check', 'metrics'], input=metrics, text=True, check=True, timeout=30)

    def test_exit_codes(self):
        port = self.port
        for code, arguments in (
                (0, ['stats']), (0, ['ping', '-c', '2', '-i', '0']), (0, ['explain', '-122', 'no-memory']),
                (0, ['watch', '--help']), (0, ['-V']), (0, ['stats', '-I', '*', '-o', 'csv', '-H', 'localhost']),
                (1, ['stats', 'nosuch']), (1, ['stats', '-I', 'nosuch*']), (1, ['explain', '77']),
                (2, []), (2, ['stats', '-Z']), (2, ['stats', '-o', 'xml']), (2, ['-T', 'nan', 'stats']),
                (2, ['stats', 'a', '-g', 'b']), (2, ['stats', '']), (2, ['stats', 'x' * 32766]), (2, ['-p', '0', 'ids']),
                (2, ['watch', '1', '2', '-i', '3']), (2, ['watch', '0']), (2, ['nosuch']), (2, ['-H', '', 'ids']),
                (3, ['stats', '-p', str(free_port())]), (3, ['stats', '-H', 'nosuch.invalid']),
                (6, ['stats', '--trace-file', '/nosuch/file', '--trace', '1']),
                (0, ['check', 'host.cpu.count', '-w', '1:', '-c', '1:']), (1, ['check', 'host.cpu.count', '-w', '@1:99']),
                (2, ['check', 'host.cpu.count', '-w', '1', '-c', '~:1']), (2, ['check', 'x', '-p', str(free_port())]),
                (3, ['check', 'nosuch']), (3, ['check', 'host.name', '-w', '1']), (3, ['check', 'x', '-w', 'y']),
                (3, ['check']), (2, ['stats', '--trace-file', 'x'])):
            with self.subTest(arguments):
                result = run(port, *arguments)
                self.assertEqual(result.returncode, code, result)
                self.assertEqual(result.stdout.startswith('ZULSTAT '), arguments[:1] == ['check'], result)
                silent = code == 0 or (arguments[:1] == ['check'] and 'try ' not in result.stderr)
                self.assertEqual(result.stderr == '', silent, result)

        self.assertEqual(run(port, 'check', 'host.cpu.count', '-w', '10', '-c', '5:20').stdout,
                         "ZULSTAT OK - host.cpu.count is 8 | 'host.cpu.count'=8;10;5:20\n")

    def test_environment_and_flags(self):
        environment = {'ZULSTAT_PORT': '1', 'ZULSTAT_HOST': 'nosuch.invalid', 'ZULSTAT_TIMEOUT': '9'}
        result = run(self.port, 'groups', '-H', '127.0.0.1', '--no-header', environment=environment)
        self.assertIn('conn', lines_of(result.stdout))
        result = run(self.port, 'groups', environment={'ZULSTAT_TIMEOUT': 'x'})
        self.assertEqual((result.returncode, 'ZULSTAT_TIMEOUT' in result.stderr), (2, True), result)

    def test_what_was_meant_is_offered(self):
        for arguments, meant in ((['stat'], 'stats'), (['gruops', 'x'], 'groups'), (['--timeuot', '1', 'ids'], '--timeout'),
                                 (['watch', '--no-reconect'], '--no-reconnect'), (['--versoin'], '--version')):
            result = run(self.port, *arguments)
            self.assertEqual((result.returncode, f"; did you mean '{meant}'?" in result.stderr), (2, True), result)
        for arguments, meant in ((['stats', 'host.load.1n', 'conn.open.nwo'], 'host.load.1m, conn.open.now'),
                                 (['ids', '-g', 'hots'], 'host')):
            self.assertIn(f'hint: Did you mean {meant}?\n', run(self.port, *arguments).stderr)
        self.assertNotIn('mean', run(self.port, 'stats', 'zzzzzz').stderr + run(self.port, 'zzzzzz').stderr)

    def test_globs(self):
        ids = [line.split()[0] for line in lines_of(run(
            self.port, '-X', '*.total', 'stats', '-g', 'conn', '-I', 'conn.[l-z]*', '-X', '*', '--no-header').stdout)]
        self.assertIn('conn.limit', ids)
        self.assertFalse([i for i in ids if i.endswith('.total') or not re.match('conn.[l-z]', i)])

    def test_codes_are_those_of_the_header(self):
        with open(HEADER, encoding='utf-8') as header:
            defined = {name: int(number.strip('()'))
                       for name, number in re.findall(r'#define (STAPI_RC_\w+) (\(?-?\d+\)?)', header.read())}
        listed = {name: int(number) for number, name in re.findall(r'^ *(-?\d+)  (\w+)$', run(1, 'explain').stdout, re.M)}
        self.assertEqual(listed, defined)
        by_number = run(1, 'explain', *map(str, defined.values())).stdout
        self.assertEqual(by_number, run(1, 'explain', *defined).stdout)
        self.assertEqual(by_number.count('What to do:'), len(defined))

    def test_output_that_cannot_be_written(self):
        with open('/dev/full', 'w', encoding='utf-8') as full:
            result = run(self.port, 'stats', stdout=full)
            self.assertEqual((result.returncode, result.stderr.count('\n')), (6, 1))
            for arguments in ['host.name'], []:
                self.assertEqual(run(self.port, 'check', *arguments, stdout=full).returncode, 3)
        for output in ('stats -o json', '--help', 'explain'):
            read_end, write_end = os.pipe()
            os.close(read_end)
            result = run(self.port, *output.split(), stdout=write_end)
            os.close(write_end)
            self.assertEqual((result.returncode, result.stderr), (0, ''))


class Several(unittest.TestCase):
    def test_each_format_has_all_gateways(self):
        with gateway() as one, gateway() as other, gateway('invoke:silent:always') as silent:
            names = [f'127.0.0.1:{port}' for port in (one, other)]
            hosts = ['-H', ','.join(names), '-H', f'127.0.0.1:{free_port()},127.0.0.1:{silent}']
            query = ['stats', 'host.name', 'host.laod.1m']
            start = time.monotonic()
            results = {f: run(1, '-T', '1', *hosts, *query, '-o', f)
                       for f in ('table', 'plain', 'jsonl', 'csv', 'openmetrics')}
            self.assertLess(time.monotonic() - start, 15)
            counts = run(1, '-H', ','.join(names), 'groups', '-l', '-I', 'conn', '--no-header').stdout
            alone = run(one, *query, '-o', 'openmetrics')
            pinged = run(1, '-T', '1', *hosts, 'ping', '-c', '1')
            checked = run(1, '-H', ','.join(names), '-X', '*', 'ids')
        for form, result in results.items():
            with self.subTest(form):
                self.assertEqual(result.returncode, 4)
                self.assertRegex(result.stderr, r"""(?x)^zulstat:\ cannot\ connect\ to\ 127.*\nzulstat:\ hint:.*
                    \nzulstat:\ no\ answer\ from\ 127\.0\.0\.1:%s\ within.*\nzulstat:\ hint:.*
                    \nzulstat:\ 2\ of\ 4\ Gateways\ gave\ no\ answer;\ 2\ of\ 4\ query\ elements\ failed:
                    \ host.laod.1m\ \(rc\ -1,\ %s\),\ host.laod.1m\ \(rc\ -1,\ %s\)
                    \nzulstat:\ hint:\ Did\ you\ mean\ host.load.1m\?\n$""" % (silent, *names))
        rows = lines_of(results['table'].stdout)
        self.assertEqual([re.split('  +', row) for row in rows], [['TARGET', 'ID', 'VALUE']] + [
            [name, *rest] for name in names for rest in (['host.name', 'zulhost'], ['host.laod.1m', 'failed, rc -1'])])
        self.assertEqual(results['plain'].stdout, ''.join(
            f'host.name\tzulhost\thost.name\t0\t{name}\n\t\thost.laod.1m\t-1\t{name}\n' for name in names))
        self.assertEqual([json.loads(line)['target']['port'] for line in lines_of(results['jsonl'].stdout)],
                         [int(one), int(other)])
        self.assertEqual([row[1] for row in csv.reader(lines_of(results['csv'].stdout))],
                         ['target', names[0], names[0], names[1], names[1]])
        both = lines_of(results['openmetrics'].stdout)
        self.assertEqual([line.split('{')[0] for line in both if names[1] not in line],
                         [line.split('{')[0] for line in lines_of(alone.stdout)])
        self.assertEqual(sum(name in line for line in both for name in names[1:]), sum('{' in line for line in both) // 2)
        self.assertEqual(counts, ''.join(f'{name}  conn  16\n' for name in names))
        self.assertEqual((pinged.returncode, pinged.stdout.count('query 1: '), pinged.stdout.count(f'{names[1]}: 1 query, ')),
                         (4, 2, 1), pinged)
        self.assertEqual((checked.returncode, checked.stderr.count('nothing of')), (1, 1), checked)


class Check(unittest.TestCase):
    MAP = """modules: {default: {rules: [{match: host.load.1m, type: gauge, name: x, scale: 10},
        {match: conn.accepted.total, type: counter, name: y}, {match: host.load.5m, type: drop},
        {match: daemon.state, type: stateset, name: z, states: [STOPPED]}]}}"""

    def test_several_statistics_are_one_line(self):
        with tempfile.NamedTemporaryFile('w') as file, gateway() as port:
            file.write(self.MAP)
            file.flush()
            for code, arguments, line in (
                    (1, ['host.load.1m', 'host.load.1*', '-w', '4'],
                     "WARNING - 1 of 2 not ok: host.load.1m is 8.04 (warning) "
                     "| 'host.load.1m'=8.04;4; 'host.load.15m'=3.44;4;"),
                    (0, ['host.load.*', '-X', '*.5m', 'host.name'], "OK - 3 ok: host.load.1m is 8.04; host.load.15m is 3.44; "
                     "host.name is zulhost | 'host.load.1m'=8.04;; 'host.load.15m'=3.44;;"),
                    (3, ['host.load.1m:nosuch', 'x*', '-w', '4'],
                     "UNKNOWN - 3 of 3 not ok: the Gateway has no statistic nosuch (unknown); "
                     "nothing matches x* (unknown); host.load.1m is 8.04 (warning) | 'host.load.1m'=8.04;4;"),
                    (2, ['daemon.state', '--expect', 'STOPPED,FAILED'],
                     'CRITICAL - daemon.state is RUNNING, expected STOPPED or FAILED'),
                    (0, ['daemon.state', '--expect', 'STOPPED,RUNNING'], 'OK - daemon.state is RUNNING'),
                    (3, ['host.load.*', 'conn.accepted.total', 'daemon.state', '--map', file.name],
                     'UNKNOWN - 1 of 4 not ok: daemon.state is RUNNING, which is none of its states (unknown) | '
                     "'host.load.1m'=80.39999999999999;; 'host.load.15m'=3.44;; 'conn.accepted.total'=1703965c;;"),
                    (0, ['host.load.1m', '--delta', '-i', '0.05', '-w', '0'],
                     "OK - host.load.1m is 0 | 'host.load.1m'=0;0;"),
                    (3, ['daemon.state', '--rate', '-i', '0.05'], 'UNKNOWN - daemon.state is RUNNING, which is not a number')):
                with self.subTest(arguments):
                    result = run(port, 'check', *arguments)
                    self.assertEqual((result.returncode, result.stdout), (code, f'ZULSTAT {line}\n'), result)
            for arguments in (['a', '--rate', '--delta'], ['a', '--rate', '-T', '1'], ['a', '--expect', ','],
                              ['a', '--expect', 'b', '-w', '1'], []):
                result = run(port, 'check', *arguments)
                self.assertEqual((result.returncode, result.stdout[:18], result.stdout.count('\n')),
                                 (3, 'ZULSTAT UNKNOWN - ', 1), result)

    def test_two_samples(self):
        with gateway(options=('--speed', '100')) as port:
            counter = 'conn.requests.total'
            rate = run(port, 'check', counter, '--rate', '-i', '0.2', '-w', '1:')
            self.assertRegex(rate.stdout, f"^ZULSTAT OK - {counter} is \\d+/s \\| '{counter}'=\\d+(\\.\\d+)?;1:;\n$")
            delta = run(port, 'check', counter, '--delta', '-i', '0.2', '-c', '@1:')
            self.assertRegex(delta.stdout, f"^ZULSTAT CRITICAL - {counter} is \\+\\d+ \\| '{counter}'=\\d+;;@1:\n$")

    def test_second_sample_may_fail(self):
        counter = 'conn.requests.total'
        for fault, words in (('silent', r'no answer from 127\.0\.0\.1:{} within 0\.6 s \(connection open.*'),
                             ('close-after=0', r'lost the connection to 127\.0\.0\.1:{} during a query.*')):
            with gateway('invoke:healthy:1', f'invoke:{fault}:always') as port:
                result = run(port, 'check', counter, '--rate', '-i', '0.1', '-T', '0.6')
                self.assertRegex(result.stdout, f'^ZULSTAT CRITICAL - {words.format(port)}\n$')
                self.assertEqual((result.returncode, result.stderr), (2, ''))

    def test_several_gateways(self):
        with gateway() as one, gateway() as other:
            names = [f'127.0.0.1:{port}' for port in (one, other)]
            both = ['-H', ','.join(names), 'check', 'host.load.1m']
            data = ' '.join(f"'{name} host.load.1m'=8.04;4;" for name in names)
            self.assertEqual(run(1, *both, '-w', '4').stdout, 'ZULSTAT WARNING - 2 of 2 not ok: ' + '; '.join(
                f'host.load.1m of {name} is 8.04 (warning)' for name in names) + f' | {data}\n')
            result = run(1, '-H', f'127.0.0.1:{free_port()}', *both, '-w', '4')
            self.assertRegex(result.stdout, r'^ZULSTAT CRITICAL - 3 of 3 not ok: cannot connect to .*\(critical\); host.load')
            self.assertEqual((result.returncode, result.stdout.partition(' | ')[2]), (2, data + '\n'))


class Configuration(unittest.TestCase):
    def setUp(self):
        self.home = self.enterContext(tempfile.TemporaryDirectory())
        self.system = self.enterContext(tempfile.TemporaryDirectory())
        self.environment = {'XDG_CONFIG_HOME': self.home, 'XDG_CONFIG_DIRS': f'/nosuch:{self.system}'}

    def write(self, directory, text):
        with open(f'{directory}/zulstat.yaml', 'w', encoding='utf-8') as file:
            file.write(text)

    def zulstat(self, *arguments, **environment):
        return subprocess.run([ZULSTAT, *arguments], text=True, env=ENVIRONMENT | self.environment | environment, timeout=30,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)

    def test_targets_and_selections(self):
        with gateway() as one, gateway() as other:
            self.write(self.home, f'targets: {{lab: "127.0.0.1:{one}", prod: [127.0.0.1:{one}, "127.0.0.1:{other}"]}}')
            self.write(self.system, f"""
                targets: {{lab: 127.0.0.1:1}}
                selections:
                  load: ["host.load.1*", host.name]
                  plain: [host.name, nosuch]
                  web: {{groups: [conn]}}""")
            for arguments, code, ids in ((['@lab', 'stats', '@load'], 0, ['host.name', 'host.load.1m', 'host.load.15m']),
                                         (['-q', '@lab', 'stats', '@load', '-X', '*.1m', 'host.load.5m'], 0,
                                          ['host.name', 'host.load.5m', 'host.load.15m']),
                                         (['-q', '@lab', 'stats', '@plain'], 1, ['host.name', '']),
                                         (['@lab', 'watch', '@plain', '0.1', '1', '-q'], 1, ['host.name', '']),
                                         (['@lab', 'stats', ':@load', '-q'], 1, [''])):
                with self.subTest(arguments):
                    result = self.zulstat(*arguments, '-o', 'csv', ZULSTAT_HOST='nosuch.invalid')
                    self.assertEqual((result.returncode, [row[4] for row in csv.reader(lines_of(result.stdout))][1:]),
                                     (code, ids), result)
            both = self.zulstat('-T', '5', '@prod', 'stats', '@web', '-I', 'conn.open.now', '--no-header')
            self.assertEqual([row.split()[0] for row in lines_of(both.stdout)], [f'127.0.0.1:{p}' for p in (one, other)])
            checked = self.zulstat('@lab', 'check', '@load', '-w', '1')
            self.assertRegex(checked.stdout, '^ZULSTAT UNKNOWN - 3 of 3 not ok: host.name is zulhost, which is not a number')
            for arguments, message in ((['@prud', 'ids'], r"no target '@prud'; did you mean 'prod'\?"),
                                       (['stats', '@laod'], r"no selection '@laod'; did you mean 'load'\?"),
                                       (['stats', '@prod'], 'a target stands before the command'),
                                       (['@lab', '@prod', 'ids'], f'the Gateway 127.0.0.1:{one} is named twice'),
                                       (['@lab', 'stats', '@load', '@web'], 'exclude each other')):
                result = self.zulstat(*arguments)
                self.assertEqual(result.returncode, 2, result)
                self.assertRegex(result.stderr, message)

    def test_what_is_in_force(self):
        self.write(self.home, 'options:\n  port: 7000\n  timeout: 2\n  quiet: true\n  lf: false\n')
        self.write(self.system, 'options: {port: 7001,\n  host: [a, "b:1"]}\ntargets: {lab: c}\nselections:\n  s: [x, y]\n')
        def rows(*arguments, **environment):
            result = self.zulstat('config', *arguments, **environment)
            self.assertEqual((result.returncode, result.stderr), (0, ''), result)
            return {row[1]: (row[0], *row[2:]) for row in (re.split('  +', line) for line in lines_of(result.stdout))}
        shown = rows('--trace=1', '-Ia*', ZULSTAT_TIMEOUT='3')
        for name, row in {'host': ('option', 'a:7000,b:1', f'{self.system}/zulstat.yaml:2'),
                          'port': ('option', '7000', f'{self.home}/zulstat.yaml:2'),
                          'timeout': ('option', '3', 'ZULSTAT_TIMEOUT'),
                          'quiet': ('option', 'true', f'{self.home}/zulstat.yaml:4'),
                          'lf': ('option', 'false', f'{self.home}/zulstat.yaml:5'), 'trace': ('option', '1', 'command line'),
                          'include': ('option', 'a*', 'command line'), 'verbose': ('option', 'false', 'default'),
                          '@lab': ('target', 'c', f'{self.system}/zulstat.yaml:3'),
                          '@s': ('selection', 'x y', f'{self.system}/zulstat.yaml:5')}.items():
            self.assertEqual(shown.get(name), row)
        self.assertEqual(rows('-qp', '9', ZULSTAT_HOST='d')['host'], ('option', 'd:9', 'ZULSTAT_HOST'))
        self.environment = {'XDG_CONFIG_HOME': '/nosuch'}
        self.assertEqual(rows()['host'], ('option', '127.0.0.1:7531', 'default'))

    def test_mistakes_are_named_with_their_place(self):
        for text, place, message in (('options: {prt: 1}', '1:11', "unknown key 'prt', expected host, port"),
                                     ('options:\n  port: 0', '2', 'not in range'),
                                     ('options: {lf: 1}', '1', 'not true or false'),
                                     ('targets: {a: "b:x"}', '1:14', 'not a host and a port'),
                                     ('targets: {a: []}', '1:14', 'expected'),
                                     ('selections: {a: {ids: [b], groups: [c]}}', '1:17', 'expected'),
                                     ('selections: {"a b": c}', '1:21', 'not a name'), ('a: [', '1:1', 'end of')):
            with self.subTest(text):
                self.write(self.home, text)
                result = self.zulstat('explain', 'no-memory')
                self.assertEqual((result.returncode, result.stdout), (2, ''), result)
                self.assertRegex(result.stderr, f'^zulstat: {self.home}/zulstat.yaml:{place}: .*{message}')
                self.assertEqual(self.zulstat('--help').returncode, 0)
                self.assertTrue(self.zulstat('check', 'x').stdout.startswith('ZULSTAT UNKNOWN - '))


class Completion(unittest.TestCase):
    def test_words_are_plain_and_kept(self):
        with tempfile.TemporaryDirectory() as cache:
            environment = {'XDG_CACHE_HOME': f'{cache}/new'}
            recording = f'{cache}/recording'
            with gateway() as port, open(recording, 'w', encoding='utf-8') as file:
                document = json.loads(run(port, 'stats', '-g', 'conn', '-j').stdout)
                odd = ('b$(date)', 'two words', 'a.b-1', 'c`d`', '\u00fc', 'e"', "f'")
                for item, name in zip(document['elements'][0]['items'], odd):
                    item['id'] = name
                json.dump(document, file)
            with gateway(options=('--replay', recording)) as port:
                words = run(port, 'complete', 'ids', environment=environment)
                others = sorted(item['id'] for item in document['elements'][0]['items'][7:])
                self.assertEqual((words.returncode, lines_of(words.stdout), words.stderr), (0, ['a.b-1', *others], ''))
            self.assertEqual(run(port, 'complete', 'ids', environment=environment).stdout, words.stdout)
            kept = [os.path.join(place, name) for place, _, names in os.walk(f'{cache}/new') for name in names]
            self.assertEqual((len(kept), os.stat(os.path.dirname(kept[0])).st_mode & 0o777), (1, 0o700))
            os.utime(kept[0], (0, 0))
            self.assertEqual(run(port, 'complete', 'ids', environment=environment).stdout, words.stdout)
            with gateway('invoke:silent:always') as silent:
                start = time.monotonic()
                self.assertEqual(run(silent, 'complete', 'ids', environment=environment).stdout, '')
                self.assertLess(time.monotonic() - start, 5)
            with gateway() as port:
                self.assertIn('conn\n', run(port, 'complete', 'groups', environment={'XDG_CACHE_HOME': '/dev/null'}).stdout)


class Stalling(unittest.TestCase):
    def check_deadline(self, port, waiting, *arguments, code=4, **options):
        start = time.monotonic()
        result = run(port, '-T', '1', *(arguments or ['stats', '-g', 'conn']), **options)
        self.assertLess(time.monotonic() - start, 5)
        self.assertEqual(result.returncode, code, result)
        self.assertIn(f'within 1 s ({waiting})', result.stderr + result.stdout)
        return result

    def test_silence_in_each_phase(self):
        for exchange, waiting, code in (('get-attribute', 'opening the connection', 4),
                                        ('invoke', 'connection open, waiting for group conn', 4),
                                        ('close', 'connection open, waiting for the answer to the close request', 0)):
            with self.subTest(exchange), gateway(f'{exchange}:write-size=10,write-pause=600') as port:
                self.check_deadline(port, waiting, code=code)
        with gateway('invoke:silent') as port:  # how far ping came
            self.assertRegex(self.check_deadline(port, 'connection open, waiting for all statistics', 'ping').stdout,
                             r'^127.0.0.1:\d+: open in [\d.]+ ms, protocol \S+\n$')
        with socket.create_server(('127.0.0.1', 0)) as listener:
            self.check_deadline(listener.getsockname()[1], 'opening the connection', 'check', 'x', code=2)
        self.check_deadline(1, 'resolving the host name', environment=preloaded(RESOLVER))

    def test_ends_at_once_and_leaves_no_worker(self):
        for number, code in ((signal.SIGINT, 130), (signal.SIGTERM, 130), (signal.SIGKILL, -9)):
            with self.subTest(number), gateway('invoke:silent') as port:
                process = subprocess.Popen([ZULSTAT, '-p', port, '-T', '60', 'stats'], env=ENVIRONMENT,
                                           stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                self.addCleanup(process.kill)
                time.sleep(0.5)
                with open(f'/proc/{worker_of(process)}/comm', encoding='ascii') as name:
                    self.assertEqual(name.read(), 'zulstats-worker\n')
                start = time.monotonic()
                process.send_signal(number)
                _, errors = process.communicate(timeout=10)  # the worker holds standard error open
                self.assertLess(time.monotonic() - start, 5)
                self.assertEqual((process.returncode, errors), (code, b''))

    def test_troubles_of_the_system(self):
        with tempfile.TemporaryDirectory() as directory, gateway() as port:
            fifo = f'{directory}/trace'
            os.mkfifo(fifo)
            for command, code in (['stats'], 4), (['check', 'host.name'], 3):
                result = run(port, '-T', '0.5', *command, '--trace', '1', '--trace-file', fifo)
                self.assertEqual((result.returncode, 'no answer' in result.stderr + result.stdout), (code, False), result)
                self.assertIn(f'the trace file {fifo} could not be opened within 0.5 s', result.stderr + result.stdout)
        result = run(1, 'stats', environment=preloaded(SYSTEM, ODD_SYSTEM='no_process'))
        self.assertEqual(result.returncode, 6)
        self.assertRegex(result.stderr, 'cannot start the worker process: .* no more processes .ulimit -u')

    def test_a_worker_keeps_its_number(self):
        """The parent's way with SIGCHLD decides whether the system gives the number of a dead worker to others."""
        with gateway('invoke:silent') as port:
            process = subprocess.Popen([ZULSTAT, '-p', port, '-T', '60', 'stats'], env=ENVIRONMENT, stderr=subprocess.DEVNULL,
                                       preexec_fn=lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN))
            self.addCleanup(process.wait, 5)
            self.addCleanup(process.kill)
            worker_of(process)
            with open(f'/proc/{process.pid}/status', encoding='ascii') as status:
                ignored = int(re.search(r'^SigIgn:\s*(\w+)', status.read(), re.M)[1], 16)
            self.assertFalse(ignored >> (signal.SIGCHLD - 1) & 1)

    def test_a_signal_ends_it_while_nobody_reads_its_messages(self):
        read_end, write_end = os.pipe()
        self.addCleanup(lambda: (os.close(read_end), os.close(write_end)))
        os.set_blocking(write_end, False)
        with contextlib.suppress(BlockingIOError):
            while os.write(write_end, b'x'):
                pass
        os.set_blocking(write_end, True)
        with gateway() as port:
            for number, command, code in ((signal.SIGTERM, ['stats', '-p', str(free_port())], 3),
                                          (signal.SIGINT, ['nosuch'], 2),
                                          (signal.SIGTERM, ['-p', port, '-T', '60', 'stats', '--trace', '5'], 130),
                                          (signal.SIGTERM, ['-p', port, '-T', '0.2', 'stats', '--trace', '5'], 4)):
                with self.subTest(command):
                    process = subprocess.Popen([ZULSTAT, *command], env=ENVIRONMENT, stdout=subprocess.DEVNULL,
                                               stderr=write_end)
                    self.addCleanup(process.kill)
                    time.sleep(1.2)
                    self.assertIsNone(process.poll())
                    process.send_signal(number)
                    self.assertEqual(process.wait(5), code)

    def test_a_worker_that_ended_is_heard(self):
        for mode in ('late_send', 'failed_send'):
            with self.subTest(mode):
                result = run(free_port(), 'stats', environment=preloaded(SYSTEM, ODD_SYSTEM=mode))
                self.assertEqual((result.returncode, 'CONNECTION_REFUSED' in result.stderr), (3, True), result)

    def test_statistics_that_fit_no_answer_are_shown(self):
        with gateway(options=('--stats', '5000')) as port:
            stats = run(port, '-v', '-o', 'csv', 'stats', text=False)
            watched = run(port, '-o', 'csv', 'watch', '0.1', '2', text=False)
            part = run(port, '-o', 'csv', 'stats', '-g', 'server.s100', text=False)
        entries = entries_csv(stats.stdout)
        self.assertEqual((len(entries), len({entry[2] for entry in entries})), (5000, 5000))
        self.assertLess(set(entries_csv(part.stdout)), set(entries))
        self.assertEqual(entries_csv(watched.stdout), 2 * entries)
        self.assertRegex(stats.stderr, rb'answered in .*, in \d+ answers of at most \d+ of 32767 bytes')

    def test_troubles_of_the_gateway(self):
        for trouble, query, message in (
                (gateway('get-attribute:close-after=0'), ['stats'], 'lost the connection'),
                (gateway('invoke:close-after=0'), ['stats'], 'lost the connection'),
                (gateway('invoke:reply-rc=42:always'), ['stats', '-g', 'conn'], r'STAPI_RC_GATEWAY_REQUEST_FAILED \(-122\)'),
                (big(), ['stats'], r"hint: An answer over 32767 bytes .*'zulstat stats -g GROUP'"),
                (big(), ['stats', '-g', 'conn'], r"hint: .* 32767 .*'zulstat groups -l' .*'zulstat stats ID\.\.\.'"),
                (big(), ['stats', '-g', 'conn', 'host'], "hint: Ask for less: .*'zulstat stats -g GROUP' asks for one")):
            with self.subTest(message, query=query), trouble as port:
                result = run(port, *query)
                self.assertEqual((result.returncode, result.stdout), (5, ''), result)
                self.assertRegex(result.stderr, message)


class Hostile(unittest.TestCase):
    def test_every_format_survives_hostile_texts(self):
        with hostile() as port:
            outputs = {f: run(port, 'stats', '-o', f, text=False).stdout
                       for f in ('json', 'csv', 'plain', 'openmetrics', 'table')}
            checked = run(port, 'check', 'double', '-w', '17')
        expected = entries_json(outputs['json'])
        self.assertEqual(len(expected), 13)
        self.assertEqual(expected[0], ('line\nbreak', 0, 'tab\tid', 'a,b "quoted"\r\nsecond'))
        self.assertEqual(expected[1][3], '\ufffd' * 3 + ' not UTF-8')
        self.assertEqual(expected[7], ('bad\x07', -7, '', ''))
        self.assertEqual(entries_csv(outputs['csv']), expected)
        self.assertCountEqual(entries_openmetrics(outputs['openmetrics'], port), [(e, i, v) for e, _, i, v in expected])
        self.assertIn(b'\x1b[31mred\t\xff\xfe\xe2\x82 not UTF-8\t', outputs['plain'])
        numbers = [item.get('number') for element in json.loads(outputs['json'])['elements'] for item in element['items']]
        self.assertEqual(numbers, [None, None, None, 1, 2, None, None, None, 2**64 - 1, None, -12.5, None])
        self.assertIn(b'} 17.442674924057755\n', outputs['openmetrics'])
        self.assertEqual(checked.stdout,
                         "ZULSTAT WARNING - double is 17.442674924057755 | 'double'=17.442674924057755;17;\n")
        table = outputs['table'].decode()
        self.assertEqual(table.count('\n'), 14)
        self.assertFalse([c for c in table if c != '\n' and (ord(c) < 32 or c in '\u202e\x7f')])
        self.assertIn('\\x1b[31mred', table)

    def test_characters_are_those_of_the_locale(self):
        with hostile() as port:
            for arguments, shown in ((['stats'], b'\\u202e reversed'), (['watch', '0.05', '1'], b''),
                                     (['check', 'gr\u00fc\u00df'], b'gr\\u00fc\\u00df is \\u202e'),
                                     (['ping', '-H', 'gr\u00fc\u00df'], b'')):
                result = run(port, *arguments, text=False, environment={'LC_ALL': 'C'})
                printed = result.stdout + result.stderr
                self.assertTrue(printed.isascii() and b'gr\\u00fc\\u00df' in printed and shown in printed, result)

    def test_characters_of_one_byte(self):
        with tempfile.TemporaryDirectory() as directory, hostile() as port:
            subprocess.run(['localedef', '-i', 'de_DE', '-f', 'ISO-8859-1', f'{directory}/de_DE'], check=True, timeout=30)
            table = run(port, 'stats', text=False, environment={'LC_ALL': 'de_DE', 'LOCPATH': directory}).stdout
        self.assertRegex(table.decode('latin-1'), r'gr\xfc\xdf +\\u202e reversed')

    def test_json_on_a_terminal_is_ascii(self):
        master, slave = pty.openpty()
        self.addCleanup(lambda: (os.close(master), os.close(slave)))
        with hostile() as port:
            expected = entries_json(run(port, 'stats', '-j').stdout)
            self.assertEqual(run(port, 'stats', '-o', 'jsonl', stdout=slave).returncode, 1)
        shown = b''
        while not shown.endswith(b'\n'):
            self.assertTrue(select.select([master], [], [], 5)[0], shown)
            shown += os.read(master, 65536)
        self.assertTrue(shown.isascii(), shown)
        self.assertEqual(entries_json(shown), expected)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1], verbosity=1)
