#!/usr/bin/env python3
"""Makes tables and plots of what SpeedBenchmark measured.

SpeedPage.py tables JSON              prints machine, build, parameters and tables
SpeedPage.py plots JSON FOLDER        draws cost against size, an SVG a plot; needs gnuplot
SpeedPage.py write JSON PAGE FOLDER   both, into the page and the folder beside it

The page's own text stays: what is measured stands between lines "<!-- measured: NAME -->" and "<!-- end -->".
"""

import json
import os
import re
import subprocess
import sys

MEASURED = re.compile(r"(?P<begin><!-- measured: (?P<name>[a-z-]+) -->\n).*?(?P<end><!-- end -->)", re.DOTALL)
PACKAGES = ["libbenchmark1debian", "libzmq5", "libglib2.0-0", "libdbus-1-3", "libboost1.74-dev", "libabsl20220623",
            "libspdlog1.10", "libsqlite3-0", "liblmdb0", "libleveldb1d", "zlib1g", "nlohmann-json3-dev", "libc6"]
COLORS = ["#444444", "#1f6fb4", "#c8501e", "#3a8f3a", "#8a4fb0", "#b09020", "#20a0a0"]


def fail(text):
    sys.exit(f"SpeedPage.py: {text}")


def time_text(nanoseconds):
    for unit, length in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= length:
            return f"{figure(nanoseconds / length)} {unit}"
    return f"{figure(nanoseconds)} ns"


def figure(number):
    """Three digits: no more are the same in the next run."""
    if number >= 1000:
        return f"{number:,.0f}"
    if number >= 100:
        return f"{number:.0f}"
    if number >= 10:
        return f"{number:.1f}"
    if number >= 1:
        return f"{number:.2f}"
    return f"{number:.3f}" if number >= 0.1 else f"{number:.2g}"


def cell(column, parts):
    return f"{time_text(column['median'] / parts)} ({time_text(column['minimum'] / parts)})"


def of_role(row, role):
    return [column for column in row["columns"] if column["role"] == role]


def name_of(row):
    size = f", {row['size']:,} {row['sizeUnit']}" if row["size"] else ""
    part = f"; per {row['partUnit']}" if row["partUnit"] else ""
    return row["name"] + size + part


def ratio_of(column, aim=0):
    if "ratio" not in column:
        return ""
    low, high = column["ratios"]
    # Next to the aim two decimals would not tell on which side it is.
    ratio = f"{column['ratio']:.3f}" if aim and abs(column["ratio"] - aim) < 0.01 else figure(column["ratio"])
    return f"{ratio} ({figure(low)} to {figure(high)})"


def aims_of(row):
    """Each aim of a row: what it says and whether the library's own column keeps to it."""
    library = of_role(row, "library")
    aims = []
    if library and row["aim"] and "ratio" in library[0]:
        aims.append((f"R at most {row['aim']:g}", library[0]["ratio"] <= row["aim"]))
    if library and row["aimNanoseconds"]:
        aims.append((f"at most {row['aimNanoseconds']:g} ns",
                     library[0]["median"] / row["parts"] <= row["aimNanoseconds"]))
    if library and row["aimsAtNoFlush"]:
        aims.append(("no flush", library[0]["counters"]["flushes"] == 0))
    return aims


def aim_text(row):
    return "; ".join(f"{text}: {'met' if met else '**missed**'}" for text, met in aims_of(row))


def peer_text(column, row):
    against = f", R {figure(column['ratio'])}" if "ratio" in column else ""
    return f"{column['who']} {cell(column, row['parts'])}{against}"


def count_text(count):
    return f"{count:,.0f}" if count >= 100 or count == int(count) else f"{count:.3g}"


def counted_text(row):
    names = []
    for column in row["columns"]:
        for name in column["counters"]:
            if name not in names:
                names.append(name)
    parts = []
    for name in names:
        figures = [f"{column['who']} {count_text(column['counters'][name])}" for column in row["columns"]
                   if name in column["counters"]]
        parts.append(f"{name}: {', '.join(figures)}")
    return "; ".join(parts)


