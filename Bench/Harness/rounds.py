"""Runs the programs, all of them in each round, so that what changes on the machine meets all."""
import contextlib
import json
import subprocess
import sys
import time

from Harness.ground import CONTENTS
from Harness.links import FAR, Link, LossyNetwork
from Harness.peers import PEERS, Programs
from Harness.results import title_of
from Harness.server import Server

LONGEST = 180  # seconds that a program may take


class Failure(Exception):
    pass


class Field:
    """A context: the server, and the networks in which it can be reached."""

    def __init__(self, ground, directory):
        self.ground, self.programs = ground, Programs(directory, ground.environment)
        self.lossy = None

    def __enter__(self):
        with contextlib.ExitStack() as stack:
            self.server = stack.enter_context(Server(self.ground))
            self.stack = stack.pop_all()
        return self

    def __exit__(self, *_):
        self.stack.close()

    def missing(self, measure):
        if measure.needs == "sudo" and not self.ground.can_sudo:
            return "this takes root, and /usr/bin/sudo"
        return LossyNetwork.missing() if measure.link == "lossy" else None

    def missing_of(self, entry):
        self.programs.examine(entry.peer)
        return self.programs.missing.get(entry.peer)

    def link(self, kind):
        if kind == "near":
            return Link(self.server)
        if kind == "far":
            return Link(self.server, FAR)
        if not self.lossy:
            self.lossy = self.stack.enter_context(LossyNetwork(self.ground))
        return Link(self.lossy.server, FAR, self.lossy.within)

    def argument(self, word, size):
        if word == "<password>":
            return self.ground.password_file
        name = str(word).strip("<>")
        return self.ground.content(name, size) if name in CONTENTS else word

    def run(self, measure, entry):
        arguments = [self.argument(word, entry.arguments[0]) for word in entry.arguments]
        with self.link(measure.link) as link:
            if measure.link == "lossy":
                self.lossy.lose(link.port)
            words = self.programs.words(PEERS[entry.peer], link.port, self.ground.user,
                                        self.ground.key, entry.word, arguments)
            result = self.result([*link.within, *words])
        return {quantity.title: quantity.of(result, link.pieces)
                for quantity in entry.quantities or measure.quantities}

    def result(self, words):
        # Not a pipe: what ssh leaves in the background keeps it.
        with open(self.ground.directory / "errors", "w+", encoding="utf-8") as errors:
            try:
                answer = subprocess.run(words, env=self.ground.environment, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=errors, timeout=LONGEST)
                return json.loads(answer.stdout)
            except subprocess.TimeoutExpired:
                raise Failure(f"no answer within {LONGEST} s") from None
            except ValueError:
                errors.seek(0)
                lines = errors.read().strip().splitlines() or [f"status {answer.returncode}"]
                raise Failure(lines[-1]) from None


class Rounds:
    """What came of all rounds: for each measure's name a list of samples for each entry's title,
    and beside that what is missing and what has failed, with the reason."""

    def __init__(self, field, measures):
        self.field, self.measures = field, measures
        self.samples = {measure.name: {} for measure in measures}
        self.missing, self.failed = {}, {}
        self.took = dict.fromkeys(self.samples, 0)  # seconds, by a measure's name
        for measure in measures:
            self.look_for_missing(measure)

    def look_for_missing(self, measure):
        whole = self.field.missing(measure)
        for entry in measure.entries:
            reason = whole or self.field.missing_of(entry)
            if reason:
                self.missing[measure.name, title_of(entry)] = reason

    def run(self, count):
        for number in range(count):
            for measure in self.measures:
                print(f"\rRound {number + 1} of {count}: {measure.name:<12}", end="",
                      file=sys.stderr, flush=True)
                begin = time.monotonic()
                self.round(measure, number)
                self.took[measure.name] += time.monotonic() - begin
        print("\rSeconds: " + ", ".join(f"{name} {took:.0f}" for name, took in self.took.items()),
              file=sys.stderr)

    def round(self, measure, number):
        start = number % len(measure.entries)  # nobody always comes first
        for entry in measure.entries[start:] + measure.entries[:start]:
            if number < entry.rounds:
                self.sample(measure, entry)

    def sample(self, measure, entry):
        key = measure.name, title_of(entry)
        if key in self.missing or key in self.failed:
            return
        try:
            values = self.field.run(measure, entry)
            self.samples[measure.name].setdefault(title_of(entry), []).append(values)
        except Failure as failure:
            self.failed[key] = str(failure)
