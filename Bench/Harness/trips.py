"""Round trips in what a relay carried."""


def trips(pieces, delay, begin, end):
    """How many the client waited for between two times, and when the last of them began.

    What one side sends is an answer to all that has reached it by then, so it comes one leg of the
    way after the latest of that. Both sides' pieces stand in `pieces` as [time of sending, whether
    to the server]; each arrives `delay` later.
    """
    sent = sorted([time, to_server] for time, to_server in pieces if begin <= time <= end)
    arrivals = {True: [], False: []}  # at the server, at the client: (time, trip it belongs to)
    begins = {0: begin}

    def latest(at_server, time):
        return max((trip for arrived, trip in arrivals[at_server] if arrived <= time), default=0)

    for time, to_server in sent:
        trip = latest(False, time) + 1 if to_server else latest(True, time)
        arrivals[to_server].append((time + delay, trip))
        begins.setdefault(trip, time)
    last = latest(False, end)
    return last, begins[last]
