"""Makes one small change to the product at a time and checks whether a unit test fails.

A mutant is one change in a source file of the five product folders:

    constant      a number or a character, one more and one less
    comparison    == to != and back; < to <= and to >=, and so on
    condition     an if, a loop or a ?: negated; a ! dropped; && to || and back
    statement     an expression, a jump or a guard removed
    text          a text changed at its beginning; its line feed at the end dropped

Only the files that depend on the change are recompiled, into the shared library that the tests use. The tests that
killed other mutants of the same file run first, then all others, the slow ones last; the very slow ones are left out. A
mutant that does not compile is not counted. A mutant survives if all tests pass. Mutants in equivalent.txt, which no
test can detect, are not tested.
"""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import threading
import time

FOLDERS = ["support", "link", "mcu", "camera", "frontend"]
SLOW_MS, LEFT_OUT_MS = 300, 3000  # longer tests run last, or not at all
LARGEST_FILE = 16 << 20  # a mutant that writes without end must not fill the disk
TOKENS = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<pp>(?<=\n)[ \t]*\#(?:[^\n]*\\\n)*[^\n]*|\A\#[^\n]*)
      | (?P<attribute>\[\[.*?\]\])
      | (?P<string>"(?:\\.|[^"\\\n])*")
      | (?P<char>'(?:\\.|[^'\\\n])+')
      | (?P<float>\b\d+\.\d+\b)
      | (?P<int>\b(?:0[xX][0-9a-fA-F]+|\d[\d']*)[uUlL]*\b)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<space>\s+)
      | (?P<op><=>|<<=|>>=|->|<<|>>|<=|>=|==|!=|&&|\|\||::|\+\+|--|[-+*/%&|^]=|.)
    """,
    re.X | re.S,
)
COMPARISONS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], ">": [">=", "<="], "<=": ["<", ">"], ">=": [">", "<"]}
# Declarations with a value, and anything that is not a statement.
NEVER_REMOVED = re.compile(
    r"(static|constexpr|using|typedef|static_assert|struct|enum|extern|template|public|private)\b"
    r"|((const\s+)?(?!return\b)[A-Za-z_][\w:]*(<[^=]*>)?[\s*&]+(const\s+)?\w+(\[\w*\])*\s*(=|\{|;|,))")
CONTROL = re.compile(r"(if|for|while|switch|else|do|case|default)\b")

Token = collections.namedtuple("Token", "kind text at")


class Mutant:
    def __init__(self, file, source, at, end, replacement, operator, change):
        self.file, self.operator, self.change = file, operator, change
        self.at, self.end, self.replacement = at, end, replacement
        self.line = source.count("\n", 0, at) + 1
        self.source_line = source.splitlines()[self.line - 1].strip()
        self.where = ""  # the name of the definition
        self.outcome = self.killer = None

    def __str__(self):
        return f"{self.file}:{self.line}: {self.operator}: {self.where}: {self.change}    | {self.source_line}"

    def apply(self, source):
        return source[: self.at] + self.replacement + source[self.end :]


# --- Finding the mutants ---


def tokens_of(source):
    return [Token(m.lastgroup, m.group(), m.start()) for m in TOKENS.finditer(source)]


def closing(tokens, start):
    """Returns the index of the bracket that closes the one at start."""
    pairs = {"(": ")", "[": "]", "{": "}"}
    opening, depth = tokens[start].text, 0
    for i in range(start, len(tokens)):
        if tokens[i].kind == "op" and tokens[i].text == opening:
            depth += 1
        elif tokens[i].kind == "op" and tokens[i].text == pairs[opening]:
            depth -= 1
            if depth == 0:
                return i
    raise ValueError("unbalanced")


def shown(text):
    return re.sub(r"\s+", " ", text)


def find_mutants(file, source):
    tokens = [t for t in tokens_of(source) if t.kind not in ("comment", "pp", "attribute")]
    code = [t for t in tokens if t.kind != "space"]
    found = []

    def add(first, last, replacement, operator, change=None):
        at, end = first.at, last.at + len(last.text)
        change = change or f"{shown(source[at:end])} -> {shown(replacement)}"
        found.append(Mutant(file, source, at, end, replacement, operator, change))

    def insert(token, text, operator, change):
        found.append(Mutant(file, source, token.at, token.at, text, operator, change))

    skipped_to = -1
    for i, token in enumerate(code):
        text = token.text
        if i <= skipped_to:
            continue
        if text == "static_assert":
            skipped_to = closing(code, i + 1)
        elif token.kind == "int":
            digits, suffix = re.fullmatch(r"(\w+?)([uUlL]*)", text.replace("'", "")).groups()
            octal = re.fullmatch("0[0-7]+", digits)
            value = int(digits, 8 if octal else 0)
            for changed in (value + 1, value - 1):
                number = f"0x{changed:02X}" if digits[:2] in ("0x", "0X") and changed >= 0 else str(changed)
                number = f"0{changed:o}" if octal else number
                add(token, token, f"({number}{suffix})" if changed < 0 else number + suffix, "constant")
        elif token.kind == "float":
            for changed in (float(text) + 1, float(text) - 1):
                add(token, token, f"({changed!r})", "constant")
        elif token.kind == "char":
            for sign in "+-":
                add(token, token, f"({text} {sign} 1)", "constant")
        elif token.kind == "string" and not (i and code[i - 1].text == "extern"):
            add(token, token, '"X' + text[1:], "text")
            if text.endswith('\\n"') and len(text) > 4:
                add(token, token, text[:-3] + '"', "text")
        elif text in COMPARISONS and token.kind == "op":
            spaced = source[token.at - 1].isspace() and source[token.at + len(text)].isspace()
            for changed in COMPARISONS[text] if spaced else []:
                add(token, token, changed, "comparison")
        elif text in ("&&", "||") and source[token.at - 1].isspace() and source[token.at + 2].isspace():
            add(token, token, "||" if text == "&&" else "&&", "condition")
        elif text == "!":
            add(token, token, "", "condition", f"!{code[i + 1].text} -> {code[i + 1].text}")
        elif text == "?":
            insert(token, "== false ", "condition", "?: negated")
        elif text in ("if", "while") and token.kind == "word":
            start = i + 1 if code[i + 1].text == "(" else i + 2  # if constexpr
            inside = code[start + 1 : closing(code, start)]
            negate(source, inside, add, text)
    found += removed_statements(file, source, code)
    named = definitions(code)
    seen = collections.Counter()
    for mutant in sorted(found, key=lambda mutant: mutant.at):  # a second such change in a definition gets "(no. 2)"
        mutant.where = next((name for at, end, name in named if at <= mutant.at <= end), "")
        place = (mutant.where, mutant.change)
        seen[place] += 1
        if seen[place] > 1:
            mutant.change += f" (no. {seen[place]})"
    return found


def definitions(code):
    """Returns (first character, last character, name) of each function, table, type and variable outside all others."""
    found, i = [], 0
    while i < len(code):
        start, name = i, None
        while i < len(code) and code[i].text not in ("{", "}", ";"):  # a name is recognised by what follows it
            text, following = code[i].text, code[i + 1].text if i + 1 < len(code) else ""
            if name is None and code[i].kind == "word" and following in ("(", "=", "{", "[", ";", ":"):
                name = text
            i = closing(code, i) + 1 if text in ("(", "[") else i + 1
        if i == len(code):
            break
        words = [token.text for token in code[start:i]]
        opens_scope = code[i].text == "{" and (words[:1] == ["namespace"] or words[:2] == ["extern", '"C"'])
        if code[i].text == "}" or opens_scope:
            i += 1
            continue
        while code[i].text == "{":  # also an initialiser of a constructor, and `= {...}`
            i = closing(code, i)
            if i + 1 < len(code) and code[i + 1].text in (";", ",", "{"):
                i += 1
        if "typedef" in words:
            while code[i].text != ";":
                i += 1
            name = code[i - 1].text
        found.append((code[start].at, code[i].at, name))
        i += 1
    return found


def negate(source, inside, add, keyword):
    """Adds a mutant with the condition negated, unless another mutant makes the same change."""
    depth, first = 0, 0
    for k, token in enumerate(inside):
        depth += (token.text in "([{") - (token.text in ")]}") if token.kind == "op" else 0
        if depth == 0 and token.text == ";":
            first = k + 1
    condition = inside[first:]
    texts = [t.text for t in condition]
    single = not {"&&", "||"} & set(texts)
    if single and (any(t in COMPARISONS for t in texts) and "=" not in texts or texts[0] == "!"):
        return  # the changed comparison or the removed ! is the same change
    whole = source[condition[0].at : condition[-1].at + len(condition[-1].text)]
    if "=" in texts and depth == 0 and texts.index("=") > 1 and condition[texts.index("=") - 2].kind in ("word", "op"):
        name = texts[texts.index("=") - 1]
        declares = condition[0].kind == "word" and "(" not in texts[: texts.index("=")]
        if declares:
            if keyword == "if":
                add(condition[0], condition[-1], f"{whole}; !{name}", "condition", f"if ({name}) negated")
            return
    add(condition[0], condition[-1], f"!({whole})", "condition", f"{keyword} ({shown(whole)}) negated")


def removed_statements(file, source, code):
    """A mutant for each statement that can be removed.

    Each pair of braces contains code, a list of values, or something else, such as the members of a class. Only code
    contains statements.
    """
    found = []
    stack = []  # for each open brace: kind, statement start and open parentheses outside; whether it ends a statement
    start = 0
    parens = 0
    kind = "other"
    for i, token in enumerate(code):
        text = token.text if token.kind == "op" else ""
        if text in ("(", "["):
            parens += 1
        elif text in (")", "]"):
            parens -= 1
        elif text == "{":
            before = code[i - 1].text if i else ""
            is_code = before in (")", "else", "do", "const", "noexcept") or (
                i > 3 and code[i - 2].text == "->") or (before == ":" and kind == "code" and parens == 0)
            control = bool(CONTROL.match(code[start].text)) or kind != "code" or i == start
            stack.append((kind, start, parens, control or not is_code and kind != "code"))
            if is_code:
                kind, start, parens = "code", i + 1, 0
            else:
                kind = "list" if kind in ("code", "list") or parens or before in ("=", ",", "(", "{") else "other"
                start = i + 1 if kind == "other" else start
        elif text == "}":
            inner = kind
            kind, outer_start, parens, fresh = stack.pop()
            if inner == "list":
                start = outer_start
            else:
                start = i + 1 if fresh else outer_start
        elif text == ";" and parens == 0:
            if kind == "code" and start < i:
                statement(file, source, code, start, i, len(stack), found)
            if kind != "list":
                start = i + 1
        elif text == ":" and parens == 0 and kind == "code" and CONTROL.match(code[start].text) \
                and code[start].text in ("case", "default"):
            start = i + 1
    return found


def statement(file, source, code, start, end, depth, found):
    at, stop = code[start].at, code[end].at + 1
    text = source[at:stop]
    if code[start].text == "while" or NEVER_REMOVED.match(text) and not re.match(r"(const )?\w*Guard \w+;", text):
        return
    last = end + 1 < len(code) and code[end + 1].text == "}"
    if code[start].text == "return" and last and closes_function(code, end + 1):
        return  # without it the function would return an undefined value
    found.append(Mutant(file, source, at, stop, ";", "statement", f"{shown(text)} removed"))


def closes_function(code, brace):
    """Whether the closing brace ends a function or a lambda, not an inner block."""
    depth = 0
    for i in range(brace, -1, -1):
        if code[i].text == "}" and code[i].kind == "op":
            depth += 1
        elif code[i].text == "{" and code[i].kind == "op":
            depth -= 1
            if depth == 0:
                j = i - 1
                if code[j].text in ("const", "noexcept"):
                    j -= 1
                if code[j].text != ")":
                    return code[j].text not in ("else", "do")
                parens = 0
                while True:
                    parens += (code[j].text == ")") - (code[j].text == "(")
                    if parens == 0:
                        return code[j - 1].text not in ("if", "for", "while", "switch")
                    j -= 1
    return False


# --- Building and testing ---


class Project:
    """A copy of the project, with the tests built once for the unchanged product."""

    def __init__(self, root, directory):
        self.source, self.build = directory / "source", directory / "build"
        self.directory = directory
        shutil.rmtree(self.source, ignore_errors=True)
        self.source.mkdir(parents=True)
        for name in FOLDERS + ["cmake", "docs", "tests"]:
            shutil.copytree(root / name, self.source / name)
        for name in ["CMakeLists.txt", "CMakePresets.json"]:
            shutil.copy(root / name, self.source)
        self.run("cmake", "-S", self.source, "-B", self.build, "-G", "Ninja", "-DZR4410_SIMULATOR=OFF",
                 "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O0 -Werror=return-type", "-DCMAKE_SKIP_RPATH=ON")
        self.run("cmake", "--build", self.build, "--target", "mutation_tests")
        self.library = next(self.build.rglob("libmutated.so"))
        self.tests = self.build / "bin" / "mutation_tests"
        self.objects, self.commands, self.uses = {}, {}, collections.defaultdict(list)
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            command = shlex.split(entry["command"])
            output = command[command.index("-o") + 1]
            if "mutated.dir" not in output:
                continue
            name = str(pathlib.Path(entry["file"]).relative_to(self.source))
            self.objects[name] = self.build / output
            self.commands[name] = command
            listed = subprocess.run(self.compiler(name, self.source / name, "-MM"), capture_output=True, text=True,
                                    cwd=self.build, check=True).stdout
            for header in re.findall(r"\S+\.h", listed):
                path = (self.build / header).resolve()
                if path.is_relative_to(self.source):
                    self.uses[str(path.relative_to(self.source))].append(name)
        wrapped = (self.source / "tests/unit/wrapped.cmake").read_text()
        self.wraps = [f"-Wl,--wrap={name}" for name in re.search(r"wrapped_calls([^)]*)", wrapped).group(1).split()]
        self.find_slow_tests()

    def run(self, *command):
        done = subprocess.run([str(c) for c in command], capture_output=True, text=True)
        if done.returncode != 0:
            sys.exit(done.stdout + done.stderr)

    def compiler(self, name, file, *options, include=None):
        command = list(self.commands[name])
        for option in ("-o", "-c"):
            at = command.index(option)
            del command[at : at + 2]
        if include:
            command.insert(1, f"-I{include}")
        return command + [*options, str(file)]

    def find_slow_tests(self):
        started = time.monotonic()
        done = self.test(self.library.parent, "*", 600, "--gtest_brief=0")
        self.seconds = time.monotonic() - started
        if done is None or done.returncode != 0:
            output = re.sub(r"\[  SKIPPED \].*\n", "", done.stdout)[-3000:] if done else "time-out"
            sys.exit("The unchanged product fails its tests:\n" + output)
        times = re.findall(r"\[       OK \] (\S+?)(?:, where .*)? \((\d+) ms\)", done.stdout)
        self.slow = [name for name, milliseconds in times if int(milliseconds) > SLOW_MS]
        self.left_out = [name for name, milliseconds in times if int(milliseconds) > LEFT_OUT_MS]
        self.count = len(times)

    def test(self, library, tests, limit, *options):
        """Runs the tests. Returns None if they take too long."""
        environment = {**os.environ, "LD_LIBRARY_PATH": str(library), "TZ": "UTC0"}
        process = subprocess.Popen(
            ["prlimit", f"--fsize={LARGEST_FILE}", self.tests, f"--gtest_filter={tests}", "--gtest_fail_fast",
             "--gtest_brief=1", *options],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, text=True, errors="replace",
            env=environment, cwd=self.directory, start_new_session=True)
        try:
            output, _ = process.communicate(timeout=limit)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            return None
        return subprocess.CompletedProcess(process.args, process.returncode, output, "")


class Worker:
    """Builds and tests one mutant at a time, in its own directory."""

    def __init__(self, project, number, killers):
        self.project, self.killers = project, killers
        self.directory = project.directory / f"worker{number}"
        shutil.rmtree(self.directory, ignore_errors=True)
        self.directory.mkdir()

    def build(self, mutant, source):
        """Builds the mutant's library. Returns False if it does not compile."""
        project = self.project
        changed = self.directory / "source" / mutant.file
        shutil.rmtree(self.directory / "source", ignore_errors=True)
        changed.parent.mkdir(parents=True)
        changed.write_text(mutant.apply(source))
        units = project.uses[mutant.file] if mutant.file.endswith(".h") else [mutant.file]
        objects = dict(project.objects)
        for unit in units:
            file = changed if unit == mutant.file else project.source / unit
            objects[unit] = self.directory / (unit.replace("/", "_") + ".o")
            command = project.compiler(unit, file, "-c", "-o", str(objects[unit]), include=self.directory / "source")
            if subprocess.run(command, capture_output=True, cwd=project.build).returncode != 0:
                return False
        library = str(self.directory / project.library.name)
        link = [project.commands[units[0]][0], "-shared", *project.wraps, "-o", library]
        return subprocess.run([*link, *map(str, objects.values()), "-lm"], capture_output=True).returncode == 0

    def killed(self, mutant):
        """Runs the tests that killed earlier mutants of the file, then the fast ones, then the slow ones."""
        project = self.project
        killers = self.killers[mutant.file]
        fast = "*" + "".join(("-" if k == 0 else ":") + name for k, name in enumerate(project.slow))
        slow = [name for name in project.slow if name not in project.left_out]
        stages = [":".join(list(killers)[:40]), fast, ":".join(slow)]
        for tests in filter(None, stages):
            done = project.test(self.directory, tests, 10 + 6 * project.seconds)
            if done is None:
                mutant.killer = "time-out"
                return True
            if done.returncode != 0:
                failed = re.findall(r"\[  FAILED  \] (\S+?)(?:,|\s)", done.stdout)
                mutant.killer = failed[0] if failed else f"crash ({done.returncode})"
                if failed:
                    if failed[0] in killers:
                        killers.remove(failed[0])
                    killers.appendleft(failed[0])
                return True
        return False

    def find_outcome(self, mutant, source):
        if not self.build(mutant, source):
            mutant.outcome = "does not compile"
        else:
            mutant.outcome = "killed" if self.killed(mutant) else "survived"


# --- Equivalent mutants ---


def read_equivalents(path):
    """Returns (file, definition, change) of each entry."""
    found, file, where = set(), "", ""
    for line in path.read_text().splitlines():
        if line.startswith("  - "):
            found.add((file, where, line[4:].strip()))
        elif line and not line.startswith(("#", " ")):
            file, where = re.fullmatch(r"(\S+): (\S+)", line).groups()
    return found


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("places", nargs="*", help="a folder, a file, or file:line; all five folders if none is given")
    parser.add_argument("--list", action="store_true", help="list the mutants without testing them")
    parser.add_argument("--every", type=int, default=1, metavar="N", help="use only every Nth mutant")
    parser.add_argument("--least", type=float, default=98.0, metavar="PERCENT", help="fail if fewer mutants are killed")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    options = parser.parse_args()

    root = pathlib.Path(__file__).resolve().parents[2]
    directory = root / "build" / "mutate"
    project = None if options.list else Project(root, directory)
    base = root if options.list else project.source

    places = [place.split(":") for place in options.places] or [[folder] for folder in FOLDERS]
    sources, mutants = {}, []
    for path in sorted(path for folder in FOLDERS for path in (base / folder).rglob("*.*")):
        name = str(path.relative_to(base))
        if path.suffix not in (".cpp", ".h"):
            continue
        wanted = [p for p in places if name == p[0] or name.startswith(p[0].rstrip("/") + "/")]
        if not wanted:
            continue
        sources[name] = path.read_text()
        lines = {int(p[1]) for p in wanted if len(p) > 1}
        mutants += [m for m in find_mutants(name, sources[name]) if not lines or m.line in lines]
    equivalents = read_equivalents(root / "tests" / "mutation" / "equivalent.txt")
    unknown = equivalents - {(m.file, m.where, m.change) for m in mutants}
    if unknown and not options.places:
        sys.exit("equivalent.txt lists mutants that do not exist:\n" +
                 "\n".join(": ".join(entry) for entry in sorted(unknown)))
    mutants = mutants[:: options.every]
    if options.list:
        print("\n".join(map(str, mutants)))
        return 0

    for mutant in mutants:
        if (mutant.file, mutant.where, mutant.change) in equivalents:
            mutant.outcome = "equivalent"
    todo = collections.deque(m for m in mutants if m.outcome is None)
    print(f"{len(mutants)} mutants, {project.count} tests of {project.seconds:.0f} s", flush=True)
    if project.left_out:
        print(f"tests left out, because each takes seconds: {' '.join(project.left_out)}", flush=True)

    killers = collections.defaultdict(collections.deque)
    log = (directory / "log.txt").open("w", buffering=1)
    lock = threading.Lock()

    def work(number):
        worker = Worker(project, number, killers)
        while True:
            with lock:
                if not todo:
                    return
                mutant = todo.popleft()
            worker.find_outcome(mutant, sources[mutant.file])
            with lock:
                log.write(f"{mutant.outcome}: {mutant}    | {mutant.killer or ''}\n")
                if mutant.outcome == "survived":
                    print(f"survived: {mutant}", flush=True)

    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for done in [pool.submit(work, number) for number in range(options.jobs)]:
            done.result()

    counts = collections.Counter(m.outcome for m in mutants)
    tried = counts["killed"] + counts["survived"]
    share = 100.0 * counts["killed"] / tried if tried else 100.0
    for folder in FOLDERS:
        part = collections.Counter(m.outcome for m in mutants if m.file.startswith(folder + "/"))
        if part:
            print(f"  {folder + ':':10}{part['killed']:5} killed {part['survived']:4} survived "
                  f"{part['equivalent']:4} equivalent")
    print(f"{counts['killed']} of {tried} killed ({share:.1f} %), {counts['equivalent']} equivalent, "
          f"{counts['does not compile']} did not compile")
    return 0 if share >= options.least else 1


if __name__ == "__main__":
    sys.exit(main())
