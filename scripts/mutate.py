#!/usr/bin/env python3
"""Mutation testing of the driver's library code (driver/ frames/ lists/ localarea/).

Run it through scripts/mutate, which installs what the build needs first.

  scripts/mutate                    200 sampled mutants, seed 1
  scripts/mutate --sample 400 --seed 7
  scripts/mutate --quick 5          a few mutants: checks that the script works
  scripts/mutate --list             every mutant with its id, nothing is built
  scripts/mutate --report           the last run's report again (after marking
                                    equivalent mutants)
  scripts/mutate --mutant ID ...    only these mutants
  scripts/mutate --survivors        the last run's survivors again, after tests
                                    were added, merged into that run's report
                                    (the other mutants keep their killers)
  scripts/mutate --tests reply_test,queues_test
                                    only these test programs ('all' for every one)

Each mutant is one small change of one source line: a comparison flipped
(< <=, > >=, == !=), an integer constant moved by one, a statement dropped, && and ||
swapped, or a function made to return at once. The sources are copied to
build-mutate/src, so the working tree is never changed; the copy is built once
in build-mutate/build (tests only, -O1) and then, for each mutant, only the
mutated object is compiled again and the test programs relinked. The test
programs run in parallel, each with a time limit taken from its unmutated run;
a failure, a crash or a timeout kills the mutant.

The report gives the score (killed / non-equivalent mutants that built), for
each test program the mutants it kills and those only it kills, and every
surviving mutant as file:line with its change and id. Mutants known to be
equivalent are listed by id in scripts/mutate-equivalent.txt (one id per line,
then a reason); they are not run and not counted.

The exit status is 0 when the run worked, whatever the score (--min-score P
makes a lower score fail); it is 1 when the unmutated suite fails or the build
cannot be set up.
"""

import argparse
import fcntl
import hashlib
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
LIBRARY_DIRS = ("driver", "frames", "lists", "localarea")
# Test programs that check the packaging, the tools, the link, the
# documentation or the exported names rather than the library's behaviour;
# left out by default.
OTHER_TESTS = ("tools_test", "sim_test", "package_install_test", "exports_test",
               "minimal_runtime_test", "monitor_test", "network_test", "poller_parts_test",
               "link_test", "link_line_test", "frame_finder_test", "fault_plan_test")
EQUIVALENT_FILE = os.path.join(ROOT, "scripts", "mutate-equivalent.txt")


def log(msg):
    print("== " + msg, file=sys.stderr, flush=True)


# ---------------------------------------------------------------- source scan


def mask_source(text):
    """The text with comments, string and character literals and preprocessor
    lines blanked (same length, newlines kept), so only code is mutated."""
    out = list(text)
    i, n = 0, len(text)
    at_line_start = True

    def blank(a, b):
        for k in range(a, b):
            if out[k] != "\n":
                out[k] = " "

    while i < n:
        c = text[i]
        if c == "\n":
            at_line_start = True
            i += 1
            continue
        if at_line_start and c == "#":
            j = i
            while j < n and text[j] != "\n":
                j = j + 2 if text[j] == "\\" and j + 1 < n else j + 1
            blank(i, j)
            i = j
            continue
        if not c.isspace():
            at_line_start = False
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
        elif c in "\"'":
            j = i + 1
            while j < n and text[j] != c:
                j += 2 if text[j] == "\\" else 1
            blank(i, j + 1)
            i = j + 1
        else:
            i += 1
    return "".join(out)


CONTROL_WORDS = ("if", "for", "while", "switch", "catch", "else", "do", "return", "sizeof")
DECL_PREFIXES = re.compile(
    r"^(const|constexpr|static|auto|bool|char|short|int|long|unsigned|signed|float|double|"
    r"size_t|u?int\d+_t|q(u)?int\d+|struct|enum|class|using|typedef|static_assert|"
    r"return|case|default|for|if|while|switch|do|else|goto|template|namespace|public|"
    r"private|protected)\b")
# "Type name" at the start of a line: a declaration, dropping it would not build.
DECL_SHAPE = re.compile(r"^[A-Za-z_][\w:]*(<[^;()]*>)?\s*[*&]*\s+[*&]*[A-Za-z_]\w*\s*(=|\(|\{|;|\[)")


