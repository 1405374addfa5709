"""Compares the documentation with the sources, the manual pages and the help of cv_install.

    check_texts.py SOURCE_DIRECTORY BUILT_DOCS_DIRECTORY PRODUCT_DIRECTORY

Prints what differs, by check, and fails if anything does.
"""
import re
import subprocess
import sys
from pathlib import Path

source, built, product = map(Path, sys.argv[1:])
guide = (source / "docs/administrator.md").read_text()
run_script = (product / "corvane26.template").read_text()
hidden_options = {"-c", "-cd", "--cd-install", "-cli", "--cli", "-gui", "--gui"}
problems = []


def expect(condition, *message):
    if not condition:
        problems.append(" ".join(map(str, message)))


def expect_equal(found, wanted, what):
    expect(found == wanted and wanted, f"{what}: {found} instead of {wanted}")


def between(text, start, end):
    return (text + end).split(start, 1)[-1].split(end, 1)[0] if start in text else ""


def section(title):
    return between(guide, f"\n## {title}\n", "\n## ")


def first_cells(text):
    return re.findall(r"^\| ([^|]*) \|", text, re.M)


def page(name):
    return (built / name).read_text()


def help_text():
    return subprocess.run([product / "cv_install", "--help"], check=True, text=True,
                          capture_output=True).stdout


def help_options():
    spellings = re.findall(r"^  ((?:--?[a-z-]+, )*--[a-z-]+) ", help_text(), re.M)
    return {option for line in spellings for option in line.split(", ")}


def help_statuses():
    return re.findall(r"^ +(\S.*?)  +(.*)", between(help_text(), "\nExit status:\n", "\n\n"), re.M)


def run_script_options():
    branches = re.findall(r"^ *(-[-|A-Za-z]+)\)", run_script, re.M)
    return {option for branch in branches for option in re.findall(r"-[-A-Za-z]+", branch)}


def page_options(text):
    items = re.findall(r"^\.It (Fl \S+(?: , Fl \S+)*)", between(text, "\n.Sh OPTIONS\n", "\n.Sh "),
                       re.M)
    return {"-" + name for item in items for name in re.findall(r"\bFl (\S+)", item)}


def check_guide_tables():
    expect(guide == page("administrator.md"),
           f"a table is outdated: copy {built}/administrator.md to {source}/docs/")


def check_guide_lists_options():
    cells = " ".join(first_cells(section("Options")))
    expect_equal(set(re.findall(r"`(-[-a-z]+)`", cells)), help_options() | hidden_options, "options")


def check_guide_lists_statuses():
    rows = re.findall(r"^\| (?!Status|---)(.*?) \| (.*) \|$", section("Exit statuses"), re.M)
    expect_equal(rows[:len(help_statuses())], help_statuses(), "statuses")


def check_setup_page():
    text = page("cv_install.8")
    expect_equal(page_options(text), help_options() | hidden_options, "options")
    items = re.findall(r"^\.It (.+)", between(text, "\n.Sh EXIT STATUS\n", "\n.Sh "), re.M)
    expect_equal(items, [status for status, _ in help_statuses()], "statuses")


def check_run_script_page():
    text = page("corvane26.1")
    expect_equal(page_options(text), run_script_options(), "options")
    environment = between(text, "\n.Sh ENVIRONMENT\n", "\n.Sh ")
    names = re.findall(r"CORV_USER_([A-Z]+(?:_CMD)?)\}", run_script)
    expect(len(names) > 20, "few variables are found")
    for name in names + re.findall(r"(CORV_QUEUE_TYPE|CORV_SCHEDULER)=", run_script):
        expect(re.search(rf"[ _]{name}\s", environment), name, "is not in ENVIRONMENT")


def check_limits_page():
    """The keys are in the order in which they are written; the defaults are those of the public header."""
    text = page("QueueLimits.5")
    lines = (source / "src/setuprun/QueueLimitsKeys.h").read_text()
    written = re.findall(r'QueueLimitsLine\{"(\w+)"', lines)
    keys = re.findall(r"^\.It Cm (\w+) :", text, re.M)
    expect_equal(keys, written, "keys")
    header = (source / "src/setuprun/CQueueLimits.h").read_text()
    defaults = [re.search(rf" {key} = \"?([^;\"]+)", header)[1] for key in keys]
    expect_equal(re.findall(r"^Default: ([0-9a-z/]+)", text, re.M), defaults, "defaults")


