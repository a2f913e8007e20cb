#!/usr/bin/env python3
"""The Python module against the simulated Gateway: the same rows in this process and by a worker, every failure with its
code, and tables that are those of the C headers.

    module_test.py SOURCE LIBRARY ZULSTAT_SIM CC WORKER
"""
import contextlib
import csv
import ctypes
import gc
import io
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import time
import unittest

SOURCE, LIBRARY, SIM, CC, WORKER = (pathlib.Path(argument) for argument in sys.argv[1:6])
os.environ |= {'ZULSTATS_LIBRARY': str(LIBRARY), 'ZULSTATS_WORKER': str(WORKER)}
sys.path.insert(0, str(SOURCE / 'python'))
import zulstats  # noqa: E402
from zulstats import _library  # noqa: E402

WAYS = (None, 10)  # the timeouts: in this process, and by a worker


@contextlib.contextmanager
def gateway(*arguments):
    with subprocess.Popen([SIM, '--port', '0', '--speed', '0', *arguments], stdout=subprocess.PIPE, text=True) as sim:
        try:
            yield int(sim.stdout.readline().rpartition(':')[2])
        finally:
            sim.kill()


def failure(call, *arguments):
    try:
        call(*arguments)
    except zulstats.Error as error:
        return error
    raise AssertionError('nothing failed')


def children():
    return set(pathlib.Path(f'/proc/self/task/{os.getpid()}/children').read_text().split())


