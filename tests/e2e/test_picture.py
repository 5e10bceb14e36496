"""The picture in the README can be drawn anew from a run."""

import re
import subprocess
import xml.etree.ElementTree as ElementTree

from build_tree import SOURCE

PICTURE = SOURCE / "docs/terminal.svg"


def explained(path):
    """What `trackctl explain` has printed in the picture, without times."""
    texts = [element.text for element in ElementTree.parse(path).iter() if element.tag.endswith("text")]
    assert texts[0] == "$ trackctl watch" and "q quit" in texts
    begin = texts.index("$ trackctl explain primary")
    return [re.sub(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d", "THEN", text) for text in texts[begin:]]


def test_the_picture_of_the_readme_can_be_drawn_anew(build, tmp_path):
    drawn = tmp_path / "terminal.svg"
    done = subprocess.run(["/usr/bin/python3", SOURCE / "scripts/terminal_picture.py", drawn, "0.1"],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    assert done.returncode == 0, done.stdout
    assert explained(drawn)[-1] == "to bring it up: customers up, uplink up"
    # The committed one shows what the programs still print.
    assert explained(drawn) == explained(PICTURE)
