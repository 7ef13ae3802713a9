"""The compilation database of a build."""
import json
import pathlib
import re


def commands(build):
    """The commands of a build's database, those of a unity build as if each source were compiled alone."""
    for command in json.loads((pathlib.Path(build) / "compile_commands.json").read_text()):
        path = pathlib.Path(command["directory"], command["file"])
        if path.parent.name != "Unity":
            yield command
            continue
        for source in re.findall(r'^#include "(.*)"$', path.read_text(), re.M):
            yield {**command, "file": source, "command": command["command"].replace(command["file"], source)}
