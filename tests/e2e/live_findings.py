"""What a comparison finds: figures of the agent that are not those of a peer."""

TOLERANCE = 0.02
ROUNDING = 1e-6


class Findings:
    def __init__(self):
        self.problems = []
        self.compared = 0

    def expect(self, what, value, low, high, unit, tolerance=TOLERANCE):
        """That a figure lies between two, give or take one unit or the tolerance."""
        self.compared += 1
        if value is None:
            self.problems.append(f"{what}: the agent has no figure")
            return
        slack = max(unit, tolerance * max(abs(low), abs(high)))
        if not low - slack <= value <= high + slack:
            self.problems.append(f"{what}: {value:g}, the peer has {low:g} to {high:g}")

    def expect_same(self, what, value, peer):
        self.compared += 1
        if value != peer:
            self.problems.append(f"{what}: {value!r}, the peer has {peer!r}")

    def growth(self, what, first, second, label, read, unit, wraps=2**32):
        """How much a counter has grown, against what it can have grown by in the peer's eyes.

        first and second: the agent's row and the peer's looks before and after it."""
        row1, before1, after1 = first
        row2, before2, after2 = second
        if row1[label] is None or row2[label] is None:
            self.expect(what, None, 0, 0, 0)
            return
        grown = row2[label] - row1[label]
        if isinstance(row1[label], int):
            grown %= wraps
        self.expect(what, grown, read(before2) - read(after1), read(after2) - read(before1), unit)

    def between(self, what, value, first, second, unit=ROUNDING, tolerance=0.0):
        """That a figure lies between those of two looks; that there is none where they have none.
        One that came or went meanwhile is not compared."""
        if first is None and second is None:
            self.expect_same(what, value, None)
        elif first is not None and second is not None:
            self.expect(what, value, min(first, second), max(first, second), unit, tolerance)

    def gauge(self, what, value, first, second, unit):
        """The same of what goes up and down: what moves by so much between two looks may have moved
        as much beyond them."""
        if first is not None and second is not None:
            unit = max(unit, abs(second - first))
        self.between(what, value, first, second, unit, TOLERANCE)

    def gauges(self, what, row, look, readers, unit):
        for label, read in readers.items():
            self.gauge(f"{what} {label}", row[label], read(look.before), read(look.after), unit)

    def table(self, what, row, look, readers, unit=ROUNDING, tolerance=0.0):
        """The same of each figure of a row; readers: by label what reads it of a peer's look."""
        for label, read in readers.items():
            self.between(f"{what} {label}", row[label], read(look.before), read(look.after), unit,
                         tolerance)

    def rates(self, what, row, rates, seconds, readers, unit=1):
        """That a counter's column "/sec" is what the peers' counter has grown by in a second of
        theirs."""
        for label, read in readers.items():
            if f"{label}/sec" not in row:
                continue
            first, within, second = (read(look) for look in (rates.before, rates.within, rates.after))
            if first is None or within is None or second is None:
                self.expect_same(f"{what} {label}/sec", row[f"{label}/sec"], None)
            else:
                # The peers' seconds begin sooner and end later, but what comes at once comes in
                # the agent's too, unless it came while the first looks were taken.
                low = min((second - first) / seconds,
                          (second - within) / max(rates.seconds_within, row["Interval"]))
                self.expect(f"{what} {label}/sec", row[f"{label}/sec"], low,
                            (second - first) / row["Interval"], unit)


def pairs(first, second, row_of):
    return ((row_of(first), first.before, first.after), (row_of(second), second.before,
                                                         second.after))
