#!/usr/bin/env python3
"""Marks the public API of the library with RKV_EXPORT (rkv/RKVExport.h).

The library is built with hidden visibility, so a public declaration without the mark is not
exported from librkvcore.so. This script finds, in every public header (rkv/**/*.h outside
internal/ folders):

  - each class or struct defined at namespace scope (class templates included, explicit
    specializations such as std::hash<...> not): `class RKV_EXPORT RKVName ...`;
  - each function declared (not defined) at namespace scope, and each `extern` variable:
    `RKV_EXPORT std::string name(...);`;
  - each friend function declared (not defined) inside a class: `friend RKV_EXPORT bool ...;`,

adds the mark where it is missing, and includes rkv/RKVExport.h where a mark was added.
Inline definitions need no mark. Running it again changes nothing.

  scripts/annotate-exports.py           annotate, then clang-format the changed headers
  scripts/annotate-exports.py --check   change nothing; list what lacks the mark, fail if any
  scripts/annotate-exports.py --commit  annotate, then commit the changed headers alone (git)
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
MARK = "RKV_EXPORT"
EXPORT_HEADER = "rkv/RKVExport.h"
INCLUDE_LINE = f'#include "{EXPORT_HEADER}"'


def public_headers():
    for path in sorted((ROOT / "rkv").rglob("*.h")):
        rel = path.relative_to(ROOT).as_posix()
        if "/internal/" in rel or rel == EXPORT_HEADER:
            continue
        yield path


def mask(text):
    """The text with comments, string and character literals and preprocessor lines blanked out
    (newlines kept), so that offsets in it are offsets in the text."""
    out = list(text)
    n = len(text)
    i = 0
    line_start = True

    def blank(a, b):
        for k in range(a, b):
            if out[k] != "\n":
                out[k] = " "

    while i < n:
        c = text[i]
        if line_start and c == "#":
            j = i
            while j < n:
                if text[j] == "\n" and text[j - 1] != "\\":
                    break
                j += 1
            blank(i, j)
            i = j
            continue
        if c == "\n":
            line_start = True
            i += 1
            continue
        if c not in " \t":
            line_start = False
        if text.startswith("//", i):
            j = text.find("\n", i)
            j = n if j < 0 else j
            blank(i, j)
            i = j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
            blank(i, j)
            i = j
        elif c == "R" and text.startswith('R"', i) and (i == 0 or not text[i - 1].isalnum()):
            m = re.match(r'R"([^(\s]*)\(', text[i:])
            end = text.find(")" + m.group(1) + '"', i) if m else -1
            j = n if end < 0 else end + len(m.group(1)) + 2
            blank(i, j)
            i = j
        elif c == '"' or (c == "'" and not (i > 0 and text[i - 1].isalnum())):
            j = i + 1
            while j < n and text[j] != c:
                j += 2 if text[j] == "\\" else 1
            blank(i, j + 1)
            i = j + 1
        else:
            i += 1
    return "".join(out)


def matching_brace(masked, i):
    depth = 0
    for j in range(i, len(masked)):
        if masked[j] == "{":
            depth += 1
        elif masked[j] == "}":
            depth -= 1
            if depth == 0:
                return j
    return len(masked) - 1


CLASS_HEAD = re.compile(
    r"^(?:template\s*<(?P<targs>.*)>\s*)?(?P<key>class|struct)\b\s*(?P<attrs>(?:\[\[.*?\]\]\s*)*)"
    r"(?P<macros>(?:RKV_[A-Z_]+\s*(?:\([^()]*\))?\s+)*)"
    r"(?P<name>[A-Za-z_]\w*(?:::[A-Za-z_]\w*)*)\s*(?:final\b\s*)?(?::(?!:)[^{]*)?$",
    re.S,
)
ACCESS = re.compile(r"^\s*(?:(?:public|protected|private)\s*:\s*)+")
LEADING_ATTRS = re.compile(r"^(?:\[\[.*?\]\]\s*)*", re.S)
NOT_FUNCTIONS = re.compile(
    r"^(?:using|typedef|static_assert|namespace|template|class|struct|union|enum|friend|inline|"
    r"constexpr|consteval)\b"
)


def classify(head):
    h = head.strip()
    if re.search(r"\bnamespace\b", h) or re.fullmatch(r"extern\s*", h):
        return "ns"
    if re.match(r"^enum\b", h):
        return "enum"
    m = CLASS_HEAD.match(h)
    if m and "(" not in h[m.end("macros"):]:
        return "class"
    return "body"


def find_edits(text):
    """Offsets at which to insert the mark, with a description of each declaration."""
    masked = mask(text)
    edits = []
    stack = ["ns"]
    start = 0
    paren = 0
    i = 0
    n = len(masked)
    while i < n:
        c = masked[i]
        if c in "([":
            paren += 1
        elif c in ")]":
            paren -= 1
        elif c == "{" and paren == 0:
            head = masked[start:i]
            kind = classify(ACCESS.sub("", head))
            if kind == "body":
                # A function body or a braced initializer: part of the current declaration.
                j = matching_brace(masked, i)
                rest = masked[j + 1:].lstrip()
                i = j + 1
                if not rest.startswith((";", ",", ")")):
                    start = i  # a function definition ends at its closing brace
                continue
            if kind == "class" and stack[-1] == "ns":
                edits += class_edit(text, masked, start, i)
            stack.append(kind)
            start = i + 1
        elif c == "}" and paren == 0:
            if len(stack) > 1:
                stack.pop()
            start = i + 1
        elif c == ";" and paren == 0:
            edits += statement_edit(text, masked, start, i, stack[-1])
            start = i + 1
        i += 1
    return edits


def skip_space(masked, pos, end):
    while pos < end and masked[pos].isspace():
        pos += 1
    return pos


def class_edit(text, masked, start, end):
    pos = skip_space(masked, start, end)
    head = masked[pos:end]
    m = CLASS_HEAD.match(head.rstrip())
    if not m or re.search(r"\bRKV_EXPORT\b", m.group("macros")):
        return []
    if m.group("targs") is not None and not m.group("targs").strip():
        return []  # an explicit specialization, of std::hash say
    what = f"{m.group('key')} {m.group('name')}"
    if m.group("attrs"):
        return [(pos + m.end("attrs"), what, MARK + " ")]
    return [(pos + m.end("key"), what, " " + MARK)]


def statement_edit(text, masked, start, end, scope):
    pos = skip_space(masked, start, end)
    access = ACCESS.match(masked[pos:end])
    if access:
        pos = skip_space(masked, pos + access.end(), end)
    stmt = masked[pos:end].strip()
    if not stmt or MARK in stmt:
        return []
    summary = " ".join(stmt.split())[:90]
    if scope == "class":
        m = re.match(r"^friend\s+", stmt)
        if m and "(" in stmt and not re.search(r"=\s*(?:default|delete)\s*$", stmt):
            return [(pos + m.end(), summary, MARK + " ")]
        return []
    if scope != "ns":
        return []
    attrs = LEADING_ATTRS.match(stmt)
    body = stmt[attrs.end():]
    if re.match(r"^extern\b", body):
        return [(pos + attrs.end(), summary, MARK + " ")]
    if NOT_FUNCTIONS.match(body) or "(" not in body:
        return []
    if re.search(r"=\s*delete\s*$", body):
        return []
    return [(pos + attrs.end(), summary, MARK + " ")]


def add_include(text):
    if INCLUDE_LINE in text:
        return text
    lines = text.split("\n")
    last_include = max((k for k, line in enumerate(lines) if line.startswith("#include ")),
                       default=None)
    if last_include is not None:
        lines.insert(last_include + 1, INCLUDE_LINE)
    else:
        pragma = next(k for k, line in enumerate(lines) if line.startswith("#pragma once"))
        lines[pragma + 1:pragma + 1] = ["", INCLUDE_LINE]
    return "\n".join(lines)


def main():
    check = "--check" in sys.argv[1:]
    changed = []
    missing = 0
    for path in public_headers():
        text = path.read_text()
        edits = find_edits(text)
        if not edits:
            continue
        rel = path.relative_to(ROOT).as_posix()
        missing += len(edits)
        for at, what, _ in edits:
            line = text.count("\n", 0, at) + 1
            print(f"{rel}:{line}: {'lacks' if check else 'marks'} {MARK}: {what}")
        if check:
            continue
        for at, _, insert in sorted(edits, reverse=True):
            text = text[:at] + insert + text[at:]
        path.write_text(add_include(text))
        changed.append(str(path))
    if check:
        if missing:
            print(f"annotate-exports: {missing} public declaration(s) lack {MARK}; "
                  "run scripts/annotate-exports.py", file=sys.stderr)
            return 1
        return 0
    if changed:
        subprocess.run(["clang-format", "-i", *changed], check=True)
    print(f"annotate-exports: {missing} mark(s) added in {len(changed)} header(s)")
    if changed and "--commit" in sys.argv[1:]:
        subprocess.run(["git", "-C", str(ROOT), "add", "--", *changed], check=True)
        subprocess.run(["git", "-C", str(ROOT), "commit", "--quiet", "--only", "-m",
                        f"Exports: mark the public API RKV_EXPORT ({len(changed)} headers), "
                        "made by scripts/annotate-exports.py", "--", *changed], check=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
