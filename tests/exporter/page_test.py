#!/usr/bin/env python3
"""Lets a real browser render the page of zulstat-exporter with 50 targets and odd texts.

    page_test.py ZULSTAT_EXPORTER ZULSTAT_SIM CHROMIUM [PICTURE]

With PICTURE the page is drawn there too.
"""
import html
import html.parser
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import urllib.error
import urllib.parse
import urllib.request

from simulated import Gateways, eventually

EXPORTER, CHROMIUM = sys.argv[1], sys.argv[3]
ODD = '<img src=x onerror=alert(1)>&amp;"\'\u202e\u0007'
ENVIRONMENT = {k: v for k, v in os.environ.items() if not k.startswith('ZULSTAT')}
TAGS = set('html head meta title link body h1 p a span form label input button table thead tbody tr th td br svg rect'.split())


class Elements(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.tags, self.attributes = [], []

    def handle_starttag(self, tag, attrs):
        self.tags.append(tag)
        self.attributes += [name for name, _ in attrs]


def ask(port, path):
    try:
        with urllib.request.urlopen(f'http://127.0.0.1:{port}{path}', timeout=10) as answer:
            return answer.read().decode()
    except urllib.error.HTTPError as error:
        return str(error.code)


def browse(directory, *words):
    return subprocess.run([CHROMIUM, '--headless', '--no-sandbox', '--disable-gpu', '--hide-scrollbars', f'--user-data-dir={directory}/browser',
                           *words], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, timeout=100, check=True).stdout


MEASURE = '''<script>
const look = element => element && getComputedStyle(element).color;
addEventListener("load", () => parent.postMessage(JSON.stringify({
    wide: document.documentElement.scrollWidth, room: document.documentElement.clientWidth,
    text: look(document.body), link: look(document.querySelector("a")), bad: look(document.querySelector(".down"))}), "*"));
</script>'''


def measure(directory, port, widths, *words):
    """The page in frames of these widths: how much it takes in each, and its colours. Its own rules let no script in."""
    page = ask(port, '/').replace('<link rel="stylesheet" href="/style.css">', f'<style>{ask(port, "/style.css")}</style>{MEASURE}')
    frames = ''.join(f'<iframe style="border: 0; width: {width}px; height: 800px" srcdoc="{html.escape(page)}"></iframe>' for width in widths)
    path = pathlib.Path(directory, 'frames.html')
    path.write_text(f'<!DOCTYPE html>{frames}<p></p><script>addEventListener("message", event => '
                    'document.querySelector("p").append(event.data + "\\n"));</script>', encoding='utf-8')
    dom = browse(directory, '--virtual-time-budget=10000', *words, '--dump-dom', path.as_uri())
    return [json.loads(line) for line in html.unescape(re.search('<p>(.*?)</p>', dom, re.S)[1]).splitlines()]


def brightness(colour):
    return sum(int(part) for part in re.findall(r'\d+', colour)[:3])


def main():
    with tempfile.TemporaryDirectory() as directory:
        sim = Gateways(46, '--fault', '3/invoke:element-rc=-7,element-index=2:always', '--fault', '5/get-attribute:close-after=0:always',
                       '--fault', '7/invoke:silent:always', '--fault', f'9/get-attribute:protocol={ODD}:always')
        targets = [*sim.targets, '127.0.0.1:1', 'no-such-host.invalid:7531', '[::1]:1']
        config = pathlib.Path(directory, 'c.yml')
        config.write_text('modules: {"' + ODD.replace('"', '\\"').replace('\x07', '\\a') + '": {deadline: 0.5}, quick: {deadline: 0.5}}\n'
                          'targets:\n  - {target: "127.0.0.1:2", module: "' + ODD.replace('"', '\\"').replace('\x07', '\\a') + '"}\n', encoding='utf-8')
        port_file = pathlib.Path(directory, 'port')
        exporter = subprocess.Popen([EXPORTER, '-q', '--web.listen-address', '127.0.0.1:0', '--web.port-file', port_file, '--config.file', config],
                                    env=ENVIRONMENT)
        try:
            assert eventually(lambda: port_file.exists() or exporter.poll() is not None) and exporter.poll() is None
            port = int(port_file.read_text())
            for turn in range(12):
                for number, target in enumerate(targets):
                    if number % 5 == 0 or turn < 1:
                        module = ODD if number == 4 else 'quick'
                        ask(port, '/probe?' + urllib.parse.urlencode({'target': target, 'module': module}))
            dom = browse(directory, '--dump-dom', f'http://127.0.0.1:{port}/')
            elements = Elements()
            elements.feed(dom)
            assert set(elements.tags) <= TAGS, set(elements.tags) - TAGS
            assert not [name for name in elements.attributes if name.startswith('on') or name == 'style'], elements.attributes
            assert elements.tags.count('tr') == 51, elements.tags.count('tr')
            assert '&lt;img src=x onerror=alert(1)&gt;' in dom
            assert '\u202e' not in dom
            found = measure(directory, port, (360, 768, 1280))
            assert sorted(each['room'] for each in found) == [360, 768, 1280], found
            for each in found:
                assert each['wide'] <= each['room'], each
                assert brightness(each['text']) < 200 and brightness(each['bad']) < 400, each
            dark, = measure(directory, port, (360,), '--blink-settings=preferredColorScheme=0')
            assert min(brightness(dark[what]) for what in ('text', 'link', 'bad')) > 400, dark
            for text in ('cannot connect to 127.0.0.1:1:', 'no-such-host.invalid', 'no answer from', 'Is the Gateway running'):
                assert text in dom, text
            if len(sys.argv) > 4:
                browse(directory, '--window-size=1280,900', f'--screenshot={sys.argv[4]}', f'http://127.0.0.1:{port}/')
        finally:
            sim.end()
            exporter.terminate()
            exporter.wait(10)


main()
