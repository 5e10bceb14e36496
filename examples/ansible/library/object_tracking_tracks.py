#!/usr/bin/python3
"""An Ansible module that makes the tracks of a router what lines of text say, by trackctl."""

from __future__ import annotations

import json
import os
import re

from ansible.module_utils.basic import AnsibleModule

DOCUMENTATION = r"""
module: object_tracking_tracks
short_description: Configures the tracks of the object tracking service
description:
  - Makes the tracks of a router what lines of text say, all of them or nothing, by C(trackctl apply).
  - What is so already is not touched. With an error in any line nothing is changed.
options:
  text:
    description:
      - The lines, each as C(trackctl set) takes it, with comments and continued lines. In a playbook
        that is a block, or the result of a template.
    type: str
  src:
    description: A file on the router, in place of I(text). Its C(include) lines are followed.
    type: path
  prune:
    description: Whether tracks that the lines do not name are deleted.
    type: bool
    default: false
  trackctl:
    description: The program, if it is not in the path.
    type: str
    default: trackctl
notes:
  - The user needs to be root or a member of the group object_tracking.
  - Check mode asks the service what would change, and changes nothing. Diff mode shows the tracks that
    are made (+), changed (~) and deleted (-).
"""

EXAMPLES = r"""
- name: Two uplinks, and the way out over either
  object_tracking_tracks:
    text: |
      uplink   interface eth0 --delay-up 5
      backup   interface wwan0
      internet or uplink backup

- name: Exactly what the file says
  object_tracking_tracks:
    src: /etc/object_tracking/tracks.conf
    prune: true
"""

RETURN = r"""
changes:
  description: What has changed, or would in check mode, a track an element.
  type: list
  returned: success
  sample: ["+ uplink interface eth0 --delay-up 5", "~ backup delay-down 0 → 3", "- old interface eth9"]
made:
  description: How many tracks are new, or would be.
  type: int
  returned: success
modified:
  description: How many tracks have changed, or would.
  type: int
  returned: success
deleted:
  description: How many tracks have gone, or would.
  type: int
  returned: success
errors:
  description: What is wrong with the lines.
  type: list
  elements: dict
  returned: when lines are wrong
  sample: [{"file": "text", "line": 2, "text": "there is no kind of track \"interfce\""}]
"""

INLINE = "standard input"  # how trackctl calls what it is not given as a file
WRONG_LINES = 2
PLACE = re.compile(r"^(?P<file>.*?):(?P<line>\d+): (?P<text>.*)$")


def find_trackctl(module):
    """It is where administrators' programs are, whatever path the connection has."""
    return module.get_bin_path(module.params["trackctl"], required=True, opt_dirs=["/usr/bin"])


def told(said):
    """The lines of standard error, without the name of the program, and `text` named as it is here."""
    for line in said.splitlines():
        yield line.strip().removeprefix("trackctl: ").replace(INLINE, "text", 1)


def fail(module, status, said):
    lines = list(told(said))
    places = [found for found in map(PLACE.match, lines) if found] if status == WRONG_LINES else []
    errors = [{"file": place["file"], "line": int(place["line"]), "text": place["text"]}
              for place in places if not place["text"].startswith("warning: ")]
    module.fail_json(msg="\n".join(lines) or f"trackctl ended with {status}", rc=status,
                     **({"errors": errors} if errors else {}))


def main():
    module = AnsibleModule(
        argument_spec={
            "text": {"type": "str"},
            "src": {"type": "path"},
            "prune": {"type": "bool", "default": False},
            "trackctl": {"type": "str", "default": "trackctl"},
        },
        mutually_exclusive=[("text", "src")], required_one_of=[("text", "src")],
        supports_check_mode=True)
    text = module.params["text"]
    command = [find_trackctl(module), "apply", "--json"]
    command += ["--prune"] if module.params["prune"] else []
    command += ["--dry-run"] if module.check_mode else []
    # A path of its own is no option, and not the input that "-" stands for.
    command += ["-" if text is not None else os.path.abspath(module.params["src"])]
    status, out, said = module.run_command(command, data=text, binary_data=True)
    if status != 0:
        fail(module, status, said)
    for line in told(said):
        module.warn(line.replace(": warning: ", ": ", 1))
    done = json.loads(out)
    changes = done["changes"]
    module.exit_json(changed=bool(changes), changes=changes, made=done["made"],
                     modified=done["changed"], deleted=done["deleted"],
                     diff={"prepared": "".join(f"{line}\n" for line in changes)})


if __name__ == "__main__":
    main()
