"""CAVP text conventions: field lines, line endings, comparison."""

CRLF = "\r\n"
CRCRLF = "\r\r\n"  # the RSA key-generation KAT file's own line end


def split_lines(text):
    """Lines of a request or answer file without their endings (any number
    of CRs before the LF is an ending)."""
    lines = text.split("\n")
    if lines and lines[-1] == "":
        lines.pop()
    return [line.rstrip("\r") for line in lines]


def join_lines(lines, eol=CRLF):
    return "".join(line + eol for line in lines)


def field(line):
    """(tag, value) of a "tag = value" line, else (None, None)."""
    tag, sep, value = line.partition(" = ")
    if not sep or line.startswith("["):
        return None, None
    return tag.strip(), value.strip()


def bracket_field(line):
    """(name, value) of a "[name = value]" header line, else (None, None)."""
    if not (line.startswith("[") and line.endswith("]")):
        return None, None
    name, sep, value = line[1:-1].partition(" = ")
    return (name, value) if sep else (None, None)


def non_blank(text):
    return [line for line in split_lines(text) if line]


def first_difference(got, want):
    """None when the non-blank lines agree, else a short description."""
    a, b = non_blank(got), non_blank(want)
    for i, (x, y) in enumerate(zip(a, b)):
        if x != y:
            return "non-blank line %d:\n  ours:   %s\n  theirs: %s" % (i + 1, x[:150], y[:150])
    if len(a) != len(b):
        return "%d non-blank lines against %d" % (len(a), len(b))
    return None
