# SPDX-License-Identifier: Apache-2.0
"""The numbers as Markdown tables: printed as they come, and put between the README's marks when it is asked for."""

import datetime
import os

BEGIN, END = "<!-- figures: benchmarks/run --readme -->\n", "<!-- end of figures -->\n"


class Table:
    def __init__(self):
        self.missed, self.lines = [], []
        self.load = os.getloadavg()[0]

    def say(self, text):
        self.lines.append(text)
        print(text, flush=True)

    def section(self, title):
        self.say(f"\n| {title} | metadata_utils | beside it | ratio | aim |\n|---|---:|---|---:|---|")

    def row(self, what, ours, beside="", ratio=None, aim="", met=True):
        shown = "" if ratio is None else f"{ratio:.2f}"
        if not met:
            self.missed.append(f"{what} ({shown or ours})")
        bold = [text if met or not text else f"**{text}**" for text in ((ours, "") if ratio is None else (ours, shown))]
        cells = (what, bold[0] if ratio is None else ours, beside, bold[1], aim)
        self.say(f"| {' | '.join(map(str, cells))} |")

    def write(self, readme, rounds):
        """Over what stands between the marks."""
        text = readme.read_text()
        head, rest = text.split(BEGIN)
        _, tail = rest.split(END)
        cores = len(os.sched_getaffinity(0))
        when = f"Medians of {rounds} rounds or more, taken in turns, on {datetime.date.today()}; {cores} cores, load average {self.load:.1f} before the first.\n"
        readme.write_text(head + BEGIN + when + "\n".join(self.lines) + "\n\n" + END + tail)


def refused(table, what, error):
    table.row(what, f"refused: {str(error).rsplit('] ', 1)[-1]}", met=False)


def against(table, what, median, ours, limits):
    for peer, limit in limits.items():
        ratio = median[ours] / median[peer]
        table.row(what, milliseconds(median[ours]), f"`{peer}` {milliseconds(median[peer])}", ratio, f"≤ {limit}", ratio <= limit)


def milliseconds(seconds):
    return f"{seconds * 1e3:.2f} ms"
