"""compare [WORD...]: measures the cases whose name contains one of the words, all of them without a word.

Of each case, tabwarden and its floors are asked in turn, in short blocks, so that what the machine does besides meets all
of them. What counts is the ratio within a turn: the median of the ratios, and their quartiles.
"""

import json
import os
import platform
import signal
import statistics
import subprocess
import sys
import time
from contextlib import closing, contextmanager
from dataclasses import dataclass
from pathlib import Path

import http_cases
import odbc_cases
from cases import Side
from place import PROGRAMS, memory_folder

from support.server import BUILD

MODULES = (http_cases, odbc_cases)
MOST_TURNS = 60
# How much longer a row may take in a list of the greater size than in one of the lesser.
SIZES, ROW_AIM = (1000, 10000), 1.15

COLUMNS = ("case", "data source", "size", "unit", "tabwarden", "beside it", "its value", "ratio", "quartiles", "aim", "met")


@dataclass
class Asked:
    """A side of a case, with its request in a file and what it answers."""

    side: Side
    path: Path
    answer: bytes

    def seconds(self, count, clients):
        """How long so many requests take, all of which have to be answered in full."""
        command = [PROGRAMS / "bench_client", str(self.side.server.port), self.path, str(count), str(clients)]
        printed = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout.split()
        if int(printed[1]) != count * len(self.answer):
            sys.exit(f"bench: {self.side.name} sent {printed[1]} bytes in {count} answers, not {len(self.answer)} in each")
        return float(printed[0])


def prepare(case, folder):
    """Asks each side once."""
    asked = []
    for number, side in enumerate((case.ours, *case.floors)):
        path, answer = folder / f"request_{number}", folder / "answer"
        path.write_bytes(side.request)
        if case.before:
            case.before()
        subprocess.run(
            [PROGRAMS / "bench_client", str(side.server.port), path, "1", "1", answer], stdout=subprocess.DEVNULL, check=True
        )
        asked.append(Asked(side, path, answer.read_bytes()))
    # The floors of an ODBC case say only that they are done.
    if case.unit == "requests/s" and len({one.answer.partition(b"\r\n\r\n")[2] for one in asked}) > 1:
        sys.exit(f"bench: {case.name}: the sides send different bodies")
    return asked


def value(case, asked):
    if case.before:
        case.before()
    seconds = asked.seconds(case.block, case.clients)
    return 1000 * seconds / case.block if case.unit == "ms" else case.block / seconds


@contextmanager
def on_processors_of(case):
    """Of small requests, the greater part of the time is where the scheduler puts client, server and child from one block
    to the next, so all three take turns on one processor. The pages of a data source are received while the next piece is
    being made, and four clients are for all processors anyway."""
    processes, all_processors = (0, *(side.server.process.pid for side in (case.ours, *case.floors))), os.sched_getaffinity(0)
    one_is_enough = case.clients == 1 and case.unit == "requests/s"
    for process in processes:
        os.sched_setaffinity(process, {max(all_processors)} if one_is_enough else all_processors)
    yield
    for process in processes:
        os.sched_setaffinity(process, all_processors)


def measure(case, folder):
    """The values of all sides, turn by turn. Every other turn goes backwards: no side always comes behind the same one."""
    asked, turns = prepare(case, folder), []
    end = time.monotonic() + case.seconds
    with on_processors_of(case):
        while len(turns) < case.least_turns or (len(turns) < MOST_TURNS and time.monotonic() < end):
            direction = -1 if len(turns) % 2 else 1
            turns.append([value(case, one) for one in asked[::direction]][::direction])
    return turns


def is_met(unit, ratio, aim):
    return None if aim is None else ratio <= aim if unit == "ms" else ratio >= aim


def result(case, turns, number):
    """What the comparison with one floor gave."""
    floor = case.floors[number]
    ours, theirs = [turn[0] for turn in turns], [turn[number + 1] for turn in turns]
    ratios = [our / their for our, their in zip(ours, theirs)]
    quartiles = statistics.quantiles(ratios, n=4, method="inclusive")
    return {
        "case": case.name,
        "data source": case.source,
        "size": case.size,
        "unit": case.unit,
        "tabwarden": statistics.median(ours),
        "beside it": floor.name,
        "its value": statistics.median(theirs),
        "ratio": quartiles[1],
        "quartiles": [quartiles[0], quartiles[2]],
        "aim": floor.aim,
        "met": is_met(case.unit, quartiles[1], floor.aim),
        "values": {"tabwarden": ours, "beside it": theirs},
    }


def row_results(results):
    """How the time per row grows with the list, of each case that was measured in both sizes."""
    least, greatest = SIZES
    times = {(one["case"], one["data source"], one["size"]): one["tabwarden"] for one in results if one["unit"] == "ms"}
    rows = []
    for (case, source, size), time_of_greatest in times.items():
        if size == greatest and (case, source, least) in times:
            ratio = time_of_greatest / greatest / (times[case, source, least] / least)
            rows.append({"case": case, "data source": source, "ratio": ratio, "aim": ROW_AIM, "met": ratio <= ROW_AIM})
    return rows


def machine():
    models = [line for line in open("/proc/cpuinfo") if line.startswith("model name")]
    model = models[0].partition(":")[2].strip() if models else platform.machine()
    return f"{os.cpu_count()} x {model}, Linux {platform.release()}"


def written(column, value):
    if value is None or value == "":
        return "-"
    if isinstance(value, bool):
        return "yes" if value else "no"
    if column == "quartiles":
        return "{:.3f} to {:.3f}".format(*value)
    if column in ("ratio", "aim"):
        return f"{value:.3f}" if column == "ratio" else f"{value:.2f}"
    if isinstance(value, float):
        return f"{value:,.0f}" if value >= 100 else f"{value:.2f}"
    return f"{value:,}" if isinstance(value, int) else value


def table(columns, rows):
    lines = ["| " + " | ".join(columns) + " |", "|" + "---|" * len(columns)]
    return lines + ["| " + " | ".join(written(column, row[column]) for column in columns) + " |" for row in rows]


def report(results, load):
    rows = row_results(results)
    lines = [f"{machine()}; load before: {load:.2f}", "", *table(COLUMNS, results)]
    if rows:
        lines += ["", f"Time per row with {SIZES[1]:,} rows, to that with {SIZES[0]:,}:", ""]
        lines += table(("case", "data source", "ratio", "aim", "met"), rows)
    (BUILD / "results.md").write_text("\n".join(lines) + "\n")
    everything = {"machine": machine(), "load before": load, "results": results, "rows": rows}
    (BUILD / "results.json").write_text(json.dumps(everything, indent=1))


def measure_all(wants, folder):
    results = []
    for module in MODULES:
        with closing(module.cases(wants, folder)) as cases:
            for case in cases:
                turns = measure(case, folder)
                results += [result(case, turns, number) for number in range(len(case.floors))]
                for row in results[-len(case.floors) :]:
                    print(table(COLUMNS, [row])[-1], flush=True)
    return results


def main():
    words, load = sys.argv[1:], os.getloadavg()[0]
    # The servers end with it.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("bench: stopped"))
    with memory_folder() as folder:
        results = measure_all(lambda name: not words or any(word in name for word in words), folder)
    if not results:
        sys.exit("bench: no case has such a name")
    report(results, load)
    print(f"bench: the tables stand in {BUILD}/results.md, every value in results.json")


if __name__ == "__main__":
    main()
