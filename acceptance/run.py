#!/usr/bin/env python3
"""Tries the released program in a virtual machine, with real drivers: what is plugged in and pulled out, and what is seen of it.

usage: run.py [--list] [--jobs N] [NAME...]      all scenarios, or those whose name begins with one of these
       run.py --guest COMMAND                    runs a command in a guest and prints what it says

One line a scenario, and a page with all times in build/acceptance/index.html. The status is 1 when one fails, 2 for wrong arguments or
when the machine can't be made.
"""
import argparse
import sys

from machine import image, scenario


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--list", action="store_true", help="the names of all scenarios")
    parser.add_argument("--jobs", type=int, default=None, metavar="N", help="how many at once; by default as many as there are processors")
    parser.add_argument("--guest", metavar="COMMAND", help="runs this command in a guest instead")
    parser.add_argument("names", nargs="*", metavar="NAME")
    options = parser.parse_args()
    if options.guest:
        return scenario.run_in_guest(options.guest)
    chosen = scenario.choose(options.names)
    if options.list:
        for one in chosen:
            print(f"{one.name:28} {one.title}")
        return 0
    if not chosen:
        print(f"no scenario begins with {' or '.join(options.names)}", file=sys.stderr)
        return 2
    try:
        return scenario.try_all(chosen, options.jobs)
    except image.MachineError as error:
        print(f"vorel: {error}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())
