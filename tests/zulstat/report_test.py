#!/usr/bin/env python3
"""Runs report, plot and diff on recordings that it makes, and looks at what they print.

    report_test.py ZULSTAT ZULSTAT_SIM [CHROMIUM]
"""
import collections
import contextlib
import csv
import html.parser
import io
import json
import os
import pathlib
import pty
import re
import subprocess
import sys
import tempfile
import termios
import time
import unittest

import make_recording

ZULSTAT, SIM = sys.argv[1:3]
CHROMIUM = sys.argv[3] if len(sys.argv) > 3 else None
ENVIRONMENT = {k: v for k, v in os.environ.items() if not k.startswith('ZULSTAT_')} | {
    'LC_ALL': 'C.UTF-8', 'XDG_CONFIG_HOME': '/nosuch', 'TZ': 'UTC0'}
BEGIN = make_recording.BEGIN
VOID = {'meta', 'link', 'br', 'img', 'input', 'hr'}


def run(*words, code=0, **environment):
    done = subprocess.run([ZULSTAT, *map(str, words)], env=ENVIRONMENT | environment, text=True, timeout=60,
                          capture_output=True, check=False)
    assert done.returncode == code, (words, done.returncode, done.stdout[-1000:], done.stderr)
    return done


def sample(second, values, host='gw1', **more):
    """A line of a recording; `values` by identifier."""
    return {'schema': 'zulstat/1', 'target': {'host': host, 'port': 7531}, 'protocol': '1_0_0_0',
            'query': {'what': 'stats', 'ids': []}, 'time': '2025-11-21T02:00:00.000Z', 'wall': BEGIN + second,
            'monotonic': 5000 + second, 'open_seconds': 0, 'query_seconds': 0, 'fresh_connection': second == 0, 'size': 1,
            'elements': [{'element': element, 'rc': 0, 'items': [{'id': i, 'value': v} for i, v in items.items()]}
                         for element, items in values.items()]} | more


class Page(html.parser.HTMLParser):
    """The elements of a page, and those that a browser would load something for or run."""

    def __init__(self, text):
        super().__init__()
        self.tags, self.open, self.titles, self.ids, self.links, self.text = collections.Counter(), [], [], [], [], ''
        self.attributes = collections.Counter()
        self.feed(text)
        assert not self.open, self.open

    def handle_starttag(self, tag, attrs):
        self.tags[tag] += 1
        self.attributes.update(name for name, value in attrs)
        self.ids += [value for name, value in attrs if name == 'id']
        self.links += [value for name, value in attrs if name in ('href', 'src')]
        if tag not in VOID:
            self.open.append(tag)

    def handle_startendtag(self, tag, attrs):
        self.handle_starttag(tag, attrs)
        if tag not in VOID:
            self.open.pop()

    def handle_endtag(self, tag):
        assert self.open and self.open[-1] == tag, (tag, self.open)
        self.open.pop()

    def handle_data(self, data):
        self.text += data if self.open and self.open[-1] != 'style' else ''
        if self.open and self.open[-1] == 'title':
            self.titles.append(data)


HOSTILE = ('<script>alert(1)</script>', '"><img src=x onerror=alert(1)>', "'onmouseover='alert(1)", '</title></svg><b>',
           '&lt;script&gt;', '\x1b[31m\u202egnp.exe', '</style><style>*{display:none}', 'javascript:alert(1)', '\u0000\u0007',
           '<!--', ']]>', '{}{0}%s', 'x' * 30000)


