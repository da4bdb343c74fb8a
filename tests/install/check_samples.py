# SPDX-License-Identifier: Apache-2.0
"""check_samples.py SOURCE_FOLDER: README.md and docs/programs.md show programs as they are, and leave none out.

A block of code follows a line `<!-- FILE -->` and is that file, but for its licence and what it says of itself; or
a run of its lines, moved to the left. Blocks of a shell's commands are their reader's own.
"""
import re
import sys
import textwrap
from pathlib import Path

SOURCE = Path(sys.argv[1])
BLOCK = re.compile(r"^(?:<!-- (?P<file>\S+) -->\n)?```(?P<language>\w+)\n(?P<text>.*?)^```$", re.M | re.S)
LONGEST = {"examples/programs/follow_job.cpp": 60, "examples/python/follow_job.py": 60}


def is_in(text, whole):
    """Whether `text` is a run of whole lines of `whole`, wherever those are indented to."""
    lines, wanted = whole.splitlines(), text.splitlines()
    runs = (lines[begin:begin + len(wanted)] for begin in range(len(lines) - len(wanted) + 1))
    return any(textwrap.dedent("\n".join(run)).strip("\n") == "\n".join(wanted) for run in runs)


def faults():
    shown = set()
    for page in ("README.md", "docs/programs.md"):
        for block in BLOCK.finditer((SOURCE / page).read_text()):
            place = f"{page}, block that begins with {block['text'].splitlines()[0]!r}"
            if block["file"] is None:
                if block["language"] in ("cpp", "python"):
                    yield f"{place}: from which file?"
            elif not is_in(block["text"], (SOURCE / block["file"]).read_text()):
                yield f"{place}: not as in {block['file']}"
            else:
                shown.add(block["file"])
    programs = [*(SOURCE / "examples/programs").iterdir(), SOURCE / "examples/python/follow_job.py"]
    for program in programs:
        if str(program.relative_to(SOURCE)) not in shown:
            yield f"{program}: on no page"
    for file, limit in LONGEST.items():
        if (count := len((SOURCE / file).read_text().splitlines())) > limit:
            yield f"{file}: {count} lines, more than {limit}"


found = list(faults())
print("\n".join(found))
sys.exit(1 if found else 0)