def table_of(rows):
    heads = ["work", "limit", "library", "R", "aim", "beside it", "counted"]
    lines = []
    for row in rows:
        limits = [f"{column['who']}: {cell(column, row['parts'])}" for column in of_role(row, "limit")]
        libraries = of_role(row, "library")
        lines.append([name_of(row), " ".join(limits),
                      "<br>".join(cell(column, row["parts"]) if len(libraries) == 1
                                  else f"{column['who']}: {cell(column, row['parts'])}" for column in libraries),
                      "<br>".join(ratio_of(column, row["aim"]) for column in libraries), aim_text(row),
                      "<br>".join(peer_text(column, row) for column in of_role(row, "peer")), counted_text(row)])
    used = [i for i in range(len(heads)) if i == 0 or any(line[i] for line in lines)]
    text = "| " + " | ".join(heads[i] for i in used) + " |\n" + "|---" * len(used) + "|\n"
    for line in lines:
        text += "| " + " | ".join(line[i] for i in used) + " |\n"
    return text


def groups_of(document):
    groups = {}
    for row in document["rows"]:
        groups.setdefault(row["group"], []).append(row)
    return groups


def plots_of(document):
    """Rows of one name and several sizes."""
    plots = {}
    for row in document["rows"]:
        if row["size"]:
            plots.setdefault((row["group"], row["name"]), []).append(row)
    return {key: sorted(rows, key=lambda row: row["size"]) for key, rows in plots.items() if len(rows) > 1}


def file_of(group, name, what="time"):
    words = re.sub(r"[^a-z0-9]+", "-", f"{group} {name}".lower()).strip("-")
    return f"{words}{'' if what == 'time' else '-' + what}.svg"


def series_of(rows, value):
    """Points of each column, in the order of the columns."""
    series = {}
    for row in rows:
        for column in row["columns"]:
            y = value(row, column)
            if y is not None:
                series.setdefault(column["who"], []).append((row["size"], y))
    return series


def draw(path, title, x_label, y_label, series):
    script = [f"set terminal svg size 720,440 font 'sans,13' background '#ffffff'", f"set output '{path}'",
              f"set title {json.dumps(title)} noenhanced", f"set xlabel '{x_label}'", f"set ylabel '{y_label}'",
              "set logscale xy", "set format x '10^{%L}'", "set format y '10^{%L}'", "set key left top noenhanced",
              "set grid"]
    curves = []
    for i, (who, points) in enumerate(series.items()):
        script.append(f"$points{i} << EOD")
        script += [f"{x} {y:.6g}" for x, y in points]
        script.append("EOD")
        curves.append(f"$points{i} with linespoints lw 2 pt 7 ps 0.6 lc '{COLORS[i % len(COLORS)]}' "
                      f"title {json.dumps(who)}")
    script.append("plot " + ", ".join(curves))
    done = subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, capture_output=True, check=False)
    if done.returncode != 0 or not os.path.getsize(path):
        fail(f"gnuplot did not draw {path}: {done.stderr.strip()}")


def draw_all(document, folder):
    """Returns what was drawn, by group: file and title."""
    os.makedirs(folder, exist_ok=True)
    for old in os.listdir(folder):
        if old.endswith(".svg"):
            os.remove(os.path.join(folder, old))
    drawn = {}
    for (group, name), rows in plots_of(document).items():
        counters = {counter for row in rows for column in row["columns"] for counter in column["counters"]}
        part = f" a {rows[0]['partUnit']}" if rows[0]["partUnit"] else ""
        kinds = [("time", f"nanoseconds{part}", lambda row, column: column["median"] / row["parts"])]
        if "heap" in counters:
            kinds.append(("heap", "bytes", lambda row, column: max(column["counters"]["heap"], 1)
                          if "heap" in column["counters"] else None))
        for kind, label, value in kinds:
            file = file_of(group, name, kind)
            title = name if kind == "time" else f"{name}: {kind}"
            draw(os.path.join(folder, file), title, rows[0]["sizeUnit"], label, series_of(rows, value))
            drawn.setdefault(group, []).append((file, title))
    return drawn


