"""Prints a header with its comments as doxygen reads them: plain C comments document what follows or precedes them,
a banner opens a section, and a declaration right under another one shares its comment."""
import re
import sys

BANNER = re.compile(r"/\* -{20,}\n \* ([^\n]*)\n((?: \*[^\n]*\n)*?) \*/\n")


def section(match):
    title, text = match.groups()
    return f"/** @}} */\n/** @name {title}\n{text} * @{{\n */\n"


def share_comments(text):
    """A declaration that follows another one without a comment of its own copies that one's."""
    lines, first, open_declaration = [], None, False
    previous = ""
    for line in text.split("\n"):
        starts = re.match(r"(?:extern )?KEL_API ", line)
        if starts:
            if previous.endswith("*/") and not re.search(r";\s*/\*", previous):
                first = None  # it has a comment of its own
            elif first and previous.strip():
                lines.append(f"/** @copydoc {first} */")
            open_declaration = True
        lines.append(line)
        if open_declaration:
            name = re.search(r"(\w+)(?:\(|\[\d*\]|;)", line)
            if name and not first:
                first = name.group(1)
            open_declaration = ";" not in line
        elif not line.strip():
            first = None
        previous = line
    return "\n".join(lines)


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        text = file.read()
    text = re.sub(r"^/\*\n(.*?)\*/\n", r"/** @file\n\1*/\n/** @{ */\n", text, count=1, flags=re.S)
    text = BANNER.sub(section, text)
    text = re.sub(r"(?m)^( *)/\*(?=[ \n])", r"\1/**", text)  # before what it documents
    text = re.sub(r"(?m)(\S) +/\*(?=[ \n])", r"\1 /**<", text)  # after it
    print(share_comments(text) + "/** @} */")


main()
