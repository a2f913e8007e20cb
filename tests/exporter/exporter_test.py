#!/usr/bin/env python3
"""Runs zulstat-exporter as Prometheus and its users do, against simulated Gateways.

    exporter_test.py ZULSTAT_EXPORTER ZULSTAT_SIM ZULSTAT
"""
import contextlib
import http.client
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse
import urllib.request
import warnings

from simulated import Gateways, eventually

EXPORTER, ZULSTAT = sys.argv[1], sys.argv[3]
OPENMETRICS = {'Accept': 'application/openmetrics-text;version=1.0.0,text/plain;q=0.5'}
ENVIRONMENT = {k: v for k, v in os.environ.items() if not k.startswith('ZULSTAT') and k != 'NOTIFY_SOCKET'}


@contextlib.contextmanager
def gateways(*arguments):
    made = Gateways(*arguments)
    try:
        yield made
    finally:
        made.end()


class Exporter:
    def __init__(self, *options, files=(), stderr=subprocess.PIPE, environment=None):
        self.directory = tempfile.TemporaryDirectory()
        for name, text in dict(files).items():
            self.write(name, text)
        port_file = self.path('port')
        self.process = subprocess.Popen(
            [EXPORTER, '--web.listen-address', '127.0.0.1:0', '--web.port-file', port_file,
             *(option.replace('DIR', self.directory.name) for option in options)],
            env=ENVIRONMENT | (environment or {}), stderr=stderr, text=True)
        if not eventually(lambda: os.path.exists(port_file) or self.process.poll() is not None) or self.process.poll() is not None:
            raise AssertionError(self.process.communicate())
        with open(port_file, encoding='ascii') as file:
            self.port = int(file.read())

    def path(self, name):
        return os.path.join(self.directory.name, name)

    def write(self, name, text):
        with open(self.path(name), 'w', encoding='utf-8') as file:
            file.write(text)

    def ask(self, path, method='GET', headers=None, source=None, timeout=20, context=None):
        """Status, headers and text."""
        if context:
            connection = http.client.HTTPSConnection('127.0.0.1', self.port, timeout=timeout, context=context)
        else:
            connection = http.client.HTTPConnection('127.0.0.1', self.port, timeout=timeout, source_address=source)
        try:
            connection.request(method, path, headers=headers or {})
            response = connection.getresponse()
            return response.status, response.headers, response.read().decode()
        finally:
            connection.close()

    def probe(self, target, headers=None, **parameters):
        status, _, text = self.ask('/probe?' + urllib.parse.urlencode({'target': target, **parameters}), headers=headers)
        assert status == 200, (status, text)
        return text

    def metric(self, name):
        return float(re.search(rf'^{re.escape(name)} (.*)$', self.ask('/metrics')[2], re.M)[1])

    def children(self):
        with open(f'/proc/{self.process.pid}/task/{self.process.pid}/children', encoding='ascii') as numbers:
            return {int(number) for number in numbers.read().split()}

    def __enter__(self):
        return self

    def __exit__(self, *error):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.communicate(timeout=10)
        finally:
            self.process.kill()
            self.directory.cleanup()
        if error[0] is None and self.process.returncode != 0:
            raise AssertionError(f'the exporter ended with {self.process.returncode}')


def series(text):
    """Names with labels, without their values."""
    return {line.rpartition(' ')[0]: line.rpartition(' ')[2] for line in text.splitlines() if not line.startswith('#')}


def statistics(text):
    return ''.join(line + '\n' for line in text.splitlines()
                   if re.search(r'gateway_|zulstat_(text|element)', line.split('{')[0]))


def check_metrics(text):
    if shutil.which('promtool'):
        done = subprocess.run(['promtool', 'check', 'metrics'], input=text, text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False)
        assert (done.returncode, done.stdout) == (0, ''), done.stdout


