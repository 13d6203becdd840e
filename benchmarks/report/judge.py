"""Compares times: ratios, and whether targets are met."""
import dataclasses

import pairs


@dataclasses.dataclass
class Verdict:
    text: str      # the target
    ratio: float   # what was measured
    met: bool


@dataclasses.dataclass
class Line:
    benchmark: str    # the name of ours
    what: str
    ours: float       # nanoseconds for each item, as are the others
    spread: float     # coefficient of variation of ours
    peers: dict
    floor: tuple      # (name, time), or None
    verdicts: list
    unmeasured: list  # targets for peers that were not measured

    def best_peer(self):
        """Returns (name, time) of the fastest peer, or None."""
        return min(self.peers.items(), key=lambda peer: peer[1]) if self.peers else None

    def faster_peers(self):
        """Returns [(name, time)] of the peers that are faster by more than noise, fastest first."""
        faster = [peer for peer in self.peers.items() if self.ours > pairs.LEVEL * peer[1]]
        return sorted(faster, key=lambda peer: peer[1])


@dataclasses.dataclass
class GrowthLine:
    what: str
    ours: float       # time for each item at the larger size over that at the smaller
    than: str         # the peer; empty without one
    peer: float       # the same for the peer; 1 without one
    verdicts: list


class Times:
    """The medians of one program, by benchmark name."""

    def __init__(self, data):
        self.entries = {entry["name"]: entry for entry in data["benchmarks"]}

    def of(self, names, per):
        """Returns {who: time for each item} of the benchmarks that were measured."""
        return {who: self.entries[name]["median_ns"] / per for who, name in names.items()
                if name in self.entries}

    def growth(self, names, per):
        first, last = (self.entries[name]["median_ns"] / size for name, size in zip(names, per))
        return last / first

    def have(self, names):
        return all(name in self.entries for name in names)


def verdict(target, ours, others, floor):
    base = floor if target.above_floor else 0
    gap = others[target.than] - base
    ratio = (ours - base) / gap if gap > 0 else float("inf")
    return Verdict(target.text, ratio, target.is_met(ratio))


def line(row, times):
    """Returns the row with its times, or None if ours was not measured."""
    if row.ours not in times.entries:
        return None
    ours = times.entries[row.ours]["median_ns"] / row.per
    peers, floor = times.of(row.peers, row.per), times.of(row.floor, row.per)
    others = {**peers, **floor}
    least = next(iter(floor.values()), 0)
    verdicts = [verdict(target, ours, others, least) for target in row.targets
                if target.than in others]
    missing = [target.text for target in row.targets if target.than not in others]
    return Line(row.ours, row.what, ours, times.entries[row.ours]["cv"], peers,
                next(iter(floor.items()), None), verdicts, missing)


def growth_line(row, times):
    if not times.have([*row.ours, *row.peer]):
        return None
    ours = times.growth(row.ours, row.per)
    peer = times.growth(row.peer, row.per) if row.peer else 1
    text = f"≤ {row.limit:g}" + (f" × {row.than}" if row.than else "")
    limits = [Verdict(text, ours / peer, ours / peer <= row.limit)] if row.limit else []
    return GrowthLine(row.what, ours, row.than, peer, limits)


@dataclasses.dataclass
class Judged:
    family: object
    data: dict
    lines: list
    growth: list

    def verdicts(self):
        """Returns (what, verdict) for every target that was measured."""
        return [(one.what, each) for one in [*self.lines, *self.growth] for each in one.verdicts]

    def missed(self):
        return [(what, each) for what, each in self.verdicts() if not each.met]


def judge(family, data):
    times = Times(data)
    lines = [line(row, times) for row in family.rows]
    growth = [growth_line(row, times) for row in family.growth]
    return Judged(family, data, [one for one in lines if one], [one for one in growth if one])
