"""Rows of figures and the table they are printed as."""


def row(what, value, unit, target=None):
    """One figure. `target` is the most it may be; without one it is only printed."""
    return {"what": what, "value": value, "unit": unit, "target": target,
            "met": None if target is None else value <= target}


def number(value):
    if value is None:
        return ""
    return f"{value:.0f}" if value == int(value) or abs(value) >= 1000 else f"{value:.3g}"


def text(rows):
    cells = [("measured", "value", "target", "unit", "")]
    marks = {None: "", True: "met", False: "MISSED"}
    for entry in rows:
        target = "" if entry["target"] is None else f"<= {number(entry['target'])}"
        cells.append((entry["what"], number(entry["value"]), target, entry["unit"],
                      marks[entry["met"]]))
    widths = [max(len(line[column]) for line in cells) for column in range(5)]
    lines = []
    for line in cells:
        what, value, target, unit, mark = line
        lines.append(f"{what:<{widths[0]}}  {value:>{widths[1]}}  {target:>{widths[2]}}  "
                     f"{unit:<{widths[3]}}  {mark}".rstrip())
    lines.insert(1, "-" * max(map(len, lines)))
    return "\n".join(lines)
