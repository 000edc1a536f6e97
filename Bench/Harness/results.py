"""From what the programs printed, round by round, to rows of a table."""
from dataclasses import dataclass
from statistics import median

from Harness.peers import PEERS


@dataclass
class Row:
    measure: str
    title: str     # of the entry
    quantity: str
    digits: int
    is_rate: bool
    values: list   # one for each round
    base: list = ()  # the same of what it is compared with

    @property
    def value(self):
        return median(self.values)

    @property
    def ratio(self):
        """Of pairs from the same round, in which the machine was equally busy."""
        ratios = [value / base for value, base in zip(self.values, self.base) if base]
        return median(ratios) if ratios else None


def rows_of(measure, samples):
    """`samples` has for each entry's title a list, for each round what each quantity was."""
    rows = []
    for entry in measure.entries:
        for quantity in entry.quantities or measure.quantities:
            values = [sample[quantity.title] for sample in samples.get(title_of(entry), ())]
            if values:
                rows.append(Row(measure.name, title_of(entry), quantity.title, quantity.digits,
                                quantity.is_rate, values))
    for entry in measure.entries:
        for row in rows:
            if row.title == title_of(entry):
                row.base = next((base.values for base in rows if base.quantity == row.quantity
                                 and base.title == base_of(entry)), [])
    return rows


def title_of(entry):
    return entry.title or PEERS[entry.peer].title


def base_of(entry):
    return PEERS[entry.base].title if entry.base in PEERS else entry.base
