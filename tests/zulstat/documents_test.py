#!/usr/bin/env python3
"""Holds the man pages, the README and the completions against what the programs print.

    documents_test.py ZULSTAT ZULSTAT_SIM SOURCE
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import make_recording

ZULSTAT, SIM, SOURCE = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
PAGE, SIM_PAGE, README, BASH, ZSH = (SOURCE / name for name in (
    'docs/man/zulstat.1.scd', 'docs/man/zulstat-sim.1.scd', 'README.md', 'zulstat/completion/zulstat.bash',
    'zulstat/completion/_zulstat'))
ENVIRONMENT = {k: v for k, v in os.environ.items() if not k.startswith('ZULSTAT_')} | {
    'LC_ALL': 'C.UTF-8', 'TZ': 'UTC0', 'XDG_CONFIG_HOME': '/nosuch', 'PATH': f'{ZULSTAT.parent}:{os.environ["PATH"]}'}


def output(*command, cwd=None, **environment):
    return subprocess.run(command, env=ENVIRONMENT | environment, text=True, timeout=30, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False, cwd=cwd).stdout


HELP = output(ZULSTAT, '--help')
COMMANDS = re.findall(r'^  (\w+) ', HELP.split('\nCommands:\n')[1], re.M)


def help_options(text):
    return {option for head in re.findall(r'^ +(-[^\s,]+(?:, ?--\S+)?)', text, re.M) for option in re.split(', ?', head)}


def page_options(page, title):
    section = re.search(rf'^#+ {title}\n(.*?)^#', page.read_text(), re.M | re.S)[1]
    return {option for head in re.findall(r'^\*-.*', section, re.M) for option in re.findall(r'\*(-.*?)\*', head)}


def bash_words(*words, **environment):
    """What Tab offers behind the last word. Readline takes an '@' and a ':' for words of their own."""
    script = ('source "$0"; COMP_LINE=$*; for word; do while [[ $word == [^@:]*[@:]* || $word == [@:]?* ]]; do '
              'part=${word%%[@:]*}; part=${part:-${word:0:1}}; COMP_WORDS+=("$part"); word=${word#"$part"}; done; '
              'COMP_WORDS+=("$word"); done; COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _zulstat; printf "%s\\n" "${COMPREPLY[@]}"')
    return set(output('bash', '-uc', script, BASH, 'zulstat', *words, **environment).split())


def loaded_completion():
    """What the shell's own loader takes for the completion of zulstat, from a directory of a user's."""
    with tempfile.TemporaryDirectory() as directory:
        place = pathlib.Path(directory, 'completions')
        place.mkdir()
        (place / 'zulstat').symlink_to(BASH)
        return output('bash', '-c', 'source /usr/share/bash-completion/bash_completion; _completion_loader zulstat; '
                      'complete -p zulstat', BASH_COMPLETION_USER_DIR=directory)


def steady(text, port):
    """Without what differs from run to run: the port, the time, durations."""
    text = re.sub(rf'(:| ){port}\b', r'\g<1>PORT', text)
    text = re.sub(r'[-\d]+T[\d:]+\.\d+Z|[\d./]+ ms', 'TIME', text)
    return re.sub(r'("wall": |"monotonic": |_seconds(?:"?:|\{.*\}) )[\d.e-]+', r'\1TIME', text)


class Documents(unittest.TestCase):
    maxDiff = None

    def test_options_are_those_of_the_help(self):
        self.assertEqual(page_options(PAGE, 'OPTIONS'), help_options(HELP))
        self.assertEqual(bash_words('-'), help_options(HELP))
        self.assertEqual(page_options(SIM_PAGE, 'OPTIONS'), help_options(output(SIM, '--help')))
        self.assertEqual(re.findall(r'^## ([a-z]+)$', PAGE.read_text().split('# FORMATS')[0], re.M), COMMANDS)
        for command in COMMANDS:
            with self.subTest(command):
                own = help_options(output(ZULSTAT, command, '--help'))
                everywhere = own | help_options(HELP) - {'-V', '--version'}
                self.assertEqual(page_options(PAGE, command), own - {'-h', '--help'})
                self.assertEqual(bash_words(command, '-'), everywhere)

    def test_faults_are_those_of_the_help(self):
        shown, page = output(SIM, '--help'), SIM_PAGE.read_text().split('# FAULTS')[1].split('# RECORDINGS')[0]
        exchanges, faults = (re.findall(r'^  ([a-z][\w=-]*)  ', part, re.M)
                             for part in shown.split('\nExchanges, ')[1].split('\nFaults, '))
        self.assertEqual((len(exchanges), len(faults) > 20), (7, True))
        self.assertEqual(re.findall(r'^\|[\[ ] \*(\S+)\*$', page, re.M), exchanges)
        self.assertEqual([name + value for name, value in re.findall(r'^\*(\S+)\*(?:(=)_[A-Z]+_)?$', page, re.M)],
                         [re.sub('=.*', '=', fault) for fault in faults])

    def test_words_offered(self):
        formats = re.search(r'FORMAT +(.*)', HELP)[1].replace(' or ', ', ').split(', ')
        for words, offered in (
                ([''], COMMANDS), (['st'], ['stats']), (['stats', ''], []), (['-o', ''], formats), (['-o', 'csv', 'w'], ['watch']),
                (['-p', '1', 'stats', '--output', '=', 'j'], ['json', 'jsonl']),
                (['record', f'{PAGE}'[:-4]], [f'{PAGE}']), (['top', '--from', f'{PAGE}'[:-4]], [f'{PAGE}']),
                (['-H', 'stats', '--trace-file', f'{PAGE}'[:-4]], [f'{PAGE}']), (['stats', '-o', 'pl'], ['plain']),
                (['report', '-o', f'{PAGE}'[:-4]], [f'{PAGE}'])):
            with self.subTest(words):
                self.assertEqual(bash_words(*words), set(offered))
        self.assertIn(f'*{"*, *".join(formats[:-1])}* or *{formats[-1]}*', PAGE.read_text())
        self.assertEqual(output('zsh', '-n', ZSH), '')
        self.assertEqual(loaded_completion(), 'complete -F _zulstat zulstat\n')

    def test_words_of_gateways_and_files(self):
        with tempfile.TemporaryDirectory() as home, subprocess.Popen(
                [SIM, '--port', '0', '--speed', '0'], stdout=subprocess.PIPE, text=True) as sim:
            port = sim.stdout.readline().strip().rpartition(':')[2]
            pathlib.Path(home, 'zulstat.yaml').write_text(
                f'targets: {{prod: "127.0.0.1:{port}", lab: x}}\nselections: {{errors: a, load: b}}\n')
            environment = {'XDG_CONFIG_HOME': home, 'XDG_CACHE_HOME': f'{home}/cache'}
            loads = {'host.load.1m', 'host.load.15m'}
            for words, offered in ((['@prod', 'stats', 'host.load.1'], loads), (['@p'], {'@prod'}), (['@'], {'@prod', '@lab'}),
                                   (['-H', f'127.0.0.1:{port}', '-T', '5', 'check', 'host.load.1'], loads),
                                   (['top', '@'], {'@errors', '@load'}), (['@lab', 'watch', '@e'], {'@errors'}),
                                   (['@prod', 'gr'], {'groups'}), (['@prod', 'ids', '-g', 'da'], {'daemon'}),
                                   (['watch', '-p', port, '-g', 'da'], {'daemon'})):
                with self.subTest(words):
                    self.assertEqual(bash_words(*words, **environment), offered)
            sim.terminate()

    def test_examples_print_what_is_shown(self):
        """Examples are the blocks that begin with a prompt."""
        for page, arguments in ((PAGE, ()), (README, ()), (SIM_PAGE, ('--stats', '2000'))):
            blocks = ''.join(re.findall(r'^```\n(\$ .*?)^```$', page.read_text(), re.M | re.S))
            examples = re.findall(r'^\$ (.*)\n((?:(?!\$ ).*\n)*)', blocks, re.M)
            self.assertTrue(examples)
            with tempfile.TemporaryDirectory() as directory, subprocess.Popen(
                    [SIM, '--port', '0', '--speed', '0', *arguments], stdout=subprocess.PIPE, text=True) as sim:
                port = sim.stdout.readline().strip().rpartition(':')[2]
                pathlib.Path(directory, 'night.jsonl').write_text(
                    ''.join(json.dumps(line | {'target': {'host': 'gw1', 'port': 7532}}) + '\n'
                            for line in make_recording.lines(3600, 10, 'gw1', make_recording.BEGIN)))
                for command, shown in examples:
                    with self.subTest(page=page.name, command=command):
                        printed = output('bash', '-c', command, cwd=directory, ZULSTAT_PORT=port)
                        self.assertEqual(steady(printed, port), steady(shown, '7531'))
                sim.terminate()


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1], verbosity=1)
