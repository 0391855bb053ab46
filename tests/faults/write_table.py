# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""Writes the counts of the sweeps between the two marks of docs/reliability.md."""

import datetime
import json
import platform
import sys
from pathlib import Path

import vault_world as vw

BEGIN = "<!-- written by tests/faults/report: -->"
END = "<!-- end of what tests/faults/report writes -->"
SWEEPS = (("failing_calls", "faults"), ("crash_states", "states"), ("power_cut", "cuts"))


def counts(folder, sweep):
    path = folder / f"{sweep}.json"
    rows = json.loads(path.read_text(encoding="utf-8")) if path.exists() else []
    return {row["operation"]: row for row in rows}


def cells(found, key, operation):
    row = found.get(operation)
    return ["–", "–"] if row is None else [str(row[key]), str(row["whole"])]


def table(folder):
    found = [(counts(folder, sweep), key) for sweep, key in SWEEPS]
    lines = [
        "| Operation | Calls disturbed | Vault whole | Crash states | Vault whole "
        "| Power cuts | Vault whole |",
        "|---|--:|--:|--:|--:|--:|--:|",
    ]
    for operation in vw.OPERATIONS:
        row = [cell for rows, key in found for cell in cells(rows, key, operation.name)]
        lines.append(f"| {operation.name} | {' | '.join(row)} |")
    sums = []
    for rows, key in found:
        sums += [str(sum(row[key] for row in rows.values())) if rows else "–",
                 str(sum(row["whole"] for row in rows.values())) if rows else "–"]
    lines.append(f"| **all** | {' | '.join(sums)} |")
    today = datetime.date.today().isoformat()
    return "\n".join(lines + ["", f"Run on {today} under Linux {platform.release().split('-')[0]}."])


def main():
    folder, document = Path(sys.argv[1]), Path(sys.argv[2])
    text = document.read_text(encoding="utf-8")
    before, rest = text.split(BEGIN)
    _, after = rest.split(END)
    document.write_text(f"{before}{BEGIN}\n\n{table(folder)}\n\n{END}{after}", encoding="utf-8")


if __name__ == "__main__":
    main()