class Scrapes(unittest.TestCase):
    def test_statistics_are_those_of_zulstat(self):
        for options in ((), ('--stats', '5000')):
            with self.subTest(options), gateways(1, *options) as sim, Exporter() as exporter:
                status, headers, text = exporter.ask(f'/probe?target={sim.targets[0]}', headers=OPENMETRICS)
                self.assertEqual((status, headers['Content-Type']),
                                 (200, 'application/openmetrics-text; version=1.0.0; charset=utf-8'))
                shown = subprocess.run([ZULSTAT, '-p', str(sim.ports[0]), '-o', 'openmetrics', 'stats'], text=True,
                                       env=ENVIRONMENT, stdout=subprocess.PIPE, check=True).stdout
                if options:  # so many texts are not for Prometheus
                    text, shown = (re.sub('.*zulstat_text.*\n', '', each) for each in (text, shown))
                self.assertEqual(statistics(text), statistics(shown))
                self.assertTrue(text.endswith('\n# EOF\n'))
                older = exporter.ask(f'/probe?target={sim.targets[0]}')
                self.assertEqual(older[1]['Content-Type'], 'text/plain; version=0.0.4; charset=utf-8')
                if not options:
                    self.assertEqual(statistics(older[2]), statistics(shown))
                check_metrics(older[2])
                self.assertEqual(exporter.metric('zulstat_exporter_worker_starts_total{reason="first"}'), 1)
                check_metrics(exporter.ask('/metrics')[2])

    def test_failures_are_answers(self):
        with gateways(2) as sim, Exporter() as exporter:
            one, other = sim.targets
            for fault, phase, kind in (('invoke:silent', 'querying', 'deadline'), ('invoke:close-after=0', 'querying', 'lost'),
                                       ('get-attribute:close-after=0', 'opening', 'lost'),
                                       ('handshake:silent', 'opening', 'deadline')):
                with self.subTest(fault):
                    if phase == 'opening':  # on a new connection
                        sim.fault('1/invoke:close-after=0')
                        exporter.probe(one)
                    sim.fault('1/' + fault)
                    began = time.monotonic()
                    text = exporter.probe(one, {'X-Prometheus-Scrape-Timeout-Seconds': '1.0'})
                    self.assertLess(time.monotonic() - began, 4)
                    self.assertEqual(series(text)[f'zulstat_up{{target="{one}"}}'], '0')
                    self.assertRegex(text, f'zulstat_failure_info{{.*phase="{phase}",kind="{kind}",code="-?\\d+",name=".*"}} 1')
                    self.assertEqual(statistics(text), '')
                    check_metrics(text)
                    self.assertIn('zulstat_up{', exporter.probe(other))
                    # The next scrape finds everything in order, whose connection failed or not.
                    self.assertEqual(series(exporter.probe(one))[f'zulstat_up{{target="{one}"}}'], '1')
            sim.fault('1/invoke:element-rc=-7,element-index=2')
            text = exporter.probe(one)
            self.assertIn(f'zulstat_element_rc{{target="{one}",element="conn"}} -7', text)
            self.assertEqual(series(text)[f'zulstat_up{{target="{one}"}}'], '1')
            self.assertEqual(exporter.metric('zulstat_exporter_failures_total{phase="querying",kind="lost"}'), 3)

    def test_the_log_tells_what_goes_down_and_comes_up(self):
        with gateways() as sim, tempfile.TemporaryFile('w+') as log:
            with Exporter(stderr=log) as exporter:
                target = sim.targets[0]
                for words in ('invoke:healthy', 'invoke:close-after=0', 'invoke:healthy', 'invoke:healthy'):
                    sim.fault(words)
                    exporter.probe(target)
                for number in range(45):
                    exporter.probe(f'127.0.0.{number + 2}:1')
            log.seek(0)
            lines = [line.partition(': ')[2] for line in log]
        changes = [line for line in lines if ' is ' in line]
        self.assertRegex(changes[0], f'^{target} is down: lost the connection to {target} during a query: .*\n$')
        self.assertEqual(changes[1], f'{target} is up again\n')
        self.assertLessEqual(len(changes), 41, lines)  # 20 in 10 seconds, of 47

    def test_two_at_once_have_a_deadline_each(self):
        with gateways() as sim, Exporter() as exporter:
            target = sim.targets[0]
            exporter.probe(target)
            sim.fault('invoke:silent')
            connections = []
            began = time.monotonic()
            for timeout in ('1.2', '4'):
                connection = http.client.HTTPConnection('127.0.0.1', exporter.port, timeout=10)
                connection.request('GET', f'/probe?target={target}', headers={'X-Prometheus-Scrape-Timeout-Seconds': timeout})
                connections.append(connection)
            first, second = (connection.getresponse().read().decode() for connection in connections)
            self.assertLess(time.monotonic() - began, 3)
            self.assertIn(f'zulstat_up{{target="{target}"}} 0', first)
            self.assertIn(f'zulstat_up{{target="{target}"}} 1', second)
            self.assertTrue(eventually(lambda: len(exporter.children()) == 1))
            for connection in connections:
                connection.close()

    def test_workers_are_kept_closed_and_renewed(self):
        with gateways() as sim, Exporter('--limit.worker-idle-time', '1', '--limit.worker-scrapes', '3') as exporter:
            workers = []
            for _ in range(7):
                exporter.probe(sim.targets[0])
                workers.append(exporter.metric('zulstat_exporter_worker_starts_total{reason="renewed"}'))
            self.assertEqual(workers, [0, 0, 0, 1, 1, 1, 2])
            self.assertTrue(eventually(lambda: not exporter.children()))
            exporter.probe(sim.targets[0])
            self.assertEqual(exporter.metric('zulstat_exporter_worker_starts_total{reason="idle"}'), 1)


    def test_a_silent_target_keeps_no_other_waiting(self):
        with gateways(2) as sim, Exporter('--limit.probes', '12') as exporter:
            silent, healthy = sim.targets
            sim.fault('1/get-attribute:silent:always')
            clients = []
            for _ in range(40):
                client = http.client.HTTPConnection('127.0.0.1', exporter.port, timeout=10)
                client.request('GET', f'/probe?target={silent}')
                clients.append(client)
            self.assertTrue(eventually(lambda: exporter.metric('zulstat_exporter_queue{}') >= 10))
            self.assertIn(f'zulstat_up{{target="{healthy}"}} 1', exporter.probe(healthy))
            self.assertTrue(eventually(lambda: exporter.metric('zulstat_exporter_refused_total{reason="target"}') == 30))
            for client in clients:
                client.close()
            self.assertTrue(eventually(lambda: exporter.metric('zulstat_exporter_queue{}') == 1, 3))
            self.assertEqual(exporter.metric('zulstat_exporter_refused_total{reason="gone"}'), 9)