class Module(unittest.TestCase):
    def test_rows_are_the_same_both_ways(self):
        answers = []
        with gateway() as port:
            for timeout in WAYS:
                with zulstats.connect('127.0.0.1', port, timeout=timeout) as gw:
                    self.assertEqual(gw.protocol_version, '1_0_0_0')
                    some = gw.stats_by_id('host.name', ['nosuch'], 'host.load.1m')
                    answers.append([gw.stats(), gw.ids(), gw.groups(), gw.stats_by_group('host', 'conn'),
                                    gw.ids_by_group(['host']), some])
                    self.assertTrue(gw.is_open)
                self.assertFalse(gw.is_open)
                gw.close()
        self.assertEqual(answers[0], answers[1])
        stats, ids, groups, by_group, by_ids, some = answers[0]
        self.assertEqual([row.id for row in stats], [row.id for row in ids])
        self.assertGreater(len(stats), 100)
        self.assertTrue({row.element for row in by_group} == {'host', 'conn'} < {row.id for row in groups})
        self.assertEqual([row.id for row in by_group if row.element == 'host'], [row.id for row in by_ids])
        self.assertEqual((some.to_dict()['host.name'], [row.element for row in some.failed()]), ('zulhost', ['nosuch']))
        self.assertIsInstance(some[2].number, float)
        self.assertEqual([zulstats.Row('', 0, '', text).number for text in ('12', '-1.5', '', '1_0', ' 1', 'nan', '1e999', 'x')],
                         [12, -1.5] + [None] * 6)
        table = io.StringIO()
        csv.writer(table).writerows(some)
        self.assertEqual(table.getvalue().splitlines()[0], 'host.name,0,host.name,zulhost')

    def test_failures_have_codes_and_end_connections(self):
        for fault, code in (('close-after=0', -102), ('header-rc=1', -122)):
            for timeout in WAYS:
                for query in ('stats', 'stats_by_group'):
                    with self.subTest(fault=fault, timeout=timeout, query=query), \
                            gateway('--fault', f'invoke:{fault}') as port, \
                            zulstats.connect('127.0.0.1', port, timeout=timeout) as gw:
                        arguments = () if query == 'stats' else ('host',)
                        error = failure(getattr(gw, query), *arguments)
                        self.assertEqual((error.rc, error.name), (code, zulstats.CODES[code][0]))
                        self.assertTrue(error.hint)
                        self.assertFalse(gw.is_open)
                        self.assertEqual(failure(gw.stats).name, 'NOT_OPEN')
        for timeout in WAYS:
            with self.subTest(timeout=timeout):
                self.assertEqual(failure(zulstats.connect, '127.0.0.1', 1, timeout).name, 'CONNECTION_REFUSED')
                self.assertEqual(failure(zulstats.connect, 'x' * 64, 1, timeout).name, 'HOST_NOT_RESOLVED')
                self.assertEqual(failure(zulstats.connect, 'a\0b', 1, timeout).name, 'INVALID_TEXT')

    def test_what_the_library_would_mistake_is_refused(self):
        with gateway() as port, zulstats.connect('127.0.0.1', port) as gw:
            for names, name in (([], 'NOTHING_ASKED'), (['', ':'], 'NOTHING_ASKED'), (['a\0b'], 'INVALID_TEXT'),
                                (['x' * 32766], 'QUERY_TOO_LONG')):
                self.assertEqual(failure(gw.stats_by_id, names).name, name)
            self.assertTrue(gw.stats())

    def test_timeout_ends_what_waits(self):
        before = children()
        with gateway('--fault', 'invoke:silent') as port:
            gw = zulstats.connect('127.0.0.1', port, timeout=0.3)
            start = time.monotonic()
            error = failure(gw.stats)
            self.assertIsInstance(error, zulstats.Timeout)
            self.assertIsInstance(error, TimeoutError)
            self.assertIn('waited 0.3 s for the answer', str(error))
            self.assertLess(time.monotonic() - start, 5)
            self.assertFalse(gw.is_open)
        with gateway('--fault', 'close:silent') as port:
            zulstats.connect('127.0.0.1', port, timeout=0.3).close()
        self.assertEqual(children(), before)
        for bad in (0, -1, float('nan'), float('inf')):
            self.assertRaises(ValueError, zulstats.connect, '127.0.0.1', 1, bad)

    def test_a_worker_that_cannot_be_had_is_an_error(self):
        for worker in ('/nosuch/worker', '/bin/true', '/bin/cat'):
            with self.subTest(worker), unittest.mock.patch.dict(os.environ, ZULSTATS_WORKER=worker):
                self.assertEqual(failure(zulstats.connect, '127.0.0.1', 1, 5).name, 'WORKER_FAILED')

    def test_connections_belong_to_their_thread_and_end_with_their_object(self):
        with gateway() as port:
            gw = zulstats.connect('127.0.0.1', port)
            errors = []
            thread = threading.Thread(target=lambda: errors.append(failure(gw.stats)))
            thread.start()
            thread.join()
            self.assertEqual(errors[0].name, 'RESULT_SET_TID_MISMATCH')
            self.assertTrue(gw.stats())
            count = len(os.listdir('/proc/self/fd'))
            errors.clear()  # whose tracebacks have it
            del gw
            gc.collect()
            self.assertEqual(len(os.listdir('/proc/self/fd')), count - 1)

    def test_trace(self):
        with tempfile.TemporaryDirectory() as directory, gateway() as port:
            zulstats.set_trace(2, f'{directory}/trace')
            zulstats.connect('127.0.0.1', port).close()
            zulstats.set_trace(0)
            self.assertIn('ZULSTATS', pathlib.Path(directory, 'trace').read_text())
        self.assertEqual(failure(zulstats.set_trace, 6).name, 'INVALID_TRACE_LEVEL')
        self.assertEqual(zulstats.library_version(), '1_1_0_0')

    def test_tables_are_those_of_the_headers(self):
        printed = subprocess.run([SOURCE / 'scripts/python-codes'], stdout=subprocess.PIPE, check=True, text=True).stdout
        self.assertEqual(printed, (SOURCE / 'python/zulstats/_codes.py').read_text())
        records = (_library.StatData, _library.IdData)
        shown = ''.join(f'{record.__name__} {ctypes.sizeof(record)}\n' + ''.join(
            f'{name} {getattr(record, name).offset} {getattr(record, name).size}\n' for name, _ in record._fields_)
            for record in records)
        lines = ''.join(f'printf("{record.__name__} %zu\\n", sizeof({record.__name__}));' + ''.join(
            f'printf("{name} %zu %zu\\n", offsetof({record.__name__}, {name}), sizeof((({record.__name__}*)0)->{name}));'
            for name, _ in record._fields_) for record in records)
        with tempfile.TemporaryDirectory() as directory:
            program = pathlib.Path(directory, 'program')
            subprocess.run([CC, '-x', 'c', '-I', SOURCE / 'include', '-o', program, '-'], check=True, text=True,
                           input=f'#include <stddef.h>\n#include <stdio.h>\n#include "zulstats.h"\nint main(void) {{{lines}}}\n')
            self.assertEqual(subprocess.run([program], stdout=subprocess.PIPE, text=True, check=True).stdout, shown)


if __name__ == '__main__':
    import unittest.mock
    unittest.main(argv=sys.argv[:1], verbosity=1)
