#!/usr/bin/env python3
"""Lets a real Prometheus scrape zulstat-exporter, with the configuration, rules and dashboard that the tree has.

    prometheus_test.py ZULSTAT_EXPORTER ZULSTAT_SIM ZULSTAT PROMETHEUS
"""
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import unittest
import urllib.parse
import urllib.request

from simulated import Gateways, eventually

EXPORTER, ZULSTAT, PROMETHEUS = sys.argv[1], *sys.argv[3:5]
HERE = pathlib.Path(__file__).resolve().parents[2] / 'exporter/prometheus'
ENVIRONMENT = {k: v for k, v in os.environ.items() if not k.startswith('ZULSTAT')}
GATEWAYS = 5


def free_port():
    with socket.socket() as probe:
        probe.bind(('127.0.0.1', 0))
        return probe.getsockname()[1]


class UnderPrometheus(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.directory.cleanup)
        cls.sims = [Gateways(GATEWAYS - 1), Gateways()]
        cls.addClassCleanup(lambda: [sim.end() for sim in cls.sims])
        cls.targets = [f'127.0.0.1:{port}' for sim in cls.sims for port in sim.ports]
        config = pathlib.Path(cls.directory.name)
        # And one with the metrics that a proposed file makes.
        cls.sims.insert(0, Gateways(1, '--speed', '50'))
        cls.mapped = cls.sims[0].targets[0]
        rules = subprocess.run([ZULSTAT, '-p', str(cls.sims[0].ports[0]), 'map', '--observe', '2.5'], env=ENVIRONMENT, text=True,
                               stdout=subprocess.PIPE, check=True).stdout.replace('  default:', '  mapped:')
        (config / 'exporter.yml').write_text(rules + 'targets:\n' + ''.join(f'  - "{target}"\n' for target in cls.targets) +
                                             f'  - {{target: "{cls.mapped}", module: mapped}}\n')
        cls.port, exporter_port = free_port(), free_port()
        cls.exporter = subprocess.Popen([EXPORTER, '-q', '--web.listen-address', f'127.0.0.1:{exporter_port}',
                                         '--config.file', config / 'exporter.yml'], env=ENVIRONMENT)
        cls.addClassCleanup(cls.stop, cls.exporter)
        # What the tree has, but faster.
        text = (HERE / 'prometheus.yml').read_text().replace('127.0.0.1:9753', f'127.0.0.1:{exporter_port}')
        text = text.replace('127.0.0.1:7531', cls.targets[0]).replace('15s', '1s').replace('10s', '1s')
        (config / 'prometheus.yml').write_text(text)
        rules = (HERE / 'zulstat-rules.yml').read_text()
        (config / 'zulstat-rules.yml').write_text(re.sub(r'for: \w+', 'for: 1s', rules))
        cls.prometheus = subprocess.Popen(
            [PROMETHEUS, f'--config.file={config}/prometheus.yml', f'--storage.tsdb.path={config}/data',
             f'--web.listen-address=127.0.0.1:{cls.port}', '--log.level=error'], stderr=subprocess.DEVNULL)
        cls.addClassCleanup(cls.stop, cls.prometheus)
        assert eventually(lambda: len(cls.query('zulstat_up{job="zulstat-sd"} == 1')) == GATEWAYS + 1, 60)

    @staticmethod
    def stop(process):
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(10)
        finally:
            process.kill()

    @classmethod
    def api(cls, path, **parameters):
        try:
            with urllib.request.urlopen(f'http://127.0.0.1:{cls.port}/api/v1/{path}?{urllib.parse.urlencode(parameters)}', timeout=10) as answer:
                return json.load(answer)['data']
        except OSError:
            return {'result': [], 'alerts': []}

    @classmethod
    def query(cls, expression):
        return cls.api('query', query=expression)['result']

    def up(self, target):
        found = self.query(f'zulstat_up{{job="zulstat-sd", instance="{target}"}}')
        return found[0]['value'][1] if found else None

    def alerts(self, name, target):
        return [alert for alert in self.api('alerts')['alerts'] if alert['state'] == 'firing' and
                alert['labels']['alertname'] == name and alert['labels'].get('instance') == target]

    def test_every_statistic_is_there_as_zulstat_shows_it(self):
        for target in self.targets:
            shown = json.loads(subprocess.run([ZULSTAT, '-p', target.partition(':')[2], '-j', 'stats'], env=ENVIRONMENT, text=True,
                                              stdout=subprocess.PIPE, check=True).stdout)
            items = {item['id']: item for element in shown['elements'] for item in element['items']}
            stored = {}
            for series in self.query(f'{{instance="{target}", job="zulstat-sd", id!=""}}'):
                stored[series['metric']['id']] = series
            self.assertEqual(stored.keys(), items.keys())
            for name, item in items.items():
                series = stored[name]
                if series['metric']['__name__'] == 'zulstat_text':
                    self.assertEqual(series['metric']['value'], item['value'])
                elif 'number' in item:
                    self.assertEqual(float(series['value'][1]), float(item['value']), name)
                else:
                    self.assertTrue(series['metric']['__name__'].endswith('_seconds'), name)
            self.assertNotIn('target', series['metric'])

    def test_up_and_alerts_follow_a_gateway(self):
        sim, target = self.sims[2], self.targets[-1]
        for trouble, phase in (('silent', 'querying'), ('refusing', 'opening'), ('stopped', 'opening')):
            with self.subTest(trouble):
                if trouble == 'silent':
                    sim.fault('invoke:silent:always')
                elif trouble == 'refusing':
                    sim.fault('get-attribute:close-after=0:always')
                    sim.fault('invoke:close-after=0')
                else:
                    sim.end()
                self.assertTrue(eventually(lambda: self.up(target) == '0', 30))
                self.assertTrue(eventually(lambda: self.alerts('ZulstatGatewayDown', target), 30))
                self.assertTrue(self.query(f'zulstat_failure_info{{instance="{target}", phase="{phase}"}}'))
                self.assertTrue(all(self.up(other) == '1' for other in self.targets[:-1]))
                if trouble == 'stopped':
                    type(self).sims[2] = Gateways(port=sim.ports[0])
                else:
                    sim.fault('invoke:healthy:always')
                    sim.fault('get-attribute:healthy:always')
                self.assertTrue(eventually(lambda: self.up(target) == '1', 30))
                self.assertTrue(eventually(lambda: not self.alerts('ZulstatGatewayDown', target), 30))

    def test_the_dashboard_has_data(self):
        dashboard = json.loads((HERE / 'dashboard.json').read_text())
        expressions = [target['expr'] for panel in dashboard['panels'] for target in panel['targets']]
        self.assertGreater(len(expressions), 15)
        # A failure that its panels show.
        self.sims[1].fault('1/invoke:close-after=0')
        for expression in expressions:
            asked = expression.replace('$__rate_interval', '1m').replace('$instance', '.*')
            with self.subTest(expression):
                self.assertTrue(eventually(lambda: self.query(asked), 15), asked)
        for expression in expressions:
            if 'gateway_' in expression:
                asked = expression.replace('$__rate_interval', '1m').replace('$instance', self.mapped)
                with self.subTest(mapped=expression):
                    self.assertTrue(eventually(lambda: self.query(asked), 15), asked)
        resets = re.search(r'expr: (\(resets.*) > 0', (HERE / 'zulstat-rules.yml').read_text())[1]
        self.assertTrue(self.query(f'{resets} and on (instance) zulstat_up{{instance="{self.mapped}"}}'))


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1], verbosity=1)