def droppable(stmt, prev):
    """A whole statement on one line, not a declaration, after a line that ends
    a statement, opens or closes a block, or ends a control header."""
    if stmt in ("break;", "continue;"):
        return True
    if not stmt.endswith(";") or stmt.startswith("}"):
        return False
    if not prev.endswith((";", "{", "}", ")", ":", "else")):
        return False
    if not re.match(r"^(\*?[A-Za-z_(]|\+\+|--|::)", stmt):
        return False  # the tail of an expression begun above
    if re.match(r"^delete\b", stmt):
        return True
    return not DECL_PREFIXES.match(stmt) and not DECL_SHAPE.match(stmt)


def brace_kind(header, stack):
    """'scope' for a namespace, class or enum, 'func' for a function body and
    'block' for any other brace; header is the code before the brace."""
    if any(k != "scope" for k, _ in stack):
        return "block"
    first = header.split(" ", 1)[0]
    declared = header.split(":")[0]  # before a base-class list
    if first in ("namespace", "extern") or \
            (re.match(r"^(namespace|extern|struct|class|union|enum)\b", header) and "(" not in declared):
        return "scope"
    if "(" in header and not header.endswith("=") and first not in CONTROL_WORDS \
            and not header.startswith("["):
        return "func"
    if re.match(r"^(template\s*<.*>\s*)?(struct|class|union)\b", header):
        return "scope"
    return "block"


def function_bodies(code):
    """(open, close, return type, name) of each function body in masked code."""
    bodies = []
    stack = []  # kind of each open brace: 'scope' (namespace, class), 'func', 'block'
    last_stop = 0
    i = 0
    while i < len(code):
        c = code[i]
        if c == "{":
            header = " ".join(code[last_stop:i].split())
            kind = brace_kind(header, stack)
            stack.append((kind, (i, header)))
            last_stop = i + 1
        elif c == "}":
            if stack:
                kind, (start, header) = stack.pop()
                if kind == "func":
                    bodies.append((start, i, header))
            last_stop = i + 1
        elif c == ";":
            last_stop = i + 1
        i += 1
    result = []
    for start, end, header in bodies:
        # The name is the identifier before the parameter list's "(".
        head = header.split("(", 1)[0]
        if " : " in header.split(")")[0]:
            head = header.split(" : ")[0].split("(", 1)[0]
        m = re.search(r"([\w:~]+)\s*$", head)
        if not m:
            continue
        name = m.group(1)
        rtype = head[:m.start()].strip()
        rtype = re.sub(r"^template\s*<.*?>\s*", "", rtype)
        rtype = re.sub(r"\b(static|inline|constexpr|extern|RV_EXPORT|virtual|explicit)\b", "", rtype)
        rtype = " ".join(rtype.split())
        result.append((start, end, rtype, name))
    return result


class Mutant:
    def __init__(self, path, line, start, end, old, new, op, text):
        self.path = path          # relative to the repository
        self.line = line          # 1-based
        self.start = start        # offset of the replaced text in the file
        self.end = end
        self.old = old
        self.new = new
        self.op = op
        self.id = ""
        self.text = text          # the original line, stripped

    def describe(self):
        if self.op == "return":
            return "%s returns at once: `%s`" % (self.old, self.new.strip())
        if self.op == "drop":
            return "drop `%s`" % self.old
        return "`%s` -> `%s`" % (self.old, self.new)

    def apply(self, source):
        return source[:self.start] + self.new + source[self.end:]


COMPARISONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}


