"""Makes mutants of the files that keep the data: statements dropped, conditions inverted, bounds off by
one. One in SHARE is made, chosen by its text, so that it stays the same while the rest of a file changes:
all of them would take half a day."""
import re
import zlib

SHARE = 3

FILES = [
    "genreg/core/session.cpp",
    "genreg/core/session_files.cpp",
    "genreg/core/session_reads.cpp",
    "genreg/core/file.cpp",
    "genreg/core/update.cpp",
    "genreg/core/pending.cpp",
    "genreg/core/many_changes.cpp",
    "genreg/core/verification.cpp",
    "genreg/core/record_store.cpp",
    "genreg/binary_store.cpp",
    "genreg/text_store.cpp",
    "genreg/line_reader.cpp",
]

# What a mutant must not be looked for in, in the order in which they are found.
UNSEEN = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', re.DOTALL)

# A call or an assignment that is a statement of its own, on one line.
STATEMENT = re.compile(r"^[ \t]+(?!return\b|using\b|delete\b)(?:\(void\))?"
                       r"(?:[\w.\[\]]|->|::)+(?:\([^;{}]*\)| [|&^+-]?= [^;{}]*);$", re.MULTILINE)
CONDITION = re.compile(r"\bif \((?:const [^;()]+ = [^;]+; )?")
# A loop whose counter stands still says nothing that its bound does not.
BOUND = re.compile(r" (<=|>=|<|>) | [+-] 1\b|(?<!; )(?:\+\+|--)(?=\w)")
INSTEAD = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}


def blanked(source):
    """The source with spaces for comments and texts, everything else where it was."""
    return UNSEEN.sub(lambda found: re.sub(r"[^\n]", " ", found.group()), source)


def end_of(code, opened):
    """Behind the parenthesis that closes what began before `opened`."""
    depth = 1
    for place in range(opened, len(code)):
        depth += {"(": 1, ")": -1}.get(code[place], 0)
        if depth == 0:
            return place
    raise ValueError("a parenthesis without its end")


def changes(code):
    """(begin, end, replacement) of each, a replacement being made of what stands there."""
    for found in STATEMENT.finditer(code):
        if code[:found.start()].rstrip()[-1] not in ";{}:":
            continue  # the rest of a longer one
        yield found.start(), found.end(), lambda _: ""
    for found in CONDITION.finditer(code):
        yield found.end(), end_of(code, found.end()), lambda old: f"!({old})"
    for found in BOUND.finditer(code):
        if found.group(1):
            yield found.start(1), found.end(1), INSTEAD.get
        else:
            yield found.start(), found.end(), lambda _: ""


def unique(source, begin, end):
    """The lines around what changes, as many as no other place in the file has."""
    first = source.rfind("\n", 0, begin) + 1
    last = source.find("\n", end)
    while source.count(source[first:last]) > 1:
        first = source.rfind("\n", 0, first - 1) + 1
    return first, last


def make(source):
    """(statement, replacement) of each mutant, the statement standing once in the source."""
    made = []
    for begin, end, replace in changes(blanked(source)):
        first, last = unique(source, begin, end)
        kept, lost = source[first:begin], source[begin:end]
        mutant = (source[first:last], kept + replace(lost) + source[end:last])
        if zlib.crc32("=>".join(mutant).encode()) % SHARE == 0:
            made.append(mutant)
    return made