class Paths(unittest.TestCase):
    def test_what_is_no_address_to_listen_at(self):
        for address in ('127.0.0.1:99999', '127.0.0.1:', '127.0.0.1:+80', '127.0.0.1', '127.0.0.1:-1', '127.0.0.1:http'):
            with self.subTest(address):
                done = subprocess.run(['timeout', '5', EXPORTER, '--web.listen-address', address], env=ENVIRONMENT, text=True,
                                      stderr=subprocess.PIPE, check=False)
                self.assertEqual(done.returncode, 2, done.stderr)
                self.assertIn(f"'{address}' is not a host and a port", done.stderr)

    def test_what_is_refused(self):
        with gateways() as sim, Exporter('--limit.targets', '2', '--limit.probes', '1') as exporter:
            target = sim.targets[0]
            for path, method, status in (
                    ('/nothing', 'GET', 404), ('/probe', 'GET', 400), ('/probe?target=', 'GET', 400), ('/metrics', 'DELETE', 405),
                    ('/probe?target=gw1', 'GET', 400), ('/probe?target=gw1:70000', 'GET', 400), ('/probe?target=a:1&target=b:1', 'GET', 400),
                    ('/probe?target=%00:1', 'GET', 400), (f'/probe?target={target}&module=none', 'GET', 400),
                    (f'/probe?target={target}&debug=maybe', 'GET', 400), ('/probe?target=10.1.2.3:7531', 'GET', 403),
                    ('/probe?target=[2001:db8::1]:7531', 'GET', 403), ('/-/reload', 'POST', 403), ('/-/reload', 'GET', 405),
                    (f'/probe?target={target}', 'POST', 405), ('/-/healthy', 'GET', 200), ('/-/ready', 'HEAD', 200),
                    ('http://gw/-/healthy', 'GET', 200), ('http://gw', 'GET', 200), ('http://gw/x', 'GET', 404),
                    ('/probe?target=127.0.0.1:1%00x', 'GET', 400)):
                with self.subTest(path=path, method=method):
                    answer = exporter.ask(path, method)
                    self.assertEqual(answer[0], status, answer)
                    self.assertIn('Content-Type', answer[1])
            answer = exporter.ask(f'/probe?target={target}', headers={'X-Prometheus-Scrape-Timeout-Seconds': 'soon'})
            self.assertEqual(answer[0], 400)
            exporter.probe(target)
            sim.fault('invoke:silent')
            stuck = http.client.HTTPConnection('127.0.0.1', exporter.port, timeout=10)
            stuck.request('GET', f'/probe?target={target}', headers={'X-Prometheus-Scrape-Timeout-Seconds': '2'})
            self.assertTrue(eventually(lambda: exporter.metric('zulstat_exporter_queue{}') == 1))
            self.assertEqual(exporter.ask(f'/probe?target={target}')[0], 503)
            stuck.getresponse().read()
            stuck.close()

    def test_a_name_is_judged_by_what_it_resolves_to(self):
        with gateways() as sim, Exporter('--config.file', 'DIR/c.yml', files={
                'c.yml': f'allow: ["192.0.2.0/24:{sim.ports[0]}", "gw*.invalid:7531"]\n'}) as exporter:
            self.assertIn('zulstat_up{', exporter.probe(f'localhost:{sim.ports[0]}'))
            # A name for an address that nobody may dial, in a spelling that is no address.
            status, _, text = exporter.ask('/probe?target=167837955:7531')
            self.assertEqual(status, 403, text)
            self.assertNotIn('10.1.1.3', text)
            self.assertIn('kind="cannot_connect"', exporter.probe('gw1.invalid:7531'))
            self.assertEqual(exporter.ask(f'/probe?target=192.0.2.7:{sim.ports[0] + 1}')[0], 403)

    def test_names_that_are_not_allowed_push_nobody_out(self):
        with gateways(3) as sim, tempfile.TemporaryFile('w+') as log:
            with Exporter('--limit.targets', '3', stderr=log) as exporter:
                for target in sim.targets:
                    exporter.probe(target)
                workers = exporter.children()
                for number in range(167837955, 167837959):
                    self.assertEqual(exporter.ask(f'/probe?target={number}:7531')[0], 403)
                    self.assertNotIn(str(number), exporter.ask('/')[2])
                exporter.probe('not-found.invalid:1')
                self.assertEqual(exporter.children(), workers)
                page = exporter.ask('/')[2]
                self.assertEqual([target in page for target in sim.targets], [True] * 3)
                metrics = exporter.ask('/metrics')[2]
                for line in ('zulstat_exporter_targets{} 3', 'zulstat_exporter_refused_total{reason="not_allowed"} 4'):
                    self.assertIn(line, metrics)
                self.assertNotIn('kind="forbidden"', metrics)
                # A target that is allowed takes the place of the oldest.
                exporter.probe('127.0.0.1:1')
                page = exporter.ask('/')[2]
                self.assertEqual([target in page for target in (*sim.targets, '127.0.0.1:1')], [False, True, True, True])
            log.seek(0)
            self.assertIn('167837955:7531 is not allowed: its addresses are 10.1.1.3', log.read())

    def test_the_page_holds_no_markup_of_others(self):
        with gateways(1, '--fault', 'get-attribute:protocol=<script>x</script>') as sim, Exporter('--config.file', 'DIR/c.yml', files={
                'c.yml': f'targets: [{{target: "{sim.targets[0]}", module: "<b>&\\"\'"}}]\nmodules: {{"<b>&\\"\'": {{}}}}\n'}) as exporter:
            exporter.probe(sim.targets[0], module='<b>&"\'')
            exporter.probe('127.0.0.1:1')
            status, headers, page = exporter.ask('/')
            self.assertEqual(status, 200)
            self.assertIn("default-src 'none'", headers['Content-Security-Policy'])
            self.assertIn('&lt;b&gt;&amp;&quot;&#39;', page)
            self.assertNotIn('<b>', page)
            self.assertNotIn('<script', page)
            self.assertIn('cannot connect to 127.0.0.1:1', page)
            self.assertRegex(page, r's ago: Is the Gateway running, and is it that port\?<')
            self.assertEqual(page.count('<rect'), 2)
            debug = exporter.probe(sim.targets[0], module='<b>&"\'', debug='true')
            self.assertRegex(debug, r'(?s)Deadline: .*querying .*150 statistics.*\nMetrics:\n# TYPE')