def scan_file(path, text):
    code = mask_source(text)
    mutants = []
    line_starts = [0]
    for k, ch in enumerate(text):
        if ch == "\n":
            line_starts.append(k + 1)
    bodies = function_bodies(code)

    def inside_function(offset):
        return any(a < offset < b for a, b, _, _ in bodies)

    header = path.endswith(".h")

    def add(line_no, start, end, new, op):
        # In headers only function bodies: the rest is layout and
        # declarations, whose mutants mostly do not build and would rebuild
        # every file. Array sizes outside functions likewise.
        if (header or op == "constant") and not inside_function(start):
            if header or re.search(r"\[[^\]]*$", text[line_starts[line_no - 1]:start]):
                return
        old = text[start:end]
        mutants.append(Mutant(path, line_no, start, end, old, new, op,
                              text[line_starts[line_no - 1]:].split("\n", 1)[0].strip()))

    code_lines = code.split("\n")
    prev_code = ""
    for idx, cl in enumerate(code_lines):
        base = line_starts[idx]
        line_no = idx + 1
        stripped = cl.strip()
        if not stripped:
            continue
        in_func = inside_function(base + len(cl) - len(cl.lstrip()))
        if "static_assert" not in cl:
            for m in re.finditer(r"(?<=\s)(==|!=|<=|>=|<|>)(?=\s)", cl):
                add(line_no, base + m.start(), base + m.end(), COMPARISONS[m.group(1)], "compare")
            for m in re.finditer(r"(?<=\s)(&&|\|\|)(?=\s)", cl):
                add(line_no, base + m.start(), base + m.end(),
                    "||" if m.group(1) == "&&" else "&&", "logic")
            for m in re.finditer(r"(?<![\w.'])(0[xX][0-9a-fA-F]+|\d+)([uUlL]*)(?![\w.'])", cl):
                digits, suffix = m.group(1), m.group(2)
                value = int(digits, 16 if digits[:2].lower() == "0x" else 10)
                fmt = (lambda v: "0x%X" % v) if digits[:2].lower() == "0x" else str
                for v in (value + 1, value - 1):
                    if v >= 0:
                        add(line_no, base + m.start(), base + m.end(), fmt(v) + suffix, "constant")
        # Drop a whole one-line statement (it becomes an empty statement, so
        # an if or loop around it keeps its shape).
        if in_func and droppable(stripped, prev_code):
            s = base + len(cl) - len(cl.lstrip())
            e = base + cl.rstrip().rfind(";") + 1
            add(line_no, s, e, ";", "drop")
        prev_code = stripped
    for start, _end, rtype, name in bodies:
        if rtype.endswith("&") or name.startswith("~"):
            continue
        line_no = code.count("\n", 0, start) + 1
        if rtype in ("", "void") or rtype.endswith(" void"):
            returns = ["return;"]
        elif re.search(r"\bbool$", rtype):
            returns = ["return false;", "return true;"]
        else:
            returns = ["return {};"]
        for r in returns:
            add(line_no, start + 1, start + 1, " %s " % r, "return")
            mutants[-1].old = name
    # Stable ids: the file, the line's own text (and which of the file's
    # identical lines it is), the site on the line and the change, so edits
    # elsewhere leave them alone.
    seen = {}
    for m in mutants:
        key = (m.text, m.op, m.new)
        seen[key] = seen.get(key, 0) + 1
        h = hashlib.sha1(("%s|%s|%s|%s|%d" % (m.path, m.op, m.text, m.new, seen[key])).encode())
        m.id = "m" + h.hexdigest()[:10]
    return mutants


def library_sources(src_root):
    files = []
    for d in LIBRARY_DIRS:
        full = os.path.join(src_root, d)
        if not os.path.isdir(full):
            continue
        for name in sorted(os.listdir(full)):
            if name.endswith((".cpp", ".h")):
                files.append(os.path.join(d, name))
    return files


def all_mutants(src_root):
    mutants = []
    for rel in library_sources(src_root):
        with open(os.path.join(src_root, rel), encoding="utf-8") as f:
            mutants.extend(scan_file(rel, f.read()))
    return mutants


def sample(mutants, n, seed):
    """n mutants, the same number of each kind where a kind has enough (the
    constants alone outnumber all the rest), reproducible by seed."""
    rng = random.Random(seed)
    kinds = {}
    for m in mutants:
        kinds.setdefault(m.op, []).append(m)
    for op in sorted(kinds):
        rng.shuffle(kinds[op])
    chosen = []
    while len(chosen) < n and any(kinds.values()):
        for op in sorted(kinds):
            if kinds[op] and len(chosen) < n:
                chosen.append(kinds[op].pop())
    return chosen


def read_equivalent():
    ids = {}
    if os.path.exists(EQUIVALENT_FILE):
        with open(EQUIVALENT_FILE, encoding="utf-8") as f:
            for line in f:
                line = line.split("#", 1)[0].strip()
                if line:
                    parts = line.split(None, 1)
                    ids[parts[0]] = parts[1] if len(parts) > 1 else ""
    return ids


# ---------------------------------------------------------------- the copy and its build


def tracked_files():
    try:
        out = subprocess.run(["git", "-C", ROOT, "ls-files", "-co", "--exclude-standard", "-z"],
                             check=True, capture_output=True).stdout.decode()
        files = [f for f in out.split("\0") if f]
    except (OSError, subprocess.CalledProcessError):
        files = []
        for dirpath, dirnames, filenames in os.walk(ROOT):
            rel_dir = os.path.relpath(dirpath, ROOT)
            dirnames[:] = [d for d in dirnames if not d.startswith((".", "build"))]
            files += [os.path.normpath(os.path.join(rel_dir, f)) for f in filenames]
    return [f for f in files if not f.startswith("build") and os.path.isfile(os.path.join(ROOT, f))]