def package_versions():
    asked = subprocess.run(["dpkg-query", "-W", "-f", "${binary:Package} ${Version}\n"] + PACKAGES, text=True,
                           capture_output=True, check=False)
    versions = [line.replace(":amd64", "").replace(":arm64", "") for line in asked.stdout.splitlines()]
    versions = sorted(line for line in versions if len(line.split()) == 2)
    if len(versions) != len(PACKAGES):
        fail(f"of {', '.join(PACKAGES)} only these are installed: {', '.join(versions)}")
    return ", ".join(versions)


def setup_text(document):
    machine, build, parameters = document["machine"], document["build"], document["parameters"]
    virtual = "a virtual machine: its processors are another machine's threads" if machine["virtual"] else "no virtual machine"
    rows = [("processor", f"{machine['processor']}, {machine['processors']} of them, {virtual}"),
            ("memory", machine["memory"]), ("system", f"{machine['kernel']}, clock source {machine['clock']}"),
            ("load when it began", f"{machine['load']:.2f}"),
            ("build", f"library {build['version']}, {build['compiler']}, {build['flags']}"),
            ("packages", package_versions()),
            ("rounds", f"{parameters['rounds']}, a turn about {parameters['secondsPerTurn'] * 1000:g} ms; "
             f"{parameters['roundsOfLongWork']} where a single piece of work takes over ten times as long"),
            ("length of the run", f"{parameters['seconds']:.0f} s")]
    return "| | |\n|---|---|\n" + "".join(f"| {name} | {value} |\n" for name, value in rows)


def aims_text(document):
    aims = [(row, text, met) for row in document["rows"] for text, met in aims_of(row)]
    missed = [(row, text) for row, text, met in aims if not met]
    lines = [f"{len(aims) - len(missed)} of {len(aims)} aims are met."]
    if missed:
        lines[0] += " Missed are:"
        lines.append("")
        for row, text in missed:
            library = of_role(row, "library")[0]
            if text.startswith("R"):
                seen = ratio_of(library, row["aim"])
            elif text == "no flush":
                seen = f"{library['counters']['flushes']:g}"
            else:
                seen = time_text(library["median"] / row["parts"])
            lines.append(f"- {row['group']}: {name_of(row)}: {text}, seen {seen}")
    return "\n".join(lines) + "\n"


def median_of(document, name, role, who=None, size=None):
    """A column's median, per part; None where the run left it out."""
    for row in document["rows"]:
        if row["name"] == name and size in (None, row["size"]):
            for column in of_role(row, role):
                if who in (None, column["who"]):
                    return column["median"] / row["parts"]
    return None


def known_parts(document, row):
    """What a row's library does beyond its limit and what has a row or a column of its own: names and nanoseconds."""
    name, size = row["name"], row["size"]
    walk = "a walk over the variables of a location"

    def of(name, role="library", who=None, times=1.0, size=None):
        median = median_of(document, name, role, who, size)
        return None if median is None else median * times

    def over_limit(who):
        column = [column for column in row["columns"] if column["who"] == who]
        return column[0]["median"] - of_role(row, "limit")[0]["median"] if column else None

    parts = []
    fires = {"fire, receive and call back in one thread": (1, 1), "copied data to 1 listener in one thread": (1, 1),
             "fire to a listener's thread and an answer back, both on one core": (2, 2),
             "one fire to 16 listeners' threads on one core, until the last callback": (1, 16)}
    if name in fires:
        fired, pumped = fires[name]
        additions = of("the five atomic additions of a fire and a pump", times=(2 * fired + 3 * pumped) / 5)
        parts.append(("atomic additions", additions))
        slots = [of(f"look an event up: in the cache's {slot} slot") for slot in ("first", "last")]
        if name.startswith("fire, receive") and None not in slots:
            parts.append(("the cache, half of its slots on average", sum(slots) / 2))
    elif name.startswith("a variable by its path"):
        parts.append(("disabled traces", over_limit("absl::flat_hash_map and the disabled traces")))
    elif ": store, " in name:
        # The limit compares too.
        unchanged = [of(name.split(":")[0] + ": store, none changed", role, size=size) for role in ("library", "limit")]
        parts.append(("the walk that compares", None if None in unchanged else unchanged[0] - unchanged[1]))
    elif name.endswith(": retrieve"):
        parts.append(("two walks that mark and set defaults", of(walk, who="marked as not retrieved", times=2 * size, size=size)))
        parts.append(("the walk that fills", of(walk, who="with its path, locked", times=size, size=size)))
    return [(what, part) for what, part in parts if part is not None]


