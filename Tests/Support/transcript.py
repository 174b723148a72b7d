#!/usr/bin/env python3
"""Runs transcript files: each command of a file, and what it must print and return.

    transcript.py [--path DIR]... [--set NAME=VALUE]... [--step-seconds N] FILE...

A transcript is a list of steps, one line each:
    $ COMMAND     run by sh in a scratch directory of the file's own, with every --path
                  directory first on PATH, each --set variable set, and KELTO_PORT_DIR an
                  empty port directory of its own
    > TEXT        a line of standard output; the lines given are the whole output
    ! TEXT        a line of standard error; likewise
    >~ TEXT       standard output holds TEXT somewhere (instead of whole lines)
    !~ TEXT       standard error holds TEXT somewhere
    ? N           the exit status (0 when not given)
and, for the programs a transcript talks to:
    @ start NAME COMMAND   starts COMMAND (sh, as above) in the background, its output in
                           NAME.log and its process id in $NAME_PID for the later steps;
                           every process started so is stopped by its process id (SIGTERM,
                           then SIGKILL) when the file ends, and a sanitizer's report in
                           its log fails the file
    @ until COMMAND        runs COMMAND until it succeeds, for at most 20 seconds
    @ stop NAME [STATUS]   stops that process now and waits for it; with STATUS, its exit
                           status must be that (128 + N for signal N, as sh reports it)
    @ exits NAME [STATUS]  that process ends by itself within 40 seconds (with STATUS)
    @ requires COMMAND     the file is skipped unless COMMAND succeeds (its first step)
Lines starting with # and blank lines are ignored. Each command may take 30 seconds (or
--step-seconds); one that does not end in time is killed with everything it started.
Prints one line per failed step (file:line and the difference) and "N passed, M failed".
The exit status is 0 when every step passed, 77 when every file was skipped, else 1.
"""
import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time


class Skipped(Exception):
    pass


def steps(path):
    current = None
    with open(path, encoding="utf-8") as text:
        for number, line in enumerate(text, 1):
            line = line.rstrip("\n")
            if not line.strip() or line.startswith("#"):
                continue
            mark, _, rest = line.partition(" ")
            if mark == "@":
                if current:
                    yield current
                current = None
                yield {"line": number, "directive": rest.split(" ", 1)}
            elif mark == "$":
                if current:
                    yield current
                current = {"line": number, "command": rest, "out": None, "err": None,
                           "out~": [], "err~": [], "status": 0}
            elif current is None:
                raise SystemExit(f"{path}:{number}: a step must start with '$ '")
            elif mark in (">", "!"):
                key = "out" if mark == ">" else "err"
                current[key] = (current[key] or []) + [rest]
            elif mark in (">~", "!~"):
                current["out~" if mark == ">~" else "err~"].append(rest)
            elif mark == "?":
                current["status"] = int(rest)
            else:
                raise SystemExit(f"{path}:{number}: unknown mark '{mark}'")
    if current:
        yield current


def run(path, directories, variables, step_seconds):
    passed = failed = 0
    scratch = tempfile.mkdtemp(prefix="transcript_")
    started = {}
    try:
        ports = os.path.join(scratch, ".ports")
        os.mkdir(ports, 0o700)
        env = dict(os.environ, **variables, KELTO_PORT_DIR=ports,
                   PATH=os.pathsep.join(directories + [os.environ.get("PATH", "")]))
        for step in steps(path):
            if "directive" in step:
                problem = directive(step["directive"], scratch, env, started)
                if problem:
                    failed += 1
                    print(f"{path}:{step['line']}: @ {' '.join(step['directive'])}\n    {problem}")
                continue
            # A session of its own, so that what it leaves running can be ended with it.
            command = subprocess.Popen(["sh", "-c", step["command"]], cwd=scratch, env=env,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                       stdin=subprocess.DEVNULL, start_new_session=True)
            try:
                out, err = command.communicate(timeout=step_seconds)
                result = {"status": command.returncode, "out": out.decode(errors="replace"),
                          "err": err.decode(errors="replace")}
            except subprocess.TimeoutExpired:
                os.killpg(command.pid, signal.SIGKILL)
                command.communicate()
                result = {"status": "timed out", "out": "", "err": ""}
            problems = []
            if result["status"] != step["status"]:
                problems.append(f"exit status {result['status']}, expected {step['status']}")
            for key, name in (("out", "standard output"), ("err", "standard error")):
                if step[key] is not None or not step[key + "~"]:
                    expected = "".join(line + "\n" for line in step[key] or [])
                    if result[key] != expected:
                        problems.append(f"{name}:\n{result[key]!r}\nexpected:\n{expected!r}")
                for text in step[key + "~"]:
                    if text not in result[key]:
                        problems.append(f"{name} lacks {text!r}:\n{result[key]!r}")
            if problems:
                failed += 1
                print(f"{path}:{step['line']}: $ {step['command']}")
                for problem in problems:
                    print("    " + problem.replace("\n", "\n    "))
            else:
                passed += 1
    finally:
        # A program killed here, or one whose status no step looks at, would take a
        # sanitizer's report with it unnoticed: each log is read for one.
        for name, process in started.items():
            stop(process)
            report = sanitizer_report(os.path.join(scratch, name + ".log"))
            if report:
                failed += 1
                print(f"{path}: {name}.log holds a sanitizer's report: {report}")
        shutil.rmtree(scratch, ignore_errors=True)
    return passed, failed


