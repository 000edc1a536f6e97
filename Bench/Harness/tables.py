"""The results as tables: cells first, then text or Markdown of them."""
from dataclasses import dataclass

from Harness.goals import GOALS, verdicts
from Harness.results import rows_of, title_of

HEAD = ("", "median", "lowest to highest", "of bare", "goal")
MET = {True: "met", False: "MISSED", None: "nothing to compare with"}


@dataclass
class Table:
    measure: object
    quantity: str
    lines: list  # of cells, as HEAD


def all_rows(rounds):
    return [row for measure in rounds.measures
            for row in rows_of(measure, rounds.samples[measure.name])]


def tables(rounds, rows):
    told = list(verdicts(rows))
    return [Table(measure, quantity.title, list(lines(rounds, rows, told, measure, quantity)))
            for measure in rounds.measures for quantity in measure.quantities]


def lines(rounds, rows, told, measure, quantity):
    for entry in measure.entries:
        if quantity not in (entry.quantities or measure.quantities):
            continue
        title = title_of(entry)
        key = measure.name, title
        row = next((row for row in rows if (row.measure, row.title, row.quantity) ==
                    (*key, quantity.title)), None)
        if key in rounds.missing:
            yield title, "missing", rounds.missing[key], "", ""
        elif key in rounds.failed:
            yield title, "FAILED", rounds.failed[key], "", ""
        elif row:
            yield cells(row, [(goal, met) for goal, of, met in told if of is row])


def cells(row, goals):
    number = f".{row.digits}f"
    return (row.title, f"{row.value:{number}}",
            f"{min(row.values):{number}} to {max(row.values):{number}}",
            f"{row.ratio:.2f}" if row.ratio is not None else "",
            "; ".join(f"{goal.text}: {MET[met]}" for goal, met in goals))


def summary(rounds, rows):
    wanted = {measure.name for measure in rounds.measures}
    goals = sum(goal.measure in wanted for goal in GOALS)
    verdict = [met for *_, met in verdicts(rows)]
    missed, unknown = verdict.count(False), goals - len(verdict) + verdict.count(None)
    return (f"Of {goals} goals {verdict.count(True)} are met and {missed} missed" +
            (f"; {unknown} cannot be judged, for what is missing." if unknown else "."))


def plain(text):
    return text.replace("`", "")


def as_text(table):
    lines = [HEAD, *table.lines]
    widths = [max(len(line[i]) for line in lines if line[1] not in ("missing", "FAILED"))
              for i in range(len(HEAD))]
    result = [f"{plain(table.measure.title)}: {table.quantity}"]
    for line in lines:
        padded = [line[0].ljust(widths[0]), line[1].rjust(widths[1]), line[2].rjust(widths[2]),
                  line[3].rjust(widths[3]), line[4]]
        result.append("  " + "  ".join(padded).rstrip())
    return "\n".join(result) + "\n"


def as_markdown(table):
    result = ["| " + " | ".join((table.quantity, *HEAD[1:])) + " |", "|---|---:|---:|---:|---|"]
    result += ["| " + " | ".join(line) + " |" for line in table.lines]
    return "\n".join(result) + "\n"