def shares_text(document):
    """Where what a missed aim takes beyond its limit goes, as far as rows and columns of their own tell."""
    lines = []
    for row in document["rows"]:
        missed = [text for text, met in aims_of(row) if not met and text.startswith("R")]
        if not missed:
            continue
        library = of_role(row, "library")[0]
        if row["aim"] < 1:
            continue  # a part of the limit is the aim
        # Round by round: the machine's pace changes between rounds, and so do medians of two columns.
        beyond = (library["ratio"] - 1) * of_role(row, "limit")[0]["median"]
        parts = known_parts(document, row)
        told = "; ".join(f"{what} {time_text(part)}, {part / beyond:.0%}" for what, part in parts)
        lines.append(f"| {row['group']}: {name_of(row)} | {time_text(beyond)} | {told or '-'} |")
    return "| missed | beyond the limit | of that |\n|---|---|---|\n" + "\n".join(lines) + "\n" if lines else ""


def print_tables(document):
    print("\n" + setup_text(document))
    for group, rows in groups_of(document).items():
        print(f"{group}\n\n{table_of(rows)}")
    print(aims_text(document))
    print(shares_text(document))


def write_page(document, page, folder):
    if not document["parameters"]["complete"]:
        fail("the figures are of a run that was cut short; the page takes those of a whole one")
    with open(page, encoding="utf-8") as file:
        text = file.read()
    places = ["setup", "aims", "shares", "figures"]
    found = [match["name"] for match in MEASURED.finditer(text)]
    if found != places:
        fail(f"{page} has places for {', '.join(found) or 'nothing'}; it needs one each for {', '.join(places)}")
    drawn = draw_all(document, folder)
    beside = os.path.relpath(folder, os.path.dirname(page))
    figures = ""
    for group, rows in groups_of(document).items():
        figures += f"### {group.capitalize()}\n\n{table_of(rows)}\n"
        for file, title in drawn.get(group, []):
            figures += f"![{title}]({beside}/{file})\n\n"
    texts = {"setup": setup_text(document), "aims": aims_text(document), "shares": shares_text(document), "figures": figures.rstrip("\n") + "\n"}
    text = MEASURED.sub(lambda match: match["begin"] + "\n" + texts[match["name"]] + "\n" + match["end"], text)
    with open(page, "w", encoding="utf-8") as file:
        file.write(text)
    print(f"{page} and {folder}/ are of this run now")


def main(arguments):
    if len(arguments) < 2:
        fail(f"it takes a verb and a file:\n{__doc__}")
    verb, source, *targets = arguments
    with open(source, encoding="utf-8") as file:
        document = json.load(file)
    if verb == "tables" and not targets:
        print_tables(document)
    elif verb == "plots" and len(targets) == 1:
        drawn = draw_all(document, targets[0])
        print(f"{sum(len(files) for files in drawn.values())} plots in {targets[0]}/")
    elif verb == "write" and len(targets) == 2:
        write_page(document, *targets)
    else:
        fail(f"there is no '{' '.join(arguments)}':\n{__doc__}")


if __name__ == "__main__":
    main(sys.argv[1:])
