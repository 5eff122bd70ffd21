#!/usr/bin/env python3
"""Shows Doxygen the public headers, whose comments are written for people who read the source.

In quillon.h a line `// ---- name ----` opens a group. What is said there before the first function is the group's
text; a later comment that is followed by an empty line is said again for every function after it. A comment right
above declarations belongs to all of them, up to the next empty line or comment. Indented lines are formulas and
tables, and keep their shape.
"""
import html
import re
import sys


def guard(text):
    """Characters that Doxygen would take for commands."""
    text = html.escape(text, quote=False)
    return re.sub(r"([\\@#%~|])", r"\\\1", text).replace("::", "\\::").replace("*/", "*&#47;")


def blocks(lines):
    """Comment text as HTML: paragraphs, lists, and formulas in their own shape."""
    out, kind, held = [], None, []

    def flush():
        if not held:
            return
        if kind == "text":
            out.append("<p>" + re.sub(r"`([^`]+)`", r"<code>\1</code>", guard(" ".join(held))) + "</p>")
        elif kind == "list":
            items = " ".join(held).split("\0")[1:]
            out.append("<ul>" + "".join(f"<li>{guard(item)}</li>" for item in items) + "</ul>")
        elif kind == "shape":
            out.append("<pre>" + "\n".join(guard(line) for line in held) + "</pre>")
        held.clear()

    for line in lines:
        item = re.match(r"\s*- (.*)", line)
        if item:
            now, line = "list", "\0" + item[1]
        elif line.startswith("  "):
            now = "list" if kind == "list" else "shape"
        else:
            now = "text"
        if now != kind or not line:
            flush()
        kind = now
        if line:
            held.append(line.strip() if kind == "list" else line)
    flush()
    return out


def doc(*comments, command=""):
    return ["/** " + command, *(line for comment in comments for line in blocks(comment)), "*/"]


class Converter:
    def __init__(self, has_groups):
        self.out, self.has_groups = [], has_groups
        self.comment, self.shared, self.standing = [], [], []
        self.name = None  # of a group whose first function has not come yet
        self.in_group = False

    def close_group(self):
        if self.in_group:
            self.out.append("/** @} */")
        self.in_group, self.standing = False, []

    def open_group(self):
        slug = re.sub(r"[^a-z0-9]+", "_", self.name.lower()).strip("_")
        title = self.name[0].upper() + self.name[1:]
        self.out += doc(self.standing, command=f"@defgroup {slug} {title}")
        self.out += [f"/** @addtogroup {slug}", " @{ */"]
        self.name, self.in_group, self.standing = None, True, []

    def line(self, line):
        section = re.match(r"// ---- (.+?) -+$", line) if self.has_groups else None
        text = re.match(r"\s*//(?: (.*))?$", line)
        if section:
            self.close_group()
            self.name = section[1]
        elif text:
            self.comment.append(text[1] or "")
        elif not line:
            if self.comment and (self.name or self.in_group):
                self.standing = self.standing + [""] + self.comment if self.name else self.comment
            self.comment, self.shared = [], []
        else:
            self.code(line)

    def code(self, line):
        if self.comment:
            self.shared, self.comment = self.comment, []
            fresh = True
        else:
            fresh = False
        if line.startswith("QUILLON_API "):
            if self.name:
                self.open_group()
            if self.shared:
                self.out += doc(self.standing, [""], self.shared)
        elif line.startswith("}  // namespace"):
            self.close_group()
        elif fresh:
            self.out += doc(self.shared)
        self.out.append(re.sub(r"(\S.*)  // (.*)", r"\1  /**< \2 */", line))


def main():
    converter = Converter(has_groups=sys.argv[1].endswith("quillon.h"))
    with open(sys.argv[1], encoding="utf-8") as header:
        for line in header.read().splitlines():
            converter.line(line)
    print("\n".join(converter.out))


if __name__ == "__main__":
    main()
