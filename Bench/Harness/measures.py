"""What is measured, of whom, how often. Quantities are made of what the programs print."""
from dataclasses import dataclass
from statistics import median

from Harness.ground import SIZE
from Harness.links import FAR
from Harness.trips import trips

ALL = ("ours", "libssh2", "libssh", "master", "cold", "asyncssh", "paramiko")
BOTH = ("ours", "libssh2")


def quantile(values, part):
    values = sorted(values)
    return values[round(part * (len(values) - 1))]


@dataclass(frozen=True)
class Quantity:
    title: str
    of: object           # from what a program printed, and the pieces its link carried
    digits: int = 2
    is_rate: bool = False  # the more, the better


MEDIAN = Quantity("median, ms", lambda result, _: median(result["ms"]))
TAIL = Quantity("99th percentile, ms", lambda result, _: quantile(result["ms"], 0.99))
RATE = Quantity("MB/s", lambda result, _: result["bytes"] / result["seconds"] / 1e6, 1, True)
MEMORY = Quantity("memory, MB", lambda result, _: result["extra_kb"] * 1024 / 1e6, 1)
# Both in round trips, so that the distance does not matter.
FROM_CALL = Quantity("round trips from the call", lambda result, _: median(
    end - begin for begin, end in result["spans"]) / (2 * FAR))
FROM_REQUEST = Quantity("round trips from the request", lambda result, pieces: median(
    end - trips(pieces, FAR, begin, end)[1] for begin, end in result["spans"]) / (2 * FAR))
PROCESSOR = Quantity("processor, ms", lambda result, _: result["processor_ms"], 3)
# The connection itself takes one, before anything of it can be seen in between.
CONNECTING = Quantity("round trips to connect", lambda result, pieces:
                      1 + trips(pieces, FAR, *result["connect"])[0], 0)
COMMAND = Quantity("round trips of a command", lambda result, pieces:
                   median(trips(pieces, FAR, *span)[0] for span in result["commands"]), 0)


def reported(title, key, digits=1, is_rate=False, scale=1):
    return Quantity(title, lambda result, _: result[key] / scale, digits, is_rate)


@dataclass(frozen=True)
class Entry:
    peer: str
    word: str
    arguments: tuple = ()  # "<zeros>" is the path of a file of that, as large as the first one says
    rounds: int = 99       # at most
    title: str = ""        # where the peer's own does not tell it from another entry
    base: str = "libssh2"  # the title or peer of the entry that it is compared with
    quantities: tuple = ()  # where not all of the measure's


@dataclass(frozen=True)
class Measure:
    name: str
    title: str
    quantities: tuple
    entries: tuple
    link: str = "near"  # far: through the relay; lossy: that in a network that loses packets
    needs: str = ""     # "sudo"
    note: str = ""


def repeated(word, counts, peers=ALL):
    """How often each does something; the slow ones need not do it as often."""
    return tuple(Entry(peer, word, (counts.get(peer, counts[""]),)) for peer in peers)


def transfers(word, content, size, peers, **more):
    return tuple(Entry(peer, word, (size, f"<{content}>"), **more) for peer in peers)


def held(word, content, size, quantities=()):
    """In memory as a whole. Bare libssh2 gathers it in a std::string."""
    return (Entry("ours", word, (size, f"<{content}>"), title="SSHSession, held",
                  base="bare libssh2, held", quantities=quantities),
            Entry("libssh2", word, (size, f"<{content}>"), title="bare libssh2, held",
                  base="bare libssh2, held", quantities=quantities))


SLOWER = ("libssh", "master", "asyncssh", "paramiko")
SHORT = SIZE // 16
SHORT_NOTE = (f"The slower peers move {SHORT // 10**6} MB in the first two rounds: rates are compared.")


def receiving(content, size):
    sizes = f"{size // 10**6} MB to us"
    return Measure(
        content, {"zeros": f"{sizes}, zeros", "csv": f"{sizes}, CSV text",
                  "noise": f"{sizes}, incompressible"}[content], (RATE, MEMORY),
        transfers("streamed", content, size, BOTH) + held("held", content, size) +
        (() if content == "noise" else
         transfers("streamed", content, SHORT, SLOWER, rounds=2, quantities=(RATE,))),
        note="Through a sink, or held in memory. " + ("" if content == "noise" else SHORT_NOTE))


