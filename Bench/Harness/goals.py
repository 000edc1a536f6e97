"""What the library shall reach, and whether it has."""
from dataclasses import dataclass
from statistics import median

from Harness.ground import SIZE

BASE = "bare libssh2"  # the same without the library
EVERY_PEER = "every peer"  # that is more than libssh2 alone


@dataclass(frozen=True)
class Goal:
    measure: str
    title: str     # of the entry
    quantity: str  # how its name begins
    limit: float
    of: str = BASE  # BASE, EVERY_PEER, or "" for the number itself
    at_least: bool = False
    more: float = 0  # than the limit allows

    @property
    def text(self):
        sign = "≥" if self.at_least else "≤"
        more = f" + {self.more:g}" if self.more else ""
        return f"{sign} {self.limit:g}" + (f" of {self.of}" if self.of else "") + more


OURS, HELD = "SSHSession", "SSHSession, held"
MB = SIZE / 1e6
# What the library does in its log-in beyond bare libssh2, which is told the method beforehand.
TRIPS_TO_ASK = 1

GOALS = (
    Goal("connect", OURS, "median", 1.1),
    Goal("true", OURS, "median", 1.05),
    Goal("true", OURS, "99th", 1.3),
    Goal("true", OURS, "median", 1, of=EVERY_PEER),
    Goal("cat", OURS, "median", 1.1),
    Goal("sudo", OURS, "median", 1.1),
    *(Goal(content, title, "MB/s", 0.95, at_least=True)
      for content in ("zeros", "csv", "noise", "send-zeros", "send-csv") for title in (OURS, HELD)),
    *(Goal(measure, HELD, "memory", 1.1 * MB + 20, of="") for measure in ("zeros", "send-zeros")),
    *(Goal(measure, OURS, "memory", 20, of="") for measure in ("zeros", "send-zeros")),
    Goal("first", OURS, "round trips from the request", 1.2, of=""),
    Goal("first", OURS, "round trips from the call", 1.1),
    Goal("idle", f"{OURS}, 200", "resident", 1.2),
    Goal("idle", f"{OURS}, 200", "keepalives", 1, of=""),
    *(Goal("work", f"{OURS}, {count}", "commands of the median", 2, of="") for count in (8, 64)),
    Goal("processor", OURS, "processor", 1.1),
    Goal("trips", OURS, "round trips to connect", 1, more=TRIPS_TO_ASK),
    Goal("trips", OURS, "round trips of a command", 1),
)


def verdicts(rows):
    """Rows as results.py makes them, those of a goal told of it."""
    for goal in GOALS:
        row = next((row for row in rows if row.measure == goal.measure and row.title == goal.title
                    and row.quantity.startswith(goal.quantity)), None)
        if row:
            yield goal, row, is_met(goal, row, rows)


def is_met(goal, row, rows):
    """None when there is nothing to compare with."""
    if goal.of == "":
        others = [[1] * len(row.values)]
    elif goal.of == BASE:
        others = [row.base] if row.base else []
    else:
        others = [other.values for other in rows
                  if other.measure == row.measure and other.quantity == row.quantity
                  and not other.title.startswith((OURS, BASE))]
    return all(is_within(goal, row.values, values) for values in others) if others else None


def is_within(goal, values, others):
    """In half of the rounds or more."""
    excess = median(value - other * goal.limit - goal.more for value, other in zip(values, others))
    return excess >= 0 if goal.at_least else excess <= 0
