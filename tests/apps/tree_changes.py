"""Lists a tree, and compares two lists with the changes in the report of a dry run.

    tree_changes.py list DIRECTORY
    tree_changes.py compare BEFORE AFTER REPORT DIRECTORY

The comparison prints what only the lists or only the report show of DIRECTORY, one line for each.
"""
import hashlib
import json
import os
import stat
import sys

KINDS = {stat.S_IFREG: "file", stat.S_IFDIR: "directory", stat.S_IFLNK: "link"}


def state(path):
    found = os.lstat(path)
    kind = KINDS.get(stat.S_IFMT(found.st_mode), "special")
    entry = {"kind": kind, "uid": found.st_uid, "gid": found.st_gid}
    if kind == "link":
        entry["target"] = os.readlink(path)
    else:
        entry["mode"] = f"{stat.S_IMODE(found.st_mode):04o}"
    # Programs are larger than what a setup writes.
    if kind == "file" and found.st_size < 1 << 20 and os.access(path, os.R_OK):
        with open(path, "rb") as file:
            entry["sha256"] = hashlib.sha256(file.read()).hexdigest()
    return entry, [found.st_ino, found.st_mtime_ns, found.st_ctime_ns]


def tree(directory):
    entries = {directory: state(directory)}
    for parent, directories, files in os.walk(directory):
        for name in directories + files:
            path = os.path.join(parent, name)
            entries[path] = state(path)
    return entries


def reported(path, entry, kind):
    """The entry as a report describes it: without the content of jobs and of private files."""
    if entry is None:
        return None
    fields = dict(entry)
    if fields["kind"] == kind:
        del fields["kind"]
    if path.endswith("/QueueEntries") or not int(fields.get("mode", "4"), 8) & stat.S_IROTH:
        fields.pop("sha256", None)
    return fields


def differences(before, after, directory):
    for path in before.keys() | after.keys():
        old, new = (entries.get(path, [None])[0] for entries in (before, after))
        if old == new or not (path + "/").startswith(directory + "/"):
            continue
        kind = (new or old)["kind"]
        yield {"path": path, "kind": kind,
               "change": "create" if old is None else "delete" if new is None else "modify",
               "before": reported(path, old, kind), "after": reported(path, new, kind)}


def unnamed(change):
    for moment in ("before", "after"):
        for name in ("owner", "group"):
            (change[moment] or {}).pop(name, None)
    return change


def lines(changes):
    return {json.dumps(change, sort_keys=True) for change in changes}


if sys.argv[1] == "list":
    json.dump(tree(sys.argv[2]), sys.stdout, indent=0, sort_keys=True)
else:
    before, after, report = (json.load(open(path)) for path in sys.argv[2:5])
    made = lines(differences(before, after, sys.argv[5]))
    listed = lines(map(unnamed, report["changes"]))
    print(*("made, not listed: " + line for line in sorted(made - listed)),
          *("listed, not made: " + line for line in sorted(listed - made)), sep="\n", end="")
    sys.exit(0 if made else 3)