def sync_copy(src_root):
    """Copy the working tree to src_root, touching only files that differ so
    the copy's build stays incremental (and any mutant left by an interrupted
    run is put right)."""
    wanted = set(tracked_files())
    for rel in sorted(wanted):
        a, b = os.path.join(ROOT, rel), os.path.join(src_root, rel)
        with open(a, "rb") as f:
            data = f.read()
        if os.path.exists(b):
            with open(b, "rb") as f:
                if f.read() == data:
                    continue
        os.makedirs(os.path.dirname(b), exist_ok=True)
        shutil.copy2(a, b)
        os.utime(b)  # newer than any object built from an older copy
    for dirpath, _dirs, filenames in os.walk(src_root):
        for name in filenames:
            rel = os.path.relpath(os.path.join(dirpath, name), src_root)
            if rel not in wanted:
                os.remove(os.path.join(dirpath, name))


def configure(src_root, build_dir, tests, opt):
    extra = any(t in OTHER_TESTS for t in tests)
    gen = ["-G", "Ninja"] if shutil.which("ninja") else []
    if gen and os.path.exists(os.path.join(build_dir, "Makefile")):
        gen = []
    onoff = "ON" if extra else "OFF"
    cmd = ["cmake", "-S", src_root, "-B", build_dir] + gen + [
        "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=%s -DNDEBUG" % opt,
        "-DRV_SANITIZE=", "-DRV_BUILD_TESTS=ON", "-DRV_BUILD_TOOLS=" + onoff,
        "-DRV_BUILD_EXAMPLES=" + onoff, "-DRV_BUILD_BENCH=OFF", "-DRV_BUILD_FUZZ=OFF"]
    r = subprocess.run(cmd, capture_output=True, text=True)
    if r.returncode != 0:
        sys.stderr.write(r.stdout + r.stderr)
        return False
    return True


def build(build_dir, targets, jobs, limit=None):
    cmd = ["cmake", "--build", build_dir, "-j", str(jobs), "--target"] + targets
    # Its own process group, so a timeout or an interrupt stops the compilers too.
    proc = subprocess.Popen(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            start_new_session=True)
    try:
        out, _ = proc.communicate(timeout=limit)
    except subprocess.TimeoutExpired:
        stop_group(proc)
        return False, "build timed out"
    except BaseException:
        stop_group(proc)
        raise
    return proc.returncode == 0, out


