#!/usr/bin/env python3
"""The first program in Python: opens a connection to a Gateway, shows all statistics, asks again for some of them, and closes.

    first.py PORT [HOST]
"""
import sys

import zulstats


def show(rows):
    for row in rows:
        print(f"{row.element:<34}  failed with {row.rc}" if row.rc < 0 else f"{row.id:<34}  {row.value}")


def main():
    if len(sys.argv) not in (2, 3):
        print(f"usage: {sys.argv[0]} PORT [HOST]", file=sys.stderr)
        return 2
    try:
        with zulstats.connect(sys.argv[2] if len(sys.argv) == 3 else "127.0.0.1", int(sys.argv[1])) as gateway:
            print(f"statistics protocol {gateway.protocol_version}\n")
            show(gateway.stats())
            groups = [row.id for row in gateway.groups() if row.rc >= 0]
            if groups:
                print(f"\nresource group {groups[-1]}:")
                show(gateway.stats_by_group(groups[-1]))
    except zulstats.Error as error:
        print(f"{sys.argv[0]}: {error}. {error.hint}", file=sys.stderr)
        return 1
    return 0


sys.exit(main())