class Configuration(unittest.TestCase):
    FILE = '''
targets:
  - target: TARGET
    module: small
    labels: {site: north}
modules:
  small:
    groups: [conn, host]
    exclude: ["*.limit"]
    rules:
      - {match: "*.bytes.*.total", type: counter, name: gateway_$1_bytes_total, help: "Bytes of $1.", labels: {direction: $2}}
      - {match: "conn.state", type: stateset, name: gateway_conn_state, states: [LISTENING, THROTTLED, DRAINING]}
      - {match: "host.name", type: info, name: gateway_host}
      - {match: "*.memory.*.kb", type: gauge, name: gateway_memory_bytes, scale: 1024, labels: {kind: $2}}
      - {match: "host.load.*", type: gauge, name: gateway_load}
      - {match: "conn.*.total", type: drop}
'''

    def test_rules_make_metrics(self):
        with gateways() as sim, Exporter('--config.file', 'DIR/c.yml', files={
                'c.yml': self.FILE.replace('TARGET', sim.targets[0])}) as exporter:
            target = sim.targets[0]
            older, newer = exporter.probe(target, module='small'), exporter.probe(target, OPENMETRICS, module='small')
            check_metrics(older)
            for text in (older, newer):
                self.assertNotIn('gateway_conn_accepted', text)
                self.assertNotIn('limit', text)
            self.assertIn('# TYPE gateway_conn_bytes_total counter', older)
            self.assertIn('# TYPE gateway_conn_bytes counter', newer)
            self.assertIn('# HELP gateway_conn_bytes Bytes of conn.', newer)
            self.assertIn(f'gateway_conn_bytes_total{{target="{target}",element="conn",direction="in"}} ', newer)
            self.assertIn('# TYPE gateway_conn_state stateset', newer)
            self.assertEqual(sorted(re.findall(r'gateway_conn_state="(\w+)"} (\d)', newer)),
                             [('DRAINING', '0'), ('LISTENING', '1'), ('THROTTLED', '0')])
            self.assertIn('gateway_host_info{', newer)
            self.assertIn(f'gateway_memory_bytes{{target="{target}",element="host",kind="total"}} 17179869184', newer)
            # Three identifiers with one name.
            self.assertEqual(re.findall(r'gateway_load\{.*id="(.*?)"', newer), ['host.load.1m', 'host.load.5m', 'host.load.15m'])
            self.assertEqual(exporter.metric('zulstat_exporter_mapping_total{reason="same_name"}'), 6)
            self.assertEqual(json.loads(exporter.ask('/sd')[2]),
                             [{'targets': [target], 'labels': {'__param_module': 'small', 'site': 'north'}}])
            self.assertIn('match: "host.name"', exporter.ask('/config')[2])

    def test_a_bad_file_keeps_the_former(self):
        with gateways() as sim, Exporter('--config.file', 'DIR/c.yml', '--web.enable-lifecycle', files={
                'c.yml': 'modules: {old: {}}\n'}) as exporter:
            exporter.write('c.yml', 'modules:\n  new:\n    rules: [{match: x, type: sum}]\n')
            status, _, text = exporter.ask('/-/reload', 'POST')
            self.assertEqual(status, 500)
            self.assertRegex(text, r"c\.yml:3:\d+: 'sum' is no type, expected counter, gauge, stateset, info or drop")
            self.assertEqual(exporter.metric('zulstat_exporter_reload_successful{}'), 0)
            exporter.probe(sim.targets[0], module='old')
            exporter.write('c.yml', 'modules: {new: {}}\n')
            exporter.process.send_signal(signal.SIGHUP)
            self.assertTrue(eventually(lambda: exporter.metric('zulstat_exporter_reload_successful{}') == 1))
            exporter.probe(sim.targets[0], module='new')
            self.assertEqual(exporter.ask(f'/probe?target={sim.targets[0]}&module=old')[0], 400)

    def test_a_reload_during_a_probe_ends_what_it_revokes(self):
        with gateways() as sim, Exporter('--config.file', 'DIR/c.yml', '--web.enable-lifecycle', files={
                'c.yml': 'allow: ["192.0.2.0/24"]\n'}) as exporter:
            exporter.probe(sim.targets[0])
            before = exporter.children()
            sim.fault('invoke:delay=1')
            slow = http.client.HTTPConnection('127.0.0.1', exporter.port, timeout=10)
            slow.request('GET', f'/probe?target={sim.targets[0]}')
            self.assertTrue(eventually(lambda: exporter.metric('zulstat_exporter_queue{}') == 1))
            exporter.write('c.yml', 'allow: []\n')
            self.assertEqual(exporter.ask('/-/reload', 'POST')[0], 200)
            self.assertIn('zulstat_up{target="' + sim.targets[0] + '"} 1', slow.getresponse().read().decode())
            self.assertTrue(eventually(lambda: not exporter.children() & before))
            exporter.probe(sim.targets[0])
            self.assertEqual(exporter.metric('zulstat_exporter_worker_starts_total{reason="renewed"}'), 1)
            slow.close()

    def test_targets_that_a_reload_takes_away(self):
        with gateways() as sim, Exporter('--config.file', 'DIR/c.yml', '--web.enable-lifecycle', '--limit.targets', '3', files={
                'c.yml': 'targets: ["127.0.0.1:11", "127.0.0.1:12", "127.0.0.1:13"]\n'}) as exporter:
            exporter.probe('127.0.0.1:13')
            exporter.write('c.yml', 'targets: []\n')
            self.assertEqual(exporter.ask('/-/reload', 'POST')[0], 200)
            for target in (*sim.targets, '127.0.0.1:14', '127.0.0.1:15', *sim.targets):
                exporter.probe(target)
            self.assertEqual(exporter.metric('zulstat_exporter_targets{}'), 3)
            for words in ('127.0.0.1:13', 'not probed yet'):
                self.assertNotIn(words, exporter.ask('/')[2])

    def test_a_dry_run_shows_what_there_would_be(self):
        with gateways() as sim, tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, 'c.yml')
            with open(path, 'w', encoding='ascii') as file:
                file.write(self.FILE.replace('TARGET', sim.targets[0]))

            def run(*words):
                return subprocess.run([EXPORTER, '--config.file', path, '--dry-run', *words], env=ENVIRONMENT, text=True,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=20, check=False)
            self.assertEqual((run().returncode, run().stdout), (0, 'The configuration is right.\n'))
            shown = run('--target', sim.targets[0]).stdout
            self.assertIn('gateway_conn_bytes_total{', shown)
            self.assertIn('# same_name: 3', shown)
            with open(path, 'a', encoding='ascii') as file:
                file.write('allow: [nothing]\n')
            self.assertEqual(run().returncode, 1)
            self.assertRegex(run().stdout, r"c\.yml:\d+:\d+: 'nothing' is not an address, a network")
            pathlib.Path(path).write_text('', encoding='ascii')
            self.assertEqual(run('--web.config.file', path).stdout, 'The configuration is right.\n')
            self.assertIn(f'{directory}: cannot be read', run('--web.config.file', directory).stdout)
            web = pathlib.Path(directory, 'w.yml')
            pathlib.Path(directory, 'bad').write_text('no certificate', encoding='ascii')
            for text, error in (('basic_auth_users:\n' + f'  a: {"$2y$04$" + 53 * "a"}\n' * 2, "3:3: 'a' is there twice"),
                                ('tls_server_config: {cert_file: bad, key_file: bad}', '1:20: certificate and key do not fit, or are none'),
                                ('http_server_config: {headers: {Server: x}}', "1:32: unknown key 'Server', expected Content-Security-Policy")):
                web.write_text(text, encoding='ascii')
                self.assertIn(f'w.yml:{error}', run('--web.config.file', web).stdout)


    def test_a_proposed_file_makes_the_same_metrics_everywhere(self):
        with gateways(1, '--speed', '50') as sim, tempfile.TemporaryDirectory() as directory:
            zulstat, path = [ZULSTAT, '-p', str(sim.ports[0])], f'{directory}/map.yml'
            proposed = subprocess.run([*zulstat, 'map', '--observe', '2.5'], env=ENVIRONMENT, text=True,
                                      stdout=subprocess.PIPE, check=True).stdout
            for line in ('{match: "conn.accepted.total", type: counter, name: gateway_conn_accepted_total}',
                         '{match: "host.load.1m", type: gauge, name: gateway_host_load_1m}',
                         'name: gateway_host_boot_time_seconds}', '{match: "host.name", type: info, name: gateway_host_name}'):
                self.assertIn(line, proposed)
            self.assertRegex(proposed, r'{match: "conn.state", type: stateset, name: gateway_conn_state, states: \["[A-Z]+"')
            self.assertEqual(proposed.count('- {match: '), 150)
            # What grew for a while is no counter by that alone.
            self.assertIn('{match: "daemon.uptime.seconds", type: gauge, name: gateway_daemon_uptime_seconds}', proposed)
            self.assertEqual(re.findall('match: "(.*)", type: counter', proposed), re.findall('match: "(.*[.]total)", type: counter', proposed))
            with open(path, 'w', encoding='ascii') as file:
                file.write(proposed)
            shown = subprocess.run([*zulstat, '--map', path, '-o', 'openmetrics', 'stats'], env=ENVIRONMENT, text=True,
                                   stdout=subprocess.PIPE, check=True).stdout
            with Exporter('--config.file', path) as exporter:
                text = exporter.probe(sim.targets[0], OPENMETRICS)
                check_metrics(exporter.probe(sim.targets[0]))
            self.assertEqual(*({line.split('} ')[0] for line in statistics(each).splitlines()} for each in (shown, text)))
            self.assertIn('gateway_conn_accepted_total{', shown)
            for words, message in ((['--map', path, 'stats'], 'goes with -o openmetrics'),
                                   (['--map', path, '--module', 'x', '-o', 'openmetrics', 'stats'], "no module 'x'"),
                                   (['--map', '/nonexistent', '-o', 'openmetrics', 'stats'], '/nonexistent: cannot be read')):
                done = subprocess.run([*zulstat, *words], env=ENVIRONMENT, text=True, stderr=subprocess.PIPE, check=False)
                self.assertEqual((done.returncode, message in done.stderr), (2, True), done)