def sanitizer_report(log):
    """The first line of an AddressSanitizer, LeakSanitizer or UBSan report in the file."""
    marks = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:",
             "SUMMARY: UndefinedBehaviorSanitizer")
    with open(log, encoding="utf-8", errors="replace") as text:
        return next((line.strip() for line in text if any(m in line for m in marks)), None)


def stop(process):
    """Ends the process (SIGTERM, then SIGKILL); its exit status as sh reports it."""
    if process.poll() is None:
        process.send_signal(signal.SIGCONT)
        process.terminate()
        try:
            process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
    return process.returncode if process.returncode >= 0 else 128 - process.returncode


def status_problem(status, expected):
    return None if expected is None or str(status) == expected else \
        f"exit status {status}, expected {expected}"


def directive(words, scratch, env, started):
    """Carries out one '@' line; a problem as text, or None."""
    verb, rest = words[0], words[1] if len(words) > 1 else ""
    if verb == "start":
        name, _, command = rest.partition(" ")
        with open(os.path.join(scratch, name + ".log"), "wb") as log:
            started[name] = subprocess.Popen(["sh", "-c", "exec " + command], cwd=scratch,
                                             env=env, stdout=log, stderr=log,
                                             stdin=subprocess.DEVNULL)
        env[name + "_PID"] = str(started[name].pid)
        return None
    if verb == "requires":
        if subprocess.run(["sh", "-c", rest], cwd=scratch, env=env, capture_output=True,
                          stdin=subprocess.DEVNULL).returncode != 0:
            raise Skipped(rest)
        return None
    if verb == "until":
        deadline = time.monotonic() + 20
        while time.monotonic() < deadline:
            if subprocess.run(["sh", "-c", rest], cwd=scratch, env=env, capture_output=True,
                              timeout=30, stdin=subprocess.DEVNULL).returncode == 0:
                return None
            time.sleep(0.05)
        return "did not succeed within 20 seconds"
    name, _, expected = rest.partition(" ")
    if verb == "stop" and name in started:
        return status_problem(stop(started[name]), expected or None)
    if verb == "exits" and name in started:
        try:
            started[name].wait(timeout=40)
        except subprocess.TimeoutExpired:
            return "still running after 40 seconds"
        return status_problem(stop(started[name]), expected or None)
    return f"unknown directive or process: {verb} {rest}"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--path", action="append", default=[])
    parser.add_argument("--set", action="append", default=[])
    parser.add_argument("--step-seconds", type=float, default=30)
    parser.add_argument("files", nargs="+")
    arguments = parser.parse_args()
    passed = failed = skipped = 0
    for path in arguments.files:
        try:
            p, f = run(path, [os.path.abspath(d) for d in arguments.path],
                       dict(item.split("=", 1) for item in arguments.set),
                       arguments.step_seconds)
            passed, failed = passed + p, failed + f
        except Skipped as reason:
            skipped += 1
            print(f"{path}: skipped, as this does not hold: {reason}")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 77 if skipped == len(arguments.files) else 0


if __name__ == "__main__":
    sys.exit(main())
