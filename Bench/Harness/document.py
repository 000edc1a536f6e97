"""Docs/performance.md, from the results."""
from itertools import groupby

from Harness.tables import as_markdown

HEAD = """# Performance

<!-- Written by ./run bench --write-docs: change the scripts in Bench, not this. -->

What the library costs beside its alternatives: libssh2 with nothing around it, which is the yardstick,
and what else speaks SSH on a Debian system. Client and server share one machine, so that the network
costs nothing and what the programs do is all that shows.

![Bars for each peer](performance.svg)

{summary}
A goal is what the library shall reach; "of bare" is the part of what bare libssh2 took, or reached, in
the same run.

## How it is measured

- Rounds: {rounds}. In each of them every program runs for every measure, one after another. The number
  of a round is the program's own median (or rate); shown is the median of the rounds, with the lowest
  and the highest. What it is of bare libssh2's is the median of that in each round, since a machine is
  not equally busy all the time; so is whether a goal is met.
- The server is a throwaway sshd on loopback with the settings that it comes with; its user's shell is
  {shell}. Everyone logs in with an Ed25519 key, checks the host key against `known_hosts` and asks for
  compression (zlib), which both sides then use both ways. Everything else is each peer's own default.
- The programs are in [`Bench/Peers`](../Bench/Peers), each written as the peer's own documentation
  suggests; bare libssh2 is the same build that the library links. The session has the recommended
  options unless it says otherwise.
- Memory is the peak of what is resident, less that of the same program when its session is idle.

## The machine
"""


def two_columns(pairs):
    return "| | |\n|---|---|\n" + "".join(f"| {name} | {value} |\n" for name, value in pairs.items())


def document(machine, versions, rounds, tables, verdict):
    parts = [HEAD.format(summary=verdict, rounds=rounds, shell=versions["shell"]),
             two_columns(machine), "## Versions\n", two_columns(versions), "## Results\n"]
    for measure, group in groupby(tables, key=lambda table: table.measure):
        parts += [f"### {measure.title}\n", *([measure.note + "\n"] if measure.note else [])]
        parts += [as_markdown(table) for table in group]
    return "\n".join(parts)