class Access(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        for name in ('server', 'authority', 'stranger', 'client', 'purpose'):
            cls.make(name)

    @classmethod
    def make(cls, name):
        """A certificate by itself, or that of a client by the authority; 'purpose' is for servers only."""
        path = f'{cls.directory.name}/{name}'
        words = ['-x509', '-days', '2', '-out', path + '.pem'] if name not in ('client', 'purpose') else ['-out', path + '.csr']
        subprocess.run(['openssl', 'req', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-subj', f'/CN={name}', '-keyout', path + '.key', *words],
                       check=True, stderr=subprocess.DEVNULL)
        if name in ('client', 'purpose'):
            pathlib.Path(path + '.ext').write_text('extendedKeyUsage=' + ('clientAuth' if name == 'client' else 'serverAuth'), encoding='ascii')
            subprocess.run(['openssl', 'x509', '-req', '-in', path + '.csr', '-CA', f'{cls.directory.name}/authority.pem', '-days', '2',
                            '-CAkey', f'{cls.directory.name}/authority.key', '-CAcreateserial', '-extfile', path + '.ext', '-out', path + '.pem'],
                           check=True, stderr=subprocess.DEVNULL)

    @classmethod
    def tearDownClass(cls):
        cls.directory.cleanup()

    def tls(self, client=None, version=None, authority='server'):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.check_hostname = False
        context.load_verify_locations(f'{self.directory.name}/{authority}.pem')
        if client:
            context.load_cert_chain(f'{self.directory.name}/{client}.pem', f'{self.directory.name}/{client}.key')
        if version:
            context.set_ciphers('DEFAULT:@SECLEVEL=0')
            context.minimum_version = context.maximum_version = version
        return context

    def shakes(self, exporter, version):
        try:
            return exporter.ask('/-/healthy', context=self.tls('client', version))[0] == 200
        except ssl.SSLError:
            return False

    def test_users_need_their_password(self):
        def basic(words):
            import base64
            return {'Authorization': 'Basic ' + base64.b64encode(words.encode()).decode()}
        made = subprocess.run(['perl', '-e', 'print crypt("test", "\\$2b\\$04\\$abcdefghijklmnopqrstuu")'], text=True,
                              stdout=subprocess.PIPE, check=True).stdout
        users = f'basic_auth_users:\n  reader: "{made}"\n'
        with gateways() as sim, Exporter('--web.config.file', 'DIR/w.yml', files={'w.yml': users}) as exporter:
            path = f'/probe?target={sim.targets[0]}'
            for headers, status in (({}, 401), (basic('reader:wrong'), 401), (basic('nobody:test'), 401), (basic('reader'), 401),
                                    ({'Authorization': 'Basic ?'}, 401), (basic('reader:test'), 200), (basic('reader:test'), 200)):
                with self.subTest(headers):
                    self.assertEqual(exporter.ask(path, headers=headers)[0], status)
            self.assertIn('WWW-Authenticate', exporter.ask('/metrics')[1])
            # A user that a reload takes away, although the password was found right.
            exporter.write('w.yml', users.replace('reader', 'other'))
            exporter.process.send_signal(signal.SIGHUP)
            self.assertTrue(eventually(lambda: exporter.ask(path, headers=basic('reader:test'))[0] == 401))
            self.assertEqual(exporter.ask(path, headers=basic('other:test'))[0], 200)

    def test_tls_with_and_without_certificates_of_clients(self):
        own = ''.join(f'  {key}: {self.directory.name}/server.{end}\n' for key, end in (('cert_file', 'pem'), ('key_file', 'key')))
        both = own + f'  client_ca_file: {self.directory.name}/authority.pem\n  client_auth_type: RequireAndVerifyClientCert\n'
        for config, without in ((own, 200), (both, 403)):
            with Exporter('--web.config.file', 'DIR/w.yml', files={'w.yml': 'tls_server_config:\n' + config}) as exporter:
                for client, status in ((None, without), ('client', 200), ('stranger', without), ('purpose', without)):
                    with self.subTest(client=client, without=without):
                        self.assertEqual(exporter.ask('/-/healthy', context=self.tls(client))[0], status)
                for version, taken in ((ssl.TLSVersion.TLSv1, False), (ssl.TLSVersion.TLSv1_1, False), (ssl.TLSVersion.TLSv1_2, True),
                                       (ssl.TLSVersion.TLSv1_3, True)):
                    with self.subTest(version), warnings.catch_warnings():
                        warnings.simplefilter('ignore', DeprecationWarning)
                        self.assertEqual(self.shakes(exporter, version), taken)

    def test_the_web_configuration_is_read_again(self):
        pair = 'tls_server_config:\n' + ''.join(f'  {key}: {self.directory.name}/NAME.{end}\n' for key, end in (('cert_file', 'pem'), ('key_file', 'key')))
        own = pair.replace('NAME', 'server')
        user = 'basic_auth_users:\n  reader: "$2b$04$abcdefghijklmnopqrstuuJ3PGGpUFMVRCOqSNCbBLJnCmV2n3/S2"\n'
        with Exporter('--web.config.file', 'DIR/w.yml', '--web.enable-lifecycle', files={'w.yml': own}) as exporter:
            def ask(path='/', method='GET', name='server', **more):
                return exporter.ask(path, method, context=self.tls(authority=name, **more))
            kept = http.client.HTTPSConnection('127.0.0.1', exporter.port, timeout=10, context=self.tls())
            kept.request('GET', '/-/healthy')
            kept.getresponse().read()
            headers = 'http_server_config: {headers: {X-Frame-Options: deny, Content-Security-Policy: "default-src *"}}\n'
            exporter.write('w.yml', pair.replace('NAME', 'stranger') + '  max_version: TLS12\n' + headers)
            self.assertEqual(ask('/-/reload', 'POST')[0], 200)
            with self.assertRaises(ssl.SSLError):
                ask()
            answer = ask(name='stranger')
            self.assertEqual((answer[0], answer[1]['X-Frame-Options']), (200, 'deny'))
            self.assertEqual(len(answer[1].get_all('Content-Security-Policy')), 1)
            self.assertIn("default-src 'none'", answer[1]['Content-Security-Policy'])
            self.assertEqual(ask('/metrics', name='stranger')[1]['Content-Security-Policy'], 'default-src *')
            with self.assertRaises(ssl.SSLError):
                ask(name='stranger', version=ssl.TLSVersion.TLSv1_3)
            kept.request('GET', '/-/healthy')  # on its former certificate
            self.assertEqual(kept.getresponse().read(), b'zulstat-exporter is healthy.\n')
            kept.close()
            # What is wrong changes nothing, nor can TLS be turned off.
            for text in (own.replace('server.key', 'client.key'), user, own + '  min_version: TLS9\n'):
                exporter.write('w.yml', text)
                self.assertEqual(ask('/-/reload', 'POST', name='stranger')[0], 500)
            exporter.write('w.yml', pair.replace('NAME', 'stranger') + user)
            self.assertEqual(ask('/-/reload', 'POST', name='stranger')[0], 200)
            self.assertEqual(ask(name='stranger')[0], 401)


class Demo(unittest.TestCase):
    def test_the_address_shows_the_page(self):
        with subprocess.Popen([ZULSTAT, 'demo', '--web'], env=ENVIRONMENT, text=True, stdout=subprocess.PIPE) as process:
            addresses = [process.stdout.readline().split()[-1] for _ in range(2)]
            process.stdout.readline()
            texts = [urllib.request.urlopen(address, timeout=10).read().decode() for address in addresses]
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(20), 0)
        self.assertIn('not probed yet', texts[0])
        self.assertIn('zulstat_up{', texts[1])


class Documents(unittest.TestCase):
    ROOT = pathlib.Path(__file__).resolve().parents[2]

    def test_the_pages_have_what_the_program_has(self):
        shown = subprocess.run([EXPORTER, '--help'], text=True, stdout=subprocess.PIPE, check=True).stdout
        options = {option for head in re.findall(r'^ +(-[^\s,]+(?:, ?--\S+)?)', shown, re.M) for option in re.split(', ?', head)}
        page = (self.ROOT / 'docs/man/zulstat-exporter.1.scd').read_text()
        section = re.search(r'^# OPTIONS\n(.*?)^#', page, re.M | re.S)[1]
        self.assertEqual({option for head in re.findall(r'^\*-.*', section, re.M) for option in re.findall(r'\*(-.*?)\*', head)}, options)
        # Defaults: "The default is N" of each limit is the help's.
        defaults = dict(re.findall(r'(--limit\.[\w-]+) N\s.*?\((\d+)\)', shown, re.S))
        written = dict(re.findall(r'^\*(--limit\.[\w-]+)\* _N_\n.*?The default is (\d+)', section, re.M | re.S))
        self.assertEqual(written, defaults)
        with Exporter() as exporter:
            self.assertEqual({f'--limit.{name}' for name in re.findall('zulstat_exporter_limit{limit="(.*)"}', exporter.ask('/metrics')[2])},
                             defaults.keys())
        # Keys: those that an error names.
        page = (self.ROOT / 'docs/man/zulstat-map.5.scd').read_text()
        for text, title in (('x: 1', 'DESCRIPTION'), ('modules: {a: {x: 1}}', 'MODULES'), ('modules: {a: {rules: [{x: 1}]}}', 'RULES')):
            with tempfile.NamedTemporaryFile('w', encoding='ascii') as file:
                file.write(text)
                file.flush()
                said = subprocess.run([EXPORTER, '--dry-run', '--config.file', file.name], text=True, stderr=subprocess.PIPE, check=False)
            keys = said.stderr.rpartition('expected ')[2].strip().split(', ')
            section = re.search(rf'^# {title}\n(.*?)^#', page, re.M | re.S)[1]
            self.assertEqual(sorted(key for head in re.findall(r'^\*.*\*$', section, re.M) for key in re.findall(r'\*(\w+)\*', head)), sorted(keys))
        # The example is a file that is taken.
        with tempfile.NamedTemporaryFile('w', encoding='ascii') as file:
            file.write(re.search(r'^```\n(.*?)^```', page, re.M | re.S)[1])
            file.flush()
            subprocess.run([EXPORTER, '--dry-run', '--config.file', file.name], stdout=subprocess.DEVNULL, check=True)

    def test_the_unit_is_installed_and_as_the_page_says(self):
        with tempfile.TemporaryDirectory() as prefix:
            subprocess.run(['cmake', f'-DCMAKE_INSTALL_PREFIX={prefix}', '-P', pathlib.Path(EXPORTER).with_name('cmake_install.cmake')],
                           stdout=subprocess.DEVNULL, check=True)
            unit = pathlib.Path(prefix, 'lib/systemd/system/zulstat-exporter.service')
            program = re.search('^ExecStart=(.*?) ', unit.read_text(), re.M)[1]
            self.assertTrue(program.startswith(prefix) and os.access(program, os.X_OK), program)
            self.assertEqual({path.name for path in pathlib.Path(prefix, 'share/zulstats/prometheus').iterdir()},
                             {'prometheus.yml', 'zulstat-rules.yml', 'dashboard.json'})
            if shutil.which('systemd-analyze'):
                said = subprocess.run(['systemd-analyze', 'security', '--offline=true', '--no-pager', unit], text=True, check=True,
                                      stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
                page = (self.ROOT / 'docs/man/zulstat-exporter.1.scd').read_text()
                exposure = 'exposure level for zulstat-exporter.service: ([0-9.]+)'
                self.assertLessEqual(float(re.search(exposure, said)[1]), float(re.search(exposure, page)[1]))

    @unittest.skipUnless(shutil.which('promtool'), 'needs promtool (Debian: prometheus)')
    def test_rules_and_configuration_of_prometheus(self):
        for words in (['check', 'config', 'prometheus.yml'], ['test', 'rules', 'zulstat-rules-test.yml']):
            done = subprocess.run(['promtool', *words], cwd=self.ROOT / 'exporter/prometheus', text=True, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, check=False)
            self.assertEqual(done.returncode, 0, done.stdout)


class Trouble(unittest.TestCase):
    def test_requests_while_it_ends(self):
        """A Gateway that does not answer the close request keeps it ending for a while, in which clients go on."""
        with gateways(1, '--fault', 'close:silent:always') as sim, Exporter() as exporter:
            exporter.probe(sim.targets[0])
            clients = [http.client.HTTPConnection('127.0.0.1', exporter.port, timeout=10) for _ in range(8)]
            for client in clients:
                client.request('GET', '/-/healthy')
                client.getresponse().read()
            exporter.process.send_signal(signal.SIGTERM)
            statuses = set()
            while exporter.process.poll() is None:
                for number, client in enumerate(clients):
                    with contextlib.suppress(OSError):
                        client.request('GET', ('/metrics', '/probe?target=127.0.0.1:1')[number % 2])
                for client in clients:
                    with contextlib.suppress(OSError, AttributeError, http.client.HTTPException):  # of a client that did not get there
                        statuses.add(client.getresponse().status)
                    client.close()
            self.assertEqual((exporter.process.returncode, statuses - {200}), (0, {503}))

    def test_bad_clients_keep_nobody_waiting(self):
        with gateways() as sim, Exporter('--limit.client-connections', '300', '--limit.request-time', '2') as exporter:
            def scrapes():
                began = time.monotonic()
                self.assertEqual(series(exporter.probe(sim.targets[0]))[f'zulstat_up{{target="{sim.targets[0]}"}}'], '1')
                self.assertLess(time.monotonic() - began, 5)
            silent, waiting = socket.create_server(('127.0.0.1', 0)), http.client.HTTPConnection('127.0.0.1', exporter.port, timeout=10)
            waiting.request('GET', f'/probe?target=127.0.0.1:{silent.getsockname()[1]}')
            idle = []
            for count in range(1000):
                client = socket.socket()
                client.bind((f'127.0.0.{2 + count % 4}', 0))
                client.connect(('127.0.0.1', exporter.port))
                idle.append(client)
            idle[0].sendall(b'GET /probe?tar')
            scrapes()
            for garbage in (b'\0' * 100, b'GET\r\n\r\n', b'GET / HTTP/9.9\r\n\r\n', b'\x16\x03\x01\x02\0', b'GET /%ZZ?%%% HTTP/1.1\r\nHost: x\r\n\r\n',
                            b'GET /' + b'a' * 100000 + b' HTTP/1.1\r\n\r\n', b'POST /probe HTTP/1.1\r\nHost: x\r\nContent-Length: 99999999999999\r\n\r\nx'):
                with socket.create_connection(('127.0.0.1', exporter.port)) as client:
                    client.sendall(garbage)
                    scrapes()
            extra = []
            for _ in range(400):
                client = socket.socket()
                client.bind(('127.0.0.9', 0))
                client.connect(('127.0.0.1', exporter.port))
                extra.append(client)
            scrapes()
            self.assertTrue(eventually(lambda: exporter.metric('zulstat_exporter_connections_ended_total{reason="client"}') == 100))
            self.assertTrue(eventually(lambda: exporter.metric('zulstat_exporter_connections_ended_total{reason="time"}') >= 1000))
            self.assertIn('kind="deadline"', waiting.getresponse().read().decode())  # within the time of the request
            for client in (*idle, *extra, silent, waiting):
                client.close()

    def test_an_answer_that_nobody_takes_ends_with_its_deadline(self):
        with gateways(1, '--stats', '20000') as sim, Exporter() as exporter, socket.socket() as client:
            client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            client.connect(('127.0.0.1', exporter.port))
            client.sendall(f'GET /probe?target={sim.targets[0]} HTTP/1.1\r\nHost: x\r\nX-Prometheus-Scrape-Timeout-Seconds: 6\r\n\r\n'.encode())
            self.assertTrue(eventually(lambda: exporter.metric('zulstat_exporter_probes_total{result="success"}') == 1))
            self.assertTrue(eventually(lambda: exporter.metric('zulstat_exporter_connections_ended_total{reason="time"}') == 1))

    def test_a_log_that_takes_nothing(self):
        reader, writer = os.pipe()
        with gateways() as sim, Exporter('--config.file', 'DIR/c.yml', files={'c.yml': 'modules:\n'}, stderr=writer) as exporter:
            exporter.write('c.yml', 'modules: []\n')
            for _ in range(1000):
                exporter.process.send_signal(signal.SIGHUP)
                if exporter.metric('zulstat_exporter_log_lines_dropped_total{}') > 0:
                    break
            else:
                self.fail('the log never fills')
            exporter.probe(sim.targets[0])
            os.close(reader)
            os.close(writer)
        with open('/dev/full', 'w', encoding='ascii') as full, gateways() as sim, Exporter(stderr=full) as exporter:
            exporter.probe(sim.targets[0])

    def test_the_manager_is_told(self):
        with tempfile.TemporaryDirectory() as directory, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(f'{directory}/notify')
            manager.settimeout(10)
            with Exporter(environment={'NOTIFY_SOCKET': f'{directory}/notify'}) as exporter:
                self.assertEqual(manager.recv(100), b'READY=1')
                exporter.process.send_signal(signal.SIGHUP)
                self.assertTrue(manager.recv(100).startswith(b'RELOADING=1\nMONOTONIC_USEC='))
                self.assertEqual(manager.recv(100), b'READY=1')
            self.assertEqual(manager.recv(100), b'STOPPING=1')


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1], verbosity=1)