def check_pages_are_well_formed():
    for name in ("cv_install.8", "corvane26.1", "QueueLimits.5"):
        try:
            lint = subprocess.run(["mandoc", "-T", "lint", "-W", "style", built / name], text=True,
                                  capture_output=True).stdout
        except FileNotFoundError:
            print("skipped: mandoc is not installed")
            return
        # The pages need not be installed here, and Corvane is not an operating system.
        harmless = r"referenced manual not found|operating system explicitly specified"
        for line in lint.splitlines():
            expect(re.search(harmless, line), line)


def check_run_script_help():
    text = between(run_script, "cat <<'EOF'\n", "\nEOF\n")
    long_options = {option for option in run_script_options() if option.startswith("--")}
    expect_equal(set(re.findall(r"^  (--[a-z-]+)", text, re.M)), long_options, "options")


def check_links():
    """The targets of links and the named paths of the source tree exist."""
    counts = [0, 0]
    for file in [source / "README.md", *(source / "docs").glob("*.md")]:
        text = file.read_text()
        links = re.findall(r"\]\(([^)#]+)[^)]*\)", text)
        paths = re.findall(
            r"`((?:src|apps|tests|scripts|docs|bench|packaging|product)/[\w./]+)`", text)
        for target in [file.parent / link for link in links] + [source / path for path in paths]:
            expect(target.exists(), f"{file.name}: {target} does not exist")
        counts = [counts[0] + len(links), counts[1] + len(paths)]
    expect(counts[0] > 10 and counts[1] > 20, "few links or paths are found")


def check_header_comments():
    """Each declaration of a public header has a comment above it or on its line."""
    declaration = re.compile(
        r"(?P<above>(?:^ *//[^\n]*\n|/\*(?:(?!\*/).)*\*/\s*)*)"
        r"(?P<text>(?:/\*(?:(?!\*/).)*\*/|//[^\n]*|[^;{}/#])+?[;{}])(?P<trailing>[^\n]*)", re.S | re.M)
    plain = re.compile(r"\s*(class \w+;|typedef struct\s*\{|\}|[^;]*= delete;|"
                       r"(?:\w+:\s*)?(?:Q_\w+(?:\(<\w+>\))?\s*)*(?:public:\s*)?"
                       r"explicit \w+\(QObject\* parent = nullptr\);)")
    count = 0
    for header in sorted((source / "src").rglob("*.h")):
        text = header.read_text()
        if "HX_EXPORT" not in text or header.name == "hx_export.h":
            continue
        count += 1
        text = re.sub(r"^#.*|extern \"C\" \{", "", text, flags=re.M)
        text = re.sub(r"^private.*?(?=^public|^\})", "", text, flags=re.M | re.S)
        for found in declaration.finditer(text):
            comment = found["above"] or re.search(r"//|/\*", found["text"] + found["trailing"])
            expect(comment or plain.match(found["text"]),
                   f"{header.name} does not explain:{found['text']}")
    expect(count >= 13, "few public headers are found")


def literals(code):
    """Returns the decoded string literals of C++ code, adjacent ones as one."""
    token = re.compile(
        r'(?P<skip>//[^\n]*|/\*.*?\*/|\'(?:\\.|[^\'\\])\'|\s+)|R"(\w*)\((?P<raw>.*?)\)\2"|'
        r'"(?P<plain>(?:\\.|[^"\\])*)"|(?P<other>.)', re.S)
    texts, adjacent = [], False
    for found in token.finditer(code):
        if found["other"]:
            adjacent = False
        elif not found["skip"]:
            plain = re.sub(r"\\(.)", lambda part: "\n" if part[1] == "n" else part[1],
                           found["plain"] or "")
            texts[len(texts) - adjacent:] = [
                (texts[-1] if adjacent else "") + (found["raw"] or plain)]
            adjacent = True
    return texts


def source_texts(directory, without=()):
    files = [file for file in (source / directory).rglob("*") if file.suffix in (".cpp", ".h")]
    missing = set(without) - {file.stem for file in files}
    expect(not missing, f"{directory} does not contain {missing}")
    return [text for file in files if file.stem not in without
            for text in literals(file.read_text())]


def normal(text):
    return re.sub(r"\s+", " ", text.replace('"', ""))


commit_script = (source / "tests/expected/commit_root.sh").read_text()
service_program = (source / "product/corvane26_service_script").read_text()


def check_guide_quotes_texts():
    """The guide's messages and questions occur in the programs; `...` represents a value."""
    printed = "\n".join(map(normal, [
        *source_texts("src"), *source_texts("apps"), *run_script.splitlines(),
        *service_program.splitlines(), *commit_script.splitlines()]))
    messages = re.findall(
        r"`([^`]+)`", " ".join(first_cells(section("Troubleshooting by message"))))
    questions = re.findall(r"`([^`]+[:.])`", " ".join(first_cells(section("Questions"))))
    expect(len(messages) > 60 and len(questions) >= 10, "few messages or questions are found")
    # These words are inserted.
    questions = [re.sub("Queue|Partition|qsub|sbatch|type of queue|scheduler", "...", text) for text in questions]
    for text in messages + questions:
        for piece in normal(text).split("..."):
            expect(piece in printed, f"no program prints \"{piece}\" of \"{text}\"")