class Recordings(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.place = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def enterContext(self, context):  # unittest has it from 3.11 on
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        return stack.enter_context(context)

    def recording(self, lines, name='r.jsonl'):
        file = self.place / name
        file.write_text(''.join(json.dumps(line) + '\n' for line in lines))
        return file

    def page(self, *words, **environment):
        run('report', *words, '-o', self.place / 'page.html', **environment)
        return Page((self.place / 'page.html').read_text())


class Report(Recordings):
    def test_tells_what_the_recording_has(self):
        file = self.recording(make_recording.lines(3600, 40, 'gw1', BEGIN))
        with file.open('a') as stream:
            stream.write('{"schema": "zulstat/1", "target": {"ho')
        page = self.page(file)
        for text in ('gw1:7531', '2025-11-21 02:00:00', '02:59:59', '3492 samples', '1 torn line passed over',
                     'no samples for 38 s: the connection was lost', 'counters began anew', 'no samples for 72 s',
                     'daemon.state: DEGRADED to RUNNING', 'RUNNING', 'database.version', '3.4.1'):
            self.assertIn(text, page.text)
        # A plot for each statistic that changes, and a word under the pointer for each of its parts.
        self.assertEqual(page.tags['figure'], 40 - 4 - 1)  # but for versions, and a state that stays
        self.assertEqual(page.tags['svg'], page.tags['figure'] + 1)
        self.assertGreater(len(page.titles), 60 * page.tags['figure'] - 200)
        self.assertTrue(any(re.fullmatch(r'02:\d\d:\d\d - 02:\d\d:\d\d\n[\d.]+-[\d.]+ KiB/s', one) for one in page.titles))
        self.assertTrue(all(link.startswith('#') and link[1:] in page.ids for link in page.links), page.links)
        self.assertEqual(page.tags['script'] + page.tags['link'] + page.tags['img'], 0)
        source = (self.place / 'page.html').read_text()
        for part in ('prefers-color-scheme: dark', '@media print', 'width=device-width'):
            self.assertIn(part, source)
        self.assertNotRegex(source, r'https?://|url\(|@import')

    def test_chooses_statistics_and_times(self):
        file = self.recording(make_recording.lines(600, 40, 'gw1', BEGIN))
        page = self.page(file, '-I', 'cache.*', '--at', '02:02', '--to', '-5m')
        self.assertNotIn('daemon', page.text)
        self.assertIn('2025-11-21 02:02:00 to 2025-11-21 02:04:59', page.text)
        self.assertEqual(self.page(file, '-g', 'cache', '-g', 'http').tags['h2'], self.page(file).tags['h2'] - 3)
        (self.place / 'map').write_text('modules: {default: {rules: [{match: "*.sessions", name: sessions, type: counter}]}}')
        self.assertIn('/s, mean', self.page(file, '-I', 'mail.sessions', '-I', 'daemon.sessions', '--map', self.place / 'map').text)
        for words, code, error in (((file, '-I', 'nosuch'), 1, 'nothing matches'), (('/nosuch',), 2, '/nosuch'),
                                   ((file, '--at', '04:00'), 1, 'no sample'), ((file, '--at', 'noon'), 2, 'noon'),
                                   ((self.place,), 2, str(self.place)), ((file, '-o', '/nosuch/x'), 6, 'cannot write')):
            with self.subTest(words):
                self.assertIn(error, run('report', *words, code=code).stderr)
        self.assertEqual(sorted(p.name for p in self.place.iterdir()), ['map', 'page.html', 'r.jsonl'])

    def test_page_goes_where_its_name_leads(self):
        file, other = (self.recording((sample(s, {'e': {'e.n': str(s)}}) for s in range(5)), name) for name in ('a', 'b'))
        (self.place / 'link').symlink_to('b')
        os.link(other, self.place / 'hard')
        before = other.read_text()
        for name in ('b', 'link', 'hard'):
            self.assertIn('is the recording', run('report', file, other, '-o', self.place / name, code=2).stderr)
        self.assertEqual(other.read_text(), before)
        (self.place / 'folder').mkdir()
        (self.place / 'second').symlink_to('folder/page')
        (self.place / 'first').symlink_to(self.place / 'second')
        for _ in range(2):  # the first one makes the file
            run('report', file, '-o', self.place / 'first')
            self.assertIn('</html>', (self.place / 'folder/page').read_text())
            self.assertTrue((self.place / 'first').is_symlink() and (self.place / 'second').is_symlink())
            self.assertEqual(os.listdir(self.place / 'folder'), ['page'])
        with (self.place / 'log').open('w') as stream:
            stream.write('before\n')
            stream.flush()
            (self.place / 'out').symlink_to('/dev/stdout')
            for name in (self.place / 'out', '/dev/fd/1', '/proc/self/fd/1'):
                subprocess.run([ZULSTAT, 'report', file, '-o', name], env=ENVIRONMENT, stdout=stream, timeout=60, check=True)
        self.assertTrue((self.place / 'out').is_symlink())
        text = (self.place / 'log').read_text()
        self.assertTrue(text.startswith('before\n<!DOCTYPE'))
        self.assertEqual(text.count('</html>'), 3)

    def test_files_are_read_by_time(self):
        parts = [self.recording((sample(s, {'e': {'e.total': str(s)}}) for s in range(begin, begin + 20)), f'p{begin}')
                 for begin in (0, 20, 40)]
        self.page(*parts)
        expected = (self.place / 'page.html').read_text()
        self.page(parts[2], parts[0], self.recording([], 'empty'), parts[1])
        page = (self.place / 'page.html').read_text()
        self.assertFalse('counter began anew' in page)
        self.assertTrue(page[page.index('<svg'):] == expected[expected.index('<svg'):])

    def test_tells_why_there_is_nothing(self):
        file = self.recording([sample(s, {}, gap='nobody listens', elements=[{'element': '', 'rc': -122, 'items': []}])
                               for s in range(3)])
        for words in (('report', file), ('plot', '--from', file, 'x')):
            self.assertIn('gw1:7531: no sample since 2025-11-21 02:00:00: nobody listens', run(*words, code=1).stderr)

    def test_tells_what_had_no_room(self):
        many = self.recording([sample(s, {'e': {f'n{n}': '1' for n in range(5010)}}) for s in range(2)], 'many')
        self.assertIn('Only 5000 statistics are shown: 20 more values', run('plot', '--from', many, '*').stderr)
        hosts = self.recording([sample(s, {'e': {'n': '1'}}, host=f'gw{n}') for s in range(2) for n in range(70)], 'hosts')
        text = self.page(hosts).text
        self.assertIn('Only 64 Gateways are shown: 12 more samples had no room.', text)
        self.assertNotIn('statistics are shown', text)

    def test_draws_gateways_on_shared_axes(self):
        files = [self.recording(make_recording.lines(600, 20, host, BEGIN + 60 * place), host)
                 for place, host in enumerate(('gw1', 'gw2', 'gw3'))]
        page, source = self.page(*files), (self.place / 'page.html').read_text()
        self.assertEqual(page.tags['figure'], self.page(files[0]).tags['figure'])
        for host, color in (('gw1', 'g0'), ('gw2', 'g1'), ('gw3', 'g2')):
            self.assertIn(f'<span class="key {color}"></span>{host}:7531', source)
        self.assertEqual(source.count('class="line g2"'), source.count('class="line g0"'))
        self.assertTrue(any(re.search(r'\ngw1:7531: .*\ngw2:7531: .*\ngw3:7531: ', one) for one in page.titles))
        # Two recordings of one Gateway, one behind the other, are one line.
        both = self.page(self.recording(make_recording.lines(300, 10, 'gw1', BEGIN), 'a'),
                         self.recording([line | {'wall': line['wall'] + 300, 'monotonic': line['monotonic'] + 300}
                                         for line in make_recording.lines(300, 10, 'gw1', BEGIN)], 'b'))
        self.assertIn('Samples582', both.text)

    def test_peak_of_one_sample_is_drawn(self):
        file = self.recording(sample(s, {'e': {'e.depth': '900' if s == 4321 else str(5 + s % 3)}}) for s in range(9000))
        page, source = self.page(file), (self.place / 'page.html').read_text()
        self.assertEqual(sum('5-900' in title for title in page.titles), 1)
        heights = [float(y) for y in re.findall(r'[V ]([\d.]+)', re.search(r'class="line g0" d="(.*?)"', source)[1])]
        self.assertLess(min(heights), 10)

    def test_texts_never_become_markup(self):
        lines = [sample(s, {bad: {bad + str(n): str(s * n % 7) if n < 2 else bad if n == 2 else bad[:25] + 'ab'[s > 50]
                                  for n in range(4)} for bad in HOSTILE}, host=HOSTILE[1]) for s in range(100)]
        lines.insert(50, sample(49.5, {}, host=HOSTILE[1], gap=HOSTILE[0],
                                elements=[{'element': '', 'rc': -122, 'items': []}]))
        plain = [json.loads(json.dumps(line)) for line in lines]
        names = {bad: f'n{place}' for place, bad in enumerate(HOSTILE)}
        for line in plain:
            for element in line['elements']:
                for item in element['items']:
                    for bad, name in names.items():
                        item['id'] = item['id'].replace(bad, name)
                        item['value'] = item['value'].replace(bad, name).replace(bad[:25], name)
                element['element'] = names.get(element['element'], '')
            line['target']['host'] = 'gw'
        hostile = self.page(self.recording(lines))
        source = (self.place / 'page.html').read_text()
        tame = self.page(self.recording(plain))
        for of in ('tags', 'attributes'):
            self.assertEqual({k: v for k, v in getattr(hostile, of).items() if k not in ('rect', 'title', 'x', 'width')}.keys(),
                             {k: v for k, v in getattr(tame, of).items() if k not in ('rect', 'title', 'x', 'width')}.keys())
        self.assertEqual([hostile.tags[tag] for tag in ('figure', 'svg', 'li', 'td', 'b', 'style', 'script', 'img')],
                         [tame.tags[tag] for tag in ('figure', 'svg', 'li', 'td', 'b', 'style', 'script', 'img')])
        self.assertFalse(any(name.startswith('on') or name == 'style' for name in hostile.attributes))
        self.assertNotRegex(source, '[\x00-\x08\x0b-\x1f\u202e]')
        self.assertIn('<script>alert(1)</script>', hostile.text)
        self.assertLess(len(source), 3 << 20)
        if CHROMIUM:
            run('report', self.recording(lines), '-o', self.place / 'page.html')
            tree = Page(subprocess.run(
                [CHROMIUM, '--headless', '--no-sandbox', '--disable-gpu', f'--user-data-dir={self.place}/chromium', '--dump-dom',
                 f'file://{self.place}/page.html'], text=True, capture_output=True, timeout=60, check=True).stdout)
            self.assertEqual(tree.tags, hostile.tags)

    def test_hostile_numbers_and_clocks(self):
        values = ('1e308', '-1e308', '1e-300', '18446744073709551615', '-9223372036854775808', '0', '.5', 'nan', '1e999', '')
        file = self.recording([sample(s * wall, {'e': {'e.n': values[s % len(values)], 'e.bytes': values[(s + 1) % 4]}})
                               for wall in (1, -1e9, 1e9, 1e18) for s in range(40)])
        self.assertEqual(self.page(file).tags['script'], 0)
        run('plot', '--from', file, 'e.n', 'e.bytes')
        run('diff', '--from', file, '--at', '@1763690410', '--to', '@1763690415', code=1)


class Plot(Recordings):
    def test_of_a_recording(self):
        file = self.recording(make_recording.lines(600, 20, 'gw1', BEGIN))
        lines = run('plot', '--from', file, 'daemon.requests.total', 'database.sta*').stdout.split('\n')
        self.assertRegex(lines[0], r'^daemon.requests.total  [\d.]+-[\d.]+/s, mean [\d.]+/s, began anew once$')
        self.assertEqual(len(lines), 20 + 1 + 5 + 1)
        self.assertTrue(any('\u2800' < character < '\u2900' for character in ''.join(lines)))
        self.assertIn('02:04', lines[19])
        self.assertIn('database.state', lines[21])
        ascii_only = run('plot', '--from', file, 'daemon.cpu.percent', LC_ALL='C').stdout
        self.assertTrue(ascii_only.isascii() and '*' in ascii_only)
        self.assertIn('nothing matches', run('plot', '--from', file, 'nosuch', code=1).stderr)
        wide = self.recording([sample(s, {'e': {'a.total': ('-1e308', '1e308')[s % 2]}}) for s in range(4)], 'wide')
        self.assertNotIn('inf', run('plot', '--from', wide, 'a.total', '-r', '*').stdout.lower())
        self.assertIn("'--from' is an option of plot", run('--from', file, 'plot', 'x', code=2).stderr)
        self.assertIn('needs an identifier', run('plot', '--from', file, code=2).stderr)

    def drawn(self, port, *words, rows=0):
        """What three samples of plot write to a terminal; one of 0 rows tells no size."""
        leader, follower = pty.openpty()
        termios.tcsetwinsize(follower, (rows, 80 if rows else 0))
        with subprocess.Popen([ZULSTAT, '-p', port, 'plot', *words, '-i', '0.05', '-c', '3'], stdout=follower,
                              env=ENVIRONMENT | {'TERM': 'xterm'}) as process:
            os.close(follower)
            seen = b''
            with contextlib.suppress(OSError):
                while piece := os.read(leader, 65536):
                    seen += piece
            self.assertEqual(process.wait(30), 0)
        os.close(leader)
        return seen

    def test_live(self):
        with subprocess.Popen([SIM, '--port', '0'], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True) as sim, \
                contextlib.ExitStack() as ending:
            ending.callback(sim.terminate)
            port = sim.stdout.readline().strip().rpartition(':')[2]
            text = run('-p', port, 'plot', 'host.load.1m', '-i', '0.05', '-c', '10').stdout
            self.assertRegex(text, r'^host.load.1m  ')
            self.assertIn('nothing matches', run('-p', port, 'plot', 'no*', '-i', '0.05', '-c', '2', code=1).stderr)
            self.assertEqual(self.drawn(port, 'host.load.*').count(b'\x1b[H'), 3)
            self.assertRegex(self.drawn(port, '-g', 'host', rows=24).decode(), r'\d+ more have no room\x1b\[K\r*\n\x1b\[J')
            sim.terminate()


class Diff(Recordings):
    def setUp(self):
        super().setUp()
        self.lines = [sample(s, {'e': {'e.count': str(s * 3), 'e.same': '1', 'e.state': 'up' if s < 20 else 'down'}
                                 | ({'e.old': 'x'} if s < 10 else {'e.new': '\x1b[31m'})}) for s in range(30)]
        self.file = self.recording(self.lines)

    def test_two_moments_of_one(self):
        words = ('diff', '--from', self.file, '--at', f'@{BEGIN + 5}', '--to', f'@{BEGIN + 25}')
        self.assertEqual(run(*words, code=1).stdout, '''\
gw1:7531 2025-11-21 02:00:05 to 2025-11-21 02:00:25, 20 s
APPEARED
  e.new    \\x1b[31m
WENT
  e.old    x
CHANGED
  e.count  15        75    +60  3/s
  e.state  up        down
''')
        self.assertEqual(run(*words, '-o', 'plain', '-I', '*count', code=1).stdout, 'changed\te.count\t15\t75\t60\t3\te\tgw1:7531\n')
        rows = list(csv.DictReader(io.StringIO(run(*words, '-o', 'csv', code=1).stdout)))
        self.assertEqual([(row['change'], row['id'], row['former'], row['value']) for row in rows],
                         [('appeared', 'e.new', '', '\x1b[31m'), ('went', 'e.old', 'x', ''), ('changed', 'e.count', '15', '75'),
                          ('changed', 'e.state', 'up', 'down')])
        document = json.loads(run(*words, '-j', code=1).stdout)
        self.assertEqual(document['comparisons'][0]['differences'][2],
                         {'change': 'changed', 'element': 'e', 'id': 'e.count', 'former': '15', 'value': '75', 'difference': 60.0,
                          'per_second': 3.0})
        self.assertEqual(run(*words, '-I', '*same').stdout.split('\n')[1], 'nothing differs')

    def test_ends_of_two(self):
        other = self.recording([line | {'target': {'host': 'gw2', 'port': 1}} for line in self.lines[:25]], 'other')
        self.assertIn('e.count  87  72  -15\n', run('diff', self.file, other, code=1).stdout)
        self.assertEqual(run('diff', self.file, self.file).returncode, 0)
        # A moment of each, in any order.
        for at, to in ((5, 25), (25, 5)):
            times = ('--at', f'@{BEGIN + at}', '--to', f'@{BEGIN + to}')
            self.assertRegex(run('diff', self.file, self.file, *times, code=1).stdout,
                             f'e.count  +{at * 3}  +{to * 3} ')
        both = self.recording(self.lines + [line | {'target': {'host': 'gw2', 'port': 1}} for line in self.lines], 'both')
        self.assertRegex(run('diff', both, other, code=1).stdout, 'gw1:7531 .*: not there any more(.|\n)*\n\ngw2:1 ')

    def test_a_moment_and_now(self):
        with subprocess.Popen([SIM, '--port', '0', '--speed', '0'], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              text=True) as sim, \
                contextlib.ExitStack() as ending:
            ending.callback(sim.terminate)
            port = sim.stdout.readline().strip().rpartition(':')[2]
            file = self.place / 'live'
            file.write_text(run('-p', port, 'watch', '-c', '1', '-o', 'jsonl', '-g', 'host').stdout)
            self.assertIn('nothing differs', run('-p', port, 'diff', '--from', file).stdout)
            file.write_text(file.read_text().replace('"host.name","value":"zulhost"', '"host.name","value":"other"'))
            self.assertIn('host.name  other  zulhost\n', run('-p', port, 'diff', '--from', file, code=1).stdout)
            sim.terminate()
            sim.wait()
            self.assertIn('cannot connect', run('-p', port, 'diff', '--from', file, code=3).stderr)

    def test_moments_that_are_none(self):
        for at, to, error in ((-5, 25, 'begins at'), (-5, -1, 'begins at'), (25, 5, 'lies before --at')):
            with self.subTest((at, to)):
                done = run('diff', '--from', self.file, '--at', f'@{BEGIN + at}', '--to', f'@{BEGIN + to}', code=2)
                self.assertIn(error, done.stderr)
                self.assertEqual(done.stdout, '')
        self.assertIn('begins at', run('diff', '--from', self.file, '--at', f'@{BEGIN - 5}', code=2).stderr)
        for words in (('-I', 'nosuch*'), ('-g', 'nosuch')):
            self.assertIn('nothing matches', run('diff', self.file, self.file, *words, code=1).stderr)

    def test_what_it_cannot_compare(self):
        empty = self.recording([], 'empty')
        for words, error in ((('diff',), 'two recordings'), (('diff', self.file), 'two recordings'),
                             (('diff', self.file, self.file, self.file), 'two recordings'),
                             (('diff', '--from', self.file, '--to', '-1s'), '--to needs --at'),
                             (('diff', empty, empty), 'no sample'), (('diff', self.file, '/nosuch'), '/nosuch'),
                             (('diff', self.file, self.file, '-o', 'openmetrics'), 'openmetrics')):
            with self.subTest(words):
                self.assertIn(error, run(*words, code=2).stderr)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1], verbosity=1)
