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
import pickle
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import unittest.mock

SOURCE, LIBRARY, SIM, CC, WORKER = (pathlib.Path(argument) for argument in sys.argv[1:6])
os.environ |= {'ZULSTATS_LIBRARY': str(LIBRARY), 'ZULSTATS_WORKER': str(WORKER)}
sys.path.insert(0, str(SOURCE / 'python'))
import zulstats  # noqa: E402
from zulstats import _library, _worker  # noqa: E402

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


def descriptors():
    gc.collect()
    return len(os.listdir('/proc/self/fd'))


class Ring(Exception):
    """What a signal handler raises."""


def rings_after(call):
    """The call, and a signal handler that raises before its result is seen."""
    def ring(*arguments):
        call(*arguments)
        raise Ring
    return ring


def in_library(name, replacement):
    """The library's call is this one for a while."""
    return unittest.mock.patch.object(_library._library(), name, replacement)


def in_child(work):
    """Whether work, in a forked process, returns True."""
    child = os.fork()
    if child == 0:
        try:
            os._exit(0 if work() else 1)
        finally:
            os._exit(2)
    return os.waitpid(child, 0)[1] == 0


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
                for length in (64, 2**21):
                    self.assertEqual(failure(zulstats.connect, 'x' * length, 1, timeout).name, 'HOST_NOT_RESOLVED')
                self.assertEqual(failure(zulstats.connect, 'a\0b', 1, timeout).name, 'INVALID_TEXT')

    def test_what_the_library_would_mistake_is_refused(self):
        with gateway() as port, zulstats.connect('127.0.0.1', port) as gw:
            for names, name in (([], 'NOTHING_ASKED'), ([''], 'NOTHING_ASKED'), (['', 'a'], 'NOTHING_ASKED'),
                                (['a:b'], 'INVALID_TEXT'), (['a\0b'], 'INVALID_TEXT'), (['\ud800'], 'INVALID_TEXT'),
                                (['x' * 32766], 'QUERY_TOO_LONG')):
                self.assertEqual(failure(gw.stats_by_id, names).name, name)
            self.assertTrue(gw.stats())
            before = children(), descriptors()
            for timeout in WAYS:
                for wrong in (0, 65536, -1, port + 2**32, 2**40):
                    self.assertEqual(failure(zulstats.connect, '127.0.0.1', wrong, timeout).name, 'INVALID_PORT')
                for host in ('\ud800', 'a\0b'):
                    self.assertEqual(failure(zulstats.connect, host, port, timeout).name, 'INVALID_TEXT')
                self.assertRaises(TypeError, zulstats.connect, '127.0.0.1', str(port), timeout)
                self.assertRaises(TypeError, zulstats.connect, b'127.0.0.1', port, timeout)
            self.assertEqual((children(), descriptors()), before)

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

    def test_a_worker_belongs_to_its_connection(self):
        with gateway() as port:
            gw = zulstats.connect('127.0.0.1', port, timeout=0.3)
            worker = gw._channel._process.pid
            self.assertNotEqual(os.getsid(worker), os.getsid(0))  # Ctrl-C is not for it
            os.kill(worker, signal.SIGSTOP)
            self.assertIn('for the worker', str(failure(gw.stats)))
            gw = zulstats.connect('127.0.0.1', port, timeout=10)
            os.kill(gw._channel._process.pid, signal.SIGKILL)
            self.assertEqual(failure(gw.stats).name, 'WORKER_ENDED')
            self.assertFalse(gw.is_open)

    def test_an_interrupted_call_leaves_nothing_behind(self):
        before = children(), descriptors()
        with gateway() as port:
            gateways = children()
            with unittest.mock.patch.object(_worker.Channel, '_next', side_effect=Ring):
                self.assertRaises(Ring, zulstats.connect, '127.0.0.1', port, 10)
            gw = zulstats.connect('127.0.0.1', port, timeout=10)
            with unittest.mock.patch.object(_worker.Channel, '_next', side_effect=Ring):
                self.assertRaises(Ring, gw.stats)
            self.assertEqual(failure(gw.groups).name, 'NOT_OPEN')
            self.assertEqual(children(), gateways)

            library = _library._library()
            with in_library('openRemoteGatewayConnection', rings_after(library.openRemoteGatewayConnection)):
                self.assertRaises(Ring, zulstats.connect, '127.0.0.1', port)
            gw = zulstats.connect('127.0.0.1', port)
            with in_library('getStats', rings_after(library.getStats)):
                self.assertRaises(Ring, gw.stats)
            self.assertTrue(gw.stats())  # the call had answered
            with in_library('closeGatewayConnection', rings_after(library.closeGatewayConnection)):
                self.assertRaises(Ring, gw.close)
            for query, *arguments in (('getStats',), ('getStatsByStatGroupId', 'host')):
                closes = unittest.mock.Mock(wraps=library.closeGatewayConnection)
                with gateway('--fault', 'invoke:close-after=0') as broken, \
                        in_library(query, rings_after(getattr(library, query))), \
                        in_library('closeGatewayConnection', closes):
                    gw = zulstats.connect('127.0.0.1', broken)
                    self.assertRaises(Ring, gw.stats_by_group if arguments else gw.stats, *arguments)
                    self.assertFalse(gw.is_open)
                    gw.close()
                # Only after the one that leaves the connection to its caller: another's may have the same token.
                self.assertEqual(closes.call_count, len(arguments))
            del gw
        self.assertEqual((children(), descriptors()), before)

    def test_a_handler_that_closes_or_asks_waits_for_the_query(self):
        library = _library._library()
        with gateway() as port:
            gw = zulstats.connect('127.0.0.1', port)
            seen = []

            def handled(*arguments):
                rc = library_call(*arguments)
                seen.append(failure(gw.groups).name)
                gw.close()
                return rc
            library_call = library.getNextStat
            with in_library('getNextStat', handled):
                self.assertGreater(len(gw.stats()), 100)
            self.assertEqual((seen[0], gw.is_open), ('NOT_OPEN', False))

    def test_another_thread_closes_around_the_walk(self):
        library = _library._library()
        with gateway() as port:
            for call in ('getStats', 'getNextStat'):
                with self.subTest(call):
                    gw = zulstats.connect('127.0.0.1', port)
                    closing = threading.Thread(target=gw.close)
                    alive = []

                    def closed_meanwhile(*arguments, real=getattr(library, call)):
                        rc = real(*arguments)
                        if not alive:
                            closing.start()
                            closing.join(0.2)
                            alive.append(closing.is_alive())
                            if call == 'getNextStat' and not alive[0]:
                                raise AssertionError('closed during the walk')
                        return rc
                    with in_library(call, closed_meanwhile):
                        if call == 'getStats':
                            self.assertEqual(failure(gw.stats).name, 'GATEWAY_CONNECTION_LOST')
                        else:
                            self.assertGreater(len(gw.stats()), 100)
                    closing.join()
                    self.assertFalse(gw.is_open)

    def test_a_child_leaves_its_parents_connection_alone(self):
        def in_the_child():
            error = failure(gw.stats)
            gw.close()
            return error.name == 'RESULT_SET_PID_MISMATCH' and not gw.is_open
        with gateway() as port:
            for timeout in WAYS:
                with self.subTest(timeout=timeout), zulstats.connect('127.0.0.1', port, timeout=timeout) as gw:
                    self.assertTrue(in_child(in_the_child))
                    self.assertEqual(len(gw.stats_by_id('host.name')), 1)

    def test_threads_take_turns_with_a_worker(self):
        wrong = []

        def ask(query, expected):
            for _ in range(100):
                try:
                    if query() != expected:
                        raise AssertionError('the answer is that to another query')
                except Exception as error:
                    wrong.append(error)
                    return
        with gateway() as port, zulstats.connect('127.0.0.1', port, timeout=20) as gw:
            queries = (gw.groups, lambda: gw.stats_by_id('host.name'))
            threads = [threading.Thread(target=ask, args=(query, query())) for query in queries]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        self.assertEqual(wrong, [])

    def test_connections_that_the_library_cannot_find_are_closed_later(self):
        with gateway() as port:
            before = descriptors()
            many = [zulstats.connect('127.0.0.1', port) for _ in range(265)]
            self.assertEqual(failure(many[-1].groups).name, 'GATEWAY_TOKEN_NOT_FOUND')
            self.assertTrue(many[-1].is_open)
            for _ in range(6):
                many.pop(258).close()
            self.assertEqual(descriptors(), before + 265)
            many.pop(0).close()
            many.pop(0).close()
            self.assertEqual(descriptors(), before + 257)
            self.assertTrue(many[-1].groups())
            many.clear()
            self.assertEqual(descriptors(), before)

    def test_errors_survive_pickle_and_a_missing_library_is_one(self):
        for error in (zulstats.Error(-102, 'x'), zulstats.Error(1004), zulstats.Timeout('waited')):
            copy = pickle.loads(pickle.dumps(error))
            self.assertEqual((type(copy), str(copy), copy.rc, copy.name, copy.detail),
                             (type(error), str(error), error.rc, error.name, error.detail))
        with unittest.mock.patch.object(_library, '_loaded', None):
            for library in ('/nosuch/library.so', 'libc.so.6'):
                with unittest.mock.patch.dict(os.environ, ZULSTATS_LIBRARY=library):
                    self.assertEqual(failure(zulstats.library_version).name, 'NO_LIBRARY')

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
            for level in (6, -1, 2**32):
                self.assertEqual(failure(zulstats.set_trace, level, f'{directory}/other').name, 'INVALID_TRACE_LEVEL')
            self.assertFalse(os.path.exists(f'{directory}/other'))
            self.assertEqual(failure(zulstats.set_trace, 0, '/nosuch/file').name, 'TRACE_FILE_OPEN_FAILED')
            self.assertEqual(failure(zulstats.set_trace, 0, '\ud800').name, 'INVALID_TEXT')
        self.assertEqual(zulstats.library_version(), '1_1_0_0')

    def test_tables_are_those_of_the_headers(self):
        printed = subprocess.run([SOURCE / 'scripts/python-codes'], stdout=subprocess.PIPE, check=True, text=True).stdout
        self.assertEqual(printed, (SOURCE / 'python/zulstats/_codes.py').read_text())
        shared = re.findall(r'{int\(errc::\w+\), "(\w+)",\s+"(.*?)",\s+"(.*?)"}',
                            (SOURCE / 'include/zulstats.hpp').read_text())
        own = {rc: texts for rc, texts in zulstats.CODES.items() if rc > 1000}
        self.assertEqual(shared, [own[rc] for rc in range(1001, 1006)])
        self.assertEqual([code for code in own if f'    {code} {own[code][0]}' not in zulstats.__doc__], [1001])
        self.assertIn(f'#define ZULSTATS_VERSION "{zulstats.__version__}"', (SOURCE / 'include/zulstats.h').read_text())
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
    unittest.main(argv=sys.argv[:1], verbosity=1)