# Texts of apps/ that are not failures: reports, names of fields, beginnings of lines, a script, and
# remedies, which are sentences that begin with one of these words. The guide must explain all other
# texts.
reports = ("AnswerTable", "Installation", "Outcome", "Plan", "Progress", "Recorder", "Report", "StartRun", "StatusReport",
           "Summary", "Usage", "UsageTables", "VerifyReport")
others = {
    "[Press \"Enter\" key to continue]", "the setup ended with exit status %1",
    "terminated by signal: %1", "Choose another directory? [Y/n]", "Keep the %1? [Y/n]",
    "job limit of the previous setup (%1)", "queue of the previous setup (%1)", "# For cv_install --answers.", "# Answers for the next setup", "# Result of the previous verification",
    "restarting after a failure",
    "Please answer %s.", "y or n", "y, n or d", "Commit script: %s", "Did you mean", "program directory",
    "scratch directory of the previous setup", "service group member",
    "Missing command", "Number of the answer to change, q to quit, or Enter to continue:",
    "Please enter a number from 1 to %zu, or q.", "# State before a setup", "all other directories",
    "Undo of the setup of %s by %s:", "Kept as it is now:", "cv_install: undid the setup of %s",
    'Searched for files of %s "%s" in: %s. Not searched: %s.', "(not a local file system)",
    "Repair of the setup of %s:", "Left as it is:", "Nothing to repair.", "cv_install: repaired the setup of %s", "Changes made so far were kept.", "epair again", "repair canceled", "a repair", "an undo",
    "(only in part)", "file systems that are mounted below", "un the undo again",
    "un the removal again", 'cv_install: removed the setup of "%s"',
    "Settings, log, record and service account were kept. To remove them, too: cv_install --remove --purge",
}
remedy = re.compile(
    r"(?:%s  )?(?:At most|Cause|Change (?:them|to)|Changes made|Copy|Correct|Create|Did you mean|Enter|Find out|Fix|"
    r"Free up|If it|Inspect|Install|Make|Move|No changes|Others could|Raise|Read|Remount|Remove|Root would|Run|Set|Some output|"
    r"Specify|Standard input cannot|Stop that|That needs|The keys|The setup (?:changes|continues)|To|Use|Write one)\b.*[.?]$")
# The library's texts are fixed, so their beginnings are too.
library_failure = re.compile(
    r"^ *(?:Unable to |Writing Commit Script: |Value entered|Error, can't|Corvane/install: can't|"
    r"Installation must|Invalid choice|The choice of)")


def failures():
    unused = set(others)
    for text in source_texts("apps", reports):
        for line in map(str.strip, text.splitlines()):
            unused.discard(line)
            if re.search(r"[a-z]+ [a-z]+", line) and line not in others and not remedy.match(line):
                yield line
    expect(not unused, f"no program contains {unused}")
    for text in source_texts("src"):
        if "ECHO_CMD" not in text[:400]:
            yield from filter(library_failure.match, text.splitlines())
    yield from re.findall(r"corvane: (Error, [^\n\"\\']+)", run_script)
    yield from re.findall(r'"(Error, [^"]+)"', commit_script)
    yield from re.findall(r'"([^"\n]*[a-z]+ [a-z]+[^"\n]*)"\n', service_program)


def distinctive(message):
    """Returns the longest part between inserted values, without a reason or advice after it."""
    pieces = re.split(r"%[1-9sd]|\$\{\w+\}|\$[A-Za-z_]+", normal(message))
    longest = max(pieces, key=len).strip()
    return (longest[:15] + re.split(r": |\. ", longest[15:])[0]).strip(" :")


def check_guide_documents_failures():
    documented = normal(section("Troubleshooting by message"))
    found = list(failures())
    expect(len(found) > 70, "few failures are found")
    for message in found:
        expect(distinctive(message) in documented,
               f"the guide does not explain \"{distinctive(message)}\" of \"{message}\"")


failed = 0
checks = {name: check for name, check in globals().items() if name.startswith("check_")}
for name, check in checks.items():
    problems.clear()
    check()
    print(f"{'failed' if problems else 'passed'} {name}", *problems, sep="\n    ")
    failed += bool(problems)
sys.exit(1 if failed else 0)
