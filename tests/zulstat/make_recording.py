#!/usr/bin/env python3
"""Writes a recording of a Gateway that never was: counters, gauges, states, constants, restarts and silent minutes.

    make_recording.py SECONDS [STATISTICS [HOST [BEGIN]]] >FILE

Statistics follow from the time alone, so that the same words write the same bytes.
"""
import datetime
import json
import math
import sys

BEGIN = 1763690400
RESTART, SILENCE = 0.4, 0.7  # parts of the whole
WORDS = ('requests.total', 'errors.total', 'bytes.in.total', 'latency.ms', 'queue.depth', 'memory.used.kb', 'cpu.percent',
         'sessions', 'state', 'version')


def value(word, place, second, since):
    wave = math.sin(second / (180 + 17 * place)) + 0.4 * math.sin(second / (23 + place))
    noise = (second * 2654435761 + place * 40503) % 1000 / 1000
    if word.endswith('total'):
        step = {'requests.total': 230 + place, 'errors.total': 0.02, 'bytes.in.total': 41000 * (place + 1)}[word]
        return str(int(since * step + step * 60 * (math.sin(since / 300) + 1)))
    return {'latency.ms': f'{4 + 2 * wave + 3 * noise ** 8 + (90 if second % 3607 == 0 else 0):.2f}',
            'queue.depth': str(int(max(0, 12 + 9 * wave + 30 * noise ** 20))),
            'memory.used.kb': str(int(374000 + 4000 * wave + since * 0.3)),
            'cpu.percent': f'{max(0.1, min(99.9, 35 + 20 * wave + 12 * noise)):.1f}',
            'sessions': str(int(400 + 150 * math.sin(second / 5000 + place) + 20 * noise)),
            'state': 'DEGRADED' if (second + 977 * place) % 5400 < 240 else 'RUNNING' if since > 20 else 'STARTING',
            'version': '3.4.1'}[word]


def lines(seconds, statistics, host, begin):
    names = ('daemon', 'database', 'cache', 'http', 'mail', 'queue', 'search', 'storage', 'auth', 'billing', 'index', 'proxy',
             'audit', 'batch', 'edge')
    for second in range(seconds):
        wall = begin + second + 0.25
        part = second / seconds
        head = {'schema': 'zulstat/1', 'target': {'host': host, 'port': 7531}, 'protocol': '1_0_0_0',
                'query': {'what': 'stats', 'ids': []},
                'time': datetime.datetime.fromtimestamp(wall, datetime.timezone.utc).strftime('%Y-%m-%dT%H:%M:%S.250Z'),
                'wall': wall, 'monotonic': 5000.5 + second, 'open_seconds': 0.001, 'query_seconds': 0.002,
                'fresh_connection': second == 0, 'size': 5000}
        if SILENCE < part < SILENCE + 0.02:
            continue
        restarted = part >= RESTART
        if RESTART <= part < RESTART + 0.01:
            yield head | {'gap': 'the connection was lost', 'elements': [{'element': '', 'rc': -122, 'items': []}]}
            continue
        since = second - int(RESTART * seconds) if restarted else second + 90000
        head['fresh_connection'] = second == 0 or (restarted and (second - 1) / seconds < RESTART + 0.01)
        elements, left = [], statistics
        for place in range((statistics + len(WORDS) - 1) // len(WORDS)):
            name, items = names[place % len(names)] + (str(place // len(names)) if place >= len(names) else ''), []
            for word in WORDS[:left]:
                text = value(word, place, second, since)
                items.append({'id': f'{name}.{word}', 'value': text})
                if text[0].isdigit() and word != 'version':
                    items[-1]['number'] = json.loads(text)
            left -= len(items)
            elements.append({'element': name, 'rc': 0, 'items': items})
        yield head | {'elements': elements}


def main():
    words = sys.argv[1:]
    seconds, statistics = int(words[0]), int(words[1]) if len(words) > 1 else 150
    host, begin = words[2] if len(words) > 2 else 'gw1', int(words[3]) if len(words) > 3 else BEGIN
    for line in lines(seconds, statistics, host, begin):
        print(json.dumps(line, separators=(',', ':')))


if __name__ == '__main__':
    main()
