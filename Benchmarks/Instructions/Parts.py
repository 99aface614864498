"""Where the instructions of a path go, in words: which functions do what."""

import collections
import re

# Each part: what it is, and which functions "object:name" do it. A function belongs to the first that names it, and so
# does what the C and C++ libraries do for it.
WALK = ("the walks over the variables, with their paths, and the calls of the library that they take",
        r"libZelApplicationFramework.*:|libZelGCL.*:|visitVariable<")
LOCK = ("locking each variable", r":CVariable_(Un)?Lock\b")
TRACE = ("asking whether to trace", r"libvoxtrace.*:|TraceHandler")
MEET = ("meeting each variable in what is known of the store, and comparing or filling it",
        r"canBeKept|fill\(CDatabase|collectChanges\(CDatabase")
TABLE = ("copying values into what is known of the store, or to be written",
         r"ValueTable|vector<storage::ValueTable::Entry|vector<unsigned char|vector<unsigned long|writeChanges")
PROVIDER = [TRACE, LOCK, WALK, MEET]
SQLITE = PROVIDER + [
    ("SQLite itself", r"libsqlite3"),
    ("finding each row's number by its path", r"KnownRows"),
    ("checking each row, or binding it", r"libZelStorageSqlite.*:storage::(SqliteStore|readValue|Statement|isUtf8|isText|"
     r"type|bind|parse|append|withElement|elementSize|contentSize|is|\(anonymous)|_M_fill_assign"),
    TABLE,
]
FILE = PROVIDER + [
    ("checksums", r"libz\.so"),
    ("checking each record", r"readRecord|readValues|contentSize|isPlain|checkValues"),
    ("reading a generation and choosing it", r"FileStore::(imageOf|choose|load)|readFile|readHeader"),
    ("putting the next generation together", r"Writer|RecordMerge|FileStore|writeFile"),
    TABLE,
]
EVENTS = [
    ("counting in and out of the registry", r"EventRegistry::(un)?pin"),
    ("the cache", r"CEventCache|findKey"),
    ("putting the message together, and the call of the system", r"af::(send|receive)Message"),
    ("finding the listener", r"findListener"),
    ("the calls themselves, and the way through the listeners", r"libZelApplicationFramework|libvoxtrace"),
]
# The program that calls belongs to none of them.
LEFT_OUT = re.compile(r"^InstructionPaths:")

PATHS = {
    "events: fire, first slot of the cache": EVENTS,
    "events: fire, last slot of the cache": EVENTS,
    "events: pump": EVENTS,
    "sqlite: store, 1 of 1,000 changed": SQLITE,
    "sqlite: store, all of 1,000 changed": SQLITE,
    "sqlite: retrieve 1,000": SQLITE,
    "file: store, all of 1,000 changed": FILE,
    "file: retrieve 1,000": FILE,
}
SMALLEST_PERCENT = 1


def parts_of(path, costs):
    """@return what the path does and its percentages, the largest first, what no part names last; and the whole."""
    parts = collections.Counter()
    unnamed = 0
    for name, cost in costs.items():
        if LEFT_OUT.search(name):
            continue
        label = next((label for label, functions in PATHS[path] if re.search(functions, name)), None)
        if label is None:
            unnamed += cost
        else:
            parts[label] += cost
    total = sum(parts.values()) + unnamed
    percents = [(label, 100 * cost / total) for label, cost in parts.most_common()]
    named = [(label, percent) for label, percent in percents if percent >= SMALLEST_PERCENT]
    rest = 100 - sum(percent for _, percent in named)
    return named + ([("else", rest)] if rest >= 0.5 else []), total


def table(profiles):
    """@param profiles  of the paths, by name."""
    lines = ["| path | instructions | of that |", "|---|---|---|"]
    for path in PATHS:
        profile = profiles[path]
        parts, total = parts_of(path, profile.of_caller)
        lines.append(f"| {path} | {total / profile.operations:,.0f} | "
                     + "; ".join(f"{label} {percent:.0f}%" for label, percent in parts) + " |")
    return "\n".join(lines) + "\n"