def sending(content, size):
    return Measure(
        "send-" + content, f"{size // 10**6} MB from us, " +
        {"zeros": "zeros", "csv": "CSV text"}[content], (RATE, MEMORY),
        transfers("fedinput", content, size, BOTH) + held("heldinput", content, size) +
        (() if content == "csv" else
         transfers("fedinput", content, SHORT, ("master", "asyncssh", "paramiko"), rounds=2,
                   quantities=(RATE,))),
        note="From a descriptor, or held in memory. The server counts it. " +
        ("" if content == "csv" else SHORT_NOTE))


def scale(name, title, word, counts, quantities, note):
    sides = (("many", "ours"), ("manybare", "bare"))
    return Measure(name, title, quantities, tuple(
        Entry(peer, word, (side, count), rounds=1, base=f"bare libssh2, {count}",
              title={"ours": "SSHSession", "bare": "bare libssh2"}[side] + f", {count}")
        for count in counts for peer, side in sides), note=note)


def measures(is_full):
    """What the server's or our compression holds up is short unless all shall be in full."""
    slow = SIZE if is_full else SIZE // 8
    return (
        Measure("connect", "Connect and authenticate", (MEDIAN,),
                repeated("connect", {"": 20, "master": 4, "asyncssh": 5, "paramiko": 5},
                         ("ours", "plain", *(peer for peer in ALL if peer not in ("ours", "cold")))),
                note="The host key is checked. With ssh it is the start of the control master."),
        Measure("true", "`true` on a warm session", (MEDIAN, TAIL),
                repeated("true", {"": 200, "master": 40, "cold": 5, "asyncssh": 50,
                                  "paramiko": 20}),
                note="ssh, cold, connects each time."),
        Measure("cat", "`cat` with 5 bytes of input", (MEDIAN,),
                repeated("cat", {"": 100, "master": 30, "asyncssh": 50, "paramiko": 20},
                         tuple(peer for peer in ALL if peer != "cold"))),
        Measure("sudo", "`true` through sudo, with a password", (MEDIAN,),
                tuple(Entry(peer, "sudo", (15, "<password>")) for peer in BOTH), needs="sudo",
                note="Bare libssh2 sends the same command line and answers the same question."),
        receiving("zeros", SIZE), receiving("csv", slow), receiving("noise", slow),
        Measure("first", "First byte of a command's output, 50 ms away", (FROM_REQUEST, FROM_CALL),
                tuple(Entry(peer, "firstbyte", (3,)) for peer in BOTH), link="far",
                note="Until it is at the sink, the relay's own time included. The request is the last "
                     "thing that had to be sent for it; a channel has to be opened before."),
        sending("zeros", SIZE), sending("csv", slow),
        Measure("processor", "Processor time of a command, 50 ms away, 1 % of the packets lost",
                (PROCESSOR, MEDIAN), tuple(Entry(peer, "processor", (20,)) for peer in BOTH),
                link="lossy", note="A relay delays, and a packet filter in a network namespace loses."),
        Measure("trips", "Round trips", (CONNECTING, COMMAND),
                tuple(Entry(peer, "spans", (3,), rounds=1) for peer in
                      ("ours", "plain", *(peer for peer in ALL if peer not in ("ours", "cold")))),
                link="far", note="Counted in what a relay 50 ms away carried, that of TCP included."),
        scale("idle", "Idle sessions", "idle", (1, 200, 1000) if is_full else (200,),
              (reported("resident, KB each", "resident_bytes", scale=1e3),
               reported("threads", "threads", 0),
               reported("keepalives, s", "keepalive_seconds", 3),
               reported("not sent", "not_sent", 0)),
              "Keepalives of all of them fall due at once."),
        scale("work", "Sessions at work, each in a thread", "work", (1, 8, 64),
              (reported("commands/s", "commands_per_second", is_rate=True),
               Quantity("commands of the median session for one of the slowest", lambda result, _:
                        result["per_session_median"] / result["per_session_minimum"], 2, False)),
              "`true`, one after another, for five seconds."),
    )