def stop_group(proc):
    try:
        os.killpg(proc.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    proc.wait()


def test_programs(src_root):
    names = []
    for f in sorted(os.listdir(os.path.join(src_root, "tests"))):
        if f.endswith("_test.cpp"):
            names.append(f[:-4])
    return names


def find_program(build_dir, name):
    for sub in ("tests", "host", ""):
        p = os.path.join(build_dir, sub, name)
        if os.path.isfile(p) and os.access(p, os.X_OK):
            return p
    return None


class Run:
    """One test program run for one mutant, in its own process group."""

    def __init__(self, name, path, cwd, limit):
        self.name = name
        self.proc = subprocess.Popen([path, "--gtest_fail_fast"], cwd=cwd, stdin=subprocess.DEVNULL,
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                     start_new_session=True)
        self.started = time.monotonic()
        self.limit = limit

    def poll(self):
        """'pass', 'fail', 'timeout', or None while it runs."""
        rc = self.proc.poll()
        if rc is not None:
            return "pass" if rc == 0 else "fail"
        if time.monotonic() - self.started > self.limit:
            self.kill()
            return "timeout"
        return None

    def kill(self):
        stop_group(self.proc)


def run_tests(programs, timeouts, jobs):
    """Runs the (name, path) programs, jobs at a time, longest first; returns
    {name: (outcome, seconds)}."""
    pending = sorted(programs, key=lambda p: -timeouts[p[0]])
    running = []
    results = {}
    try:
        while pending or running:
            while pending and len(running) < jobs:
                name, path = pending.pop(0)
                running.append(Run(name, path, os.path.dirname(path), timeouts[name]))
            time.sleep(0.02)
            for r in list(running):
                outcome = r.poll()
                if outcome:
                    results[r.name] = (outcome, time.monotonic() - r.started)
                    running.remove(r)
    finally:
        for r in running:
            r.kill()
    return results


# ---------------------------------------------------------------- report


def report(results, args, total, equivalent_in_sample, out):
    built = [r for r in results if r["status"] in ("killed", "survived")]
    killed = [r for r in built if r["status"] == "killed"]
    unbuilt = [r for r in results if r["status"] == "unbuilt"]
    lines = []
    score = 100.0 * len(killed) / len(built) if built else 0.0
    lines.append("mutation score: %d killed of %d non-equivalent mutants = %.1f%%"
                 % (len(killed), len(built), score))
    lines.append("  seed %d: %d mutants run of %d in all; %d more in the sample marked equivalent;"
                 " %d did not build" % (args.seed, len(results), total, equivalent_in_sample,
                                        len(unbuilt)))
    ops = {}
    for r in built:
        k, n = ops.get(r["op"], (0, 0))
        ops[r["op"]] = (k + (r["status"] == "killed"), n + 1)
    lines.append("  by kind: " + ", ".join("%s %d/%d" % (op, k, n) for op, (k, n) in sorted(ops.items())))
    lines.append("")
    kills, only = {}, {}
    for r in killed:
        for t in r["killers"]:
            kills[t] = kills.get(t, 0) + 1
        if len(r["killers"]) == 1:
            only[r["killers"][0]] = only.get(r["killers"][0], 0) + 1
    lines.append("%-28s %6s %10s" % ("test program", "kills", "only it"))
    for t in sorted(args.test_names, key=lambda t: (-only.get(t, 0), -kills.get(t, 0), t)):
        lines.append("%-28s %6d %10d" % (t, kills.get(t, 0), only.get(t, 0)))
    lines.append("")
    survivors = sorted((r for r in built if r["status"] == "survived"),
                       key=lambda r: (r["file"], r["line"]))
    lines.append("surviving mutants (%d):" % len(survivors))
    for r in survivors:
        lines.append("  %s:%d  %s  [%s]" % (r["file"], r["line"], r["change"], r["id"]))
        lines.append("      %s" % r["text"])
    text = "\n".join(lines) + "\n"
    sys.stdout.write("\n" + text)
    with open(out, "w", encoding="utf-8") as f:
        f.write(text)
    return score


# ---------------------------------------------------------------- main


def parse_args():
    p = argparse.ArgumentParser(prog="scripts/mutate", description=__doc__.split("\n\n")[0],
                                formatter_class=argparse.RawDescriptionHelpFormatter,
                                epilog="\n\n".join(__doc__.split("\n\n")[1:]))
    p.add_argument("--sample", type=int, default=200, metavar="N", help="mutants to run (default 200)")
    p.add_argument("--quick", type=int, metavar="N", help="run N mutants: a check that the script works")
    p.add_argument("--seed", type=int, default=1, help="sampling seed (default 1)")
    p.add_argument("--mutant", nargs="+", metavar="ID", help="run only these mutants")
    p.add_argument("--list", action="store_true", help="list every mutant and stop")
    p.add_argument("--survivors", action="store_true",
                   help="run the last run's survivors again and merge them into its results")
    p.add_argument("--report", action="store_true",
                   help="report the last run again, leaving out mutants since marked equivalent")
    p.add_argument("--tests", metavar="LIST",
                   help="comma-separated test programs, or 'all' (default: all but %s)"
                   % ", ".join(OTHER_TESTS))
    p.add_argument("--jobs", type=int, default=2, help="test programs run at once (default 2)")
    p.add_argument("--timeout-factor", type=float, default=3.0,
                   help="a program's limit is this many times its unmutated time (default 3)")
    p.add_argument("--min-timeout", type=float, default=10.0,
                   help="but never below this many seconds (default 10)")
    p.add_argument("--slow", type=float, default=5.0,
                   help="programs taking this many seconds unmutated run in the background "
                   "while the next mutant builds (default 5)")
    p.add_argument("--background", type=int, default=3,
                   help="at most this many background runs at once (default 3)")
    p.add_argument("--opt", default="-O1", help="optimisation flags of the build (default -O1)")
    p.add_argument("--build-dir", default=os.path.join(ROOT, "build-mutate"),
                   help="work folder (default build-mutate)")
    p.add_argument("--max-minutes", type=float,
                   help="start no mutant after this many minutes; report those run")
    p.add_argument("--min-score", type=float, help="fail when the score is below this percentage")
    return p.parse_args()


def main():
    args = parse_args()
    work = os.path.abspath(args.build_dir)
    src_root = os.path.join(work, "src")
    build_dir = os.path.join(work, "build")
    if args.list:
        for m in all_mutants(ROOT):
            print("%s  %s:%d  %s" % (m.id, m.path, m.line, m.describe()))
        return 0
    if args.report:
        return report_again(args, work)
    os.makedirs(src_root, exist_ok=True)
    lock = open(os.path.join(work, ".lock"), "w")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except OSError:
        log("another scripts/mutate is working in %s" % work)
        return 1
    sync_copy(src_root)
    mutants = all_mutants(src_root)
    by_id = {m.id: m for m in mutants}

    available = test_programs(src_root)
    if args.tests in (None, ""):
        args.test_names = [t for t in available if t not in OTHER_TESTS]
    elif args.tests == "all":
        args.test_names = available
    else:
        args.test_names = [t.strip() for t in args.tests.split(",") if t.strip()]
        unknown = [t for t in args.test_names if t not in available]
        if unknown:
            log("no such test program: " + ", ".join(unknown))
            return 1

    equivalent = read_equivalent()
    saved = None
    if args.survivors:
        with open(os.path.join(work, "results.json"), encoding="utf-8") as f:
            saved = json.load(f)
        args.seed = saved["seed"]
        args.mutant = [r["id"] for r in saved["mutants"]
                       if r["status"] == "survived" and r["id"] in by_id]
    if args.mutant:
        missing = [i for i in args.mutant if i not in by_id]
        if missing:
            log("no such mutant: " + ", ".join(missing))
            return 1
        chosen = [by_id[i] for i in args.mutant]
    else:
        n = args.quick if args.quick is not None else args.sample
        chosen = sample(mutants, n, args.seed)
    skipped_equivalent = sum(1 for m in chosen if m.id in equivalent)
    chosen = [m for m in chosen if m.id not in equivalent]
    # Run in sample order (kinds taking turns, files mixed), so a run cut
    # short by --max-minutes or an interrupt is still a fair sample. Putting a
    # file back costs one rebuild of its object, which a compiler cache makes
    # cheap.

    log("building the unmutated tests in %s" % os.path.relpath(build_dir, ROOT))
    if not configure(src_root, build_dir, args.test_names, args.opt):
        return 1
    ok, out = build(build_dir, args.test_names, 2)
    if not ok:
        sys.stderr.write(out)
        log("the unmutated build failed")
        return 1
    programs = []
    for t in args.test_names:
        path = find_program(build_dir, t)
        if not path:
            log("test program %s was not built" % t)
            return 1
        programs.append((t, path))
    # The unmutated run must pass; its times set each program's limit.
    base = run_tests(programs, {t: 600.0 for t in args.test_names}, args.jobs)
    failing = [t for t, (o, _) in base.items() if o != "pass"]
    if failing:
        log("the unmutated suite fails: " + ", ".join(sorted(failing)))
        return 1
    timeouts = {t: max(args.min_timeout, args.timeout_factor * s) for t, (_, s) in base.items()}
    log("unmutated suite passes (%s)" % ", ".join("%s %.1fs" % (t, s) for t, (_, s) in sorted(base.items())))

    # Programs that mostly wait (the unmutated run took --slow seconds or
    # more) run from a copy of their binary in the background while the next
    # mutant builds, so they cost no time of their own.
    slow = {t for t, (_, sec) in base.items() if sec >= args.slow and t not in OTHER_TESTS}
    fast_programs = [p for p in programs if p[0] not in slow]
    snap_dir = os.path.join(work, "snapshots")
    shutil.rmtree(snap_dir, ignore_errors=True)
    os.makedirs(snap_dir)
    results = []
    background = []      # (record, Run, binary copy)
    current = None       # file of the copy that now holds a mutant
    original = None
    interrupted = False
    counter = {"done": 0}

    def finish(rec):
        rec["killers"].sort()
        rec["status"] = "killed" if rec["killers"] else "survived"
        counter["done"] += 1
        log("%d/%d %s %s:%d %s: %s%s" % (counter["done"], len(chosen), rec["id"], rec["file"],
                                          rec["line"], rec["change"], rec["status"],
                                          " by " + ",".join(rec["killers"]) if rec["killers"] else ""))

    def reap(keep):
        """Collects finished background runs until at most keep are left."""
        while True:
            for entry in list(background):
                rec, run, copy = entry
                outcome = run.poll()
                if outcome:
                    background.remove(entry)
                    os.remove(copy)
                    if outcome != "pass":
                        rec["killers"].append(run.name)
                    if outcome == "timeout":
                        rec["timeouts"].append(run.name)
                    rec["pending"] -= 1
                    if rec["pending"] == 0:
                        finish(rec)
            if len(background) <= keep:
                return
            time.sleep(0.05)

    def stop(_sig, _frame):
        raise KeyboardInterrupt

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)
    started = time.monotonic()
    try:
        for m in chosen:
            if args.max_minutes and time.monotonic() - started > 60 * args.max_minutes:
                log("--max-minutes reached: no more mutants are started")
                break
            path = os.path.join(src_root, m.path)
            if current != path:
                if current is not None:
                    write_source(current, original)
                current = path
                with open(path, encoding="utf-8") as f:
                    original = f.read()
            write_source(path, m.apply(original))
            ok, _ = build(build_dir, args.test_names, 2, limit=600)
            rec = {"id": m.id, "file": m.path, "line": m.line, "op": m.op, "change": m.describe(),
                   "text": m.text, "killers": [], "timeouts": [], "pending": 0}
            results.append(rec)
            if not ok:
                rec["status"] = "unbuilt"
                counter["done"] += 1
                log("%d/%d %s %s:%d %s: did not build" % (counter["done"], len(chosen), m.id, m.path,
                                                          m.line, m.describe()))
                continue
            for name, binary in programs:
                if name in slow:
                    copy = os.path.join(snap_dir, "%s-%s" % (m.id, name))
                    shutil.copy2(binary, copy)
                    rec["pending"] += 1
                    background.append((rec, Run(name, copy, os.path.dirname(binary), timeouts[name]),
                                       copy))
            rec["pending"] += 1
            res = run_tests(fast_programs, timeouts, args.jobs)
            rec["killers"] += [t for t, (o, _) in res.items() if o != "pass"]
            rec["timeouts"] += [t for t, (o, _) in res.items() if o == "timeout"]
            rec["pending"] -= 1
            if rec["pending"] == 0:
                finish(rec)
            reap(args.background - 1)
        reap(0)
    except KeyboardInterrupt:
        interrupted = True
        log("interrupted: reporting the mutants finished so far")
        for _rec, run, _copy in background:
            run.kill()
        results = [r for r in results if "status" in r]
    finally:
        if current is not None:
            write_source(current, original)
        shutil.rmtree(snap_dir, ignore_errors=True)
    for r in results:
        r.pop("pending", None)
    if saved is not None and not interrupted:
        again = {r["id"]: r for r in results}
        results = [again.get(r["id"], r) for r in saved["mutants"] if r["id"] not in equivalent]
        skipped_equivalent = saved["equivalent"] + len(saved["mutants"]) - len(results)
    with open(os.path.join(work, "results.json"), "w", encoding="utf-8") as f:
        json.dump({"seed": args.seed, "tests": args.test_names, "total": len(mutants),
                   "equivalent": skipped_equivalent, "mutants": results}, f, indent=1)
    score = report(results, args, len(mutants), skipped_equivalent, os.path.join(work, "report.txt"))
    log("%d mutants in %.0fs; report in %s" % (len(results), time.monotonic() - started,
                                               os.path.relpath(os.path.join(work, "report.txt"), ROOT)))
    if interrupted:
        return 130
    if args.quick is None and args.min_score is not None and score < args.min_score:
        log("score %.1f%% is below %.1f%%" % (score, args.min_score))
        return 1
    return 0


def report_again(args, work):
    """The last run's report, with the mutants now listed as equivalent left out."""
    with open(os.path.join(work, "results.json"), encoding="utf-8") as f:
        saved = json.load(f)
    equivalent = read_equivalent()
    results = [r for r in saved["mutants"] if r["id"] not in equivalent]
    args.seed = saved["seed"]
    args.test_names = saved["tests"]
    marked = saved["equivalent"] + len(saved["mutants"]) - len(results)
    report(results, args, saved["total"], marked, os.path.join(work, "report.txt"))
    return 0


def write_source(path, text):
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)
    # Always newer than the object built from the previous content.
    now = time.time()
    os.utime(path, (now, now))


if __name__ == "__main__":
    sys.exit(main())
