#!/usr/bin/python3
"""What the benchmarks make of numbers: round trips of what a relay carried, and verdicts on goals."""
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "Bench"))
from Harness.goals import BASE, EVERY_PEER, GOALS, Goal, is_met  # noqa: E402
from Harness.measures import measures  # noqa: E402
from Harness.results import Row, rows_of, title_of  # noqa: E402
from Harness.trips import trips  # noqa: E402

TO_SERVER, TO_CLIENT = True, False


class Trips(unittest.TestCase):
    def test_only_what_the_client_waits_for_counts(self):
        cases = (
            ("nothing was sent", [], 10, (0, 0)),
            ("an answer under way", [[0, TO_SERVER], [1, TO_CLIENT]], 1.9, (0, 0)),
            ("one answer", [[0, TO_SERVER], [1, TO_CLIENT]], 2.1, (1, 0)),
            ("two requests at once", [[0, TO_SERVER], [0.1, TO_SERVER], [1, TO_CLIENT],
                                      [1.1, TO_CLIENT]], 2.2, (1, 0)),
            ("one after the other", [[0, TO_SERVER], [1, TO_CLIENT], [2, TO_SERVER],
                                     [2.5, TO_SERVER], [3, TO_CLIENT]], 4, (2, 2)),
            ("a request that crosses an answer", [[0, TO_SERVER], [1, TO_CLIENT],
                                                  [1.5, TO_SERVER], [2.5, TO_CLIENT]], 3.6, (1, 0)),
            ("what the server says by itself", [[0, TO_CLIENT], [1.5, TO_SERVER],
                                                [2.5, TO_CLIENT]], 3.6, (1, 1.5)),
            ("what was sent before", [[-0.5, TO_SERVER], [0.5, TO_CLIENT]], 2, (0, 0)),
        )
        for name, pieces, end, expected in cases:
            with self.subTest(name):
                self.assertEqual(trips(pieces, 1, 0, end), expected)


class Goals(unittest.TestCase):
    def row(self, title, value, base=()):
        return Row("m", title, "q", 1, False, [value], base)

    def test_verdicts(self):
        others = [self.row("bare libssh2", 10), self.row("libssh", 12), self.row("ssh, cold", 90)]
        cases = (
            (Goal("m", "SSHSession", "q", 1.1), 11, True),
            (Goal("m", "SSHSession", "q", 1.1), 11.1, False),
            (Goal("m", "SSHSession", "q", 0.95, at_least=True), 9.4, False),
            (Goal("m", "SSHSession", "q", 0.95, at_least=True), 9.5, True),
            (Goal("m", "SSHSession", "q", 1, more=1), 11, True),
            (Goal("m", "SSHSession", "q", 1, more=1), 11.1, False),
            (Goal("m", "SSHSession", "q", 20, of=""), 20, True),
            (Goal("m", "SSHSession", "q", 20, of=""), 21, False),
            (Goal("m", "SSHSession", "q", 1, of=EVERY_PEER), 12, True),
            (Goal("m", "SSHSession", "q", 1, of=EVERY_PEER), 13, False),
        )
        for goal, value, expected in cases:
            with self.subTest(goal.text, value=value):
                row = self.row("SSHSession", value, [10])
                self.assertIs(is_met(goal, row, [row, *others]), expected)
        alone = self.row("SSHSession", 1)
        self.assertIsNone(is_met(Goal("m", "SSHSession", "q", 1), alone, [alone]))

    def test_each_round_is_compared_with_itself(self):
        busy = Row("m", "SSHSession", "q", 1, False, [1, 9, 5], [1, 3, 5, 7])
        self.assertEqual((busy.value, busy.ratio), (5, 1))
        self.assertTrue(is_met(Goal("m", "SSHSession", "q", 1), busy, [busy]))

    def test_each_goal_is_of_something_that_is_measured(self):
        for measure in measures(False):
            samples = {title_of(entry): [{quantity.title: 1.0 for quantity in measure.quantities}]
                       for entry in measure.entries}
            rows = rows_of(measure, samples)
            for goal in (goal for goal in GOALS if goal.measure == measure.name):
                found = [row for row in rows if row.title == goal.title
                         and row.quantity.startswith(goal.quantity)]
                self.assertTrue(found, goal)
                if goal.of == BASE:
                    self.assertTrue(found[0].base, goal)
        self.assertLessEqual({goal.measure for goal in GOALS},
                             {measure.name for measure in measures(False)})


if __name__ == "__main__":
    unittest.main()
