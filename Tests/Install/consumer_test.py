#!/usr/bin/env python3
"""The installed package, used as an application developer uses it.

Builds Tests/Install/Consumer outside the source tree against an installed prefix, once
through CMake (find_package(KeltoClient)) and once through pkg-config (kelto-client); starts
the installed coordinator (through its link in bin/) with two installed simulated drivers on
their installed example configurations, in a port directory of its own; and checks that each
build of the program gets, through the library, the tablet count of the examples, the
protocol version of the installed Info.plist and the touch capabilities of the examples;
and that the installed tabletctl counts the same tablets. Every process it starts is stopped
by its process id; every wait is bounded.

usage: consumer_test.py --prefix DIR --consumer DIR --cxx COMPILER [--sanitize LIST]
           --bindir D --pkgconfigdir D --examplesdir D --info-plist F   (relative to DIR)
"""
import argparse
import json
import os
import plistlib
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

COORDINATOR_PORT = "com.kelto.CoordinatorMessageServer"


class Failure(Exception):
    pass


def run(command, timeout, **kwargs):
    """Runs a build step; its output is shown only when it fails."""
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, timeout=timeout, **kwargs)
    if result.returncode != 0:
        raise Failure("%s failed (%d):\n%s" % (shlex.join(command), result.returncode,
                                                result.stdout))
    return result.stdout


def build_with_cmake(args, source, work, compiler_flags):
    build = os.path.join(work, "build-cmake")
    run(["cmake", "-S", source, "-B", build, "-G", "Ninja",
         "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
         "-DCMAKE_PREFIX_PATH=" + args.prefix,
         "-DCMAKE_CXX_COMPILER=" + args.cxx,
         "-DCMAKE_CXX_FLAGS=" + " ".join(compiler_flags),
         "-DCMAKE_EXE_LINKER_FLAGS=" + " ".join(compiler_flags)], timeout=120)
    run(["cmake", "--build", build], timeout=240)
    return os.path.join(build, "kelto-consumer")


def build_with_pkg_config(args, source, work, compiler_flags):
    environment = dict(os.environ, PKG_CONFIG_PATH=os.path.join(args.prefix, args.pkgconfigdir))
    flags = run(["pkg-config", "--cflags", "--libs", "kelto-client"], timeout=30,
                env=environment)
    program = os.path.join(work, "kelto-consumer-pkg-config")
    run([args.cxx, "-std=c++20", *compiler_flags, os.path.join(source, "main.cpp"),
         "-o", program, *shlex.split(flags)], timeout=240)
    return program


def wait_until_served(port_dir, port_name, process, deadline):
    """Waits until the port's socket accepts a connection, or the process ended."""
    path = os.path.join(port_dir, port_name)
    while time.monotonic() < deadline:
        if process.poll() is not None:
            raise Failure("%s ended with %d before serving %s" % (process.args[0],
                                                                  process.returncode, port_name))
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as probe:
            try:
                probe.connect(path)
                return
            except OSError:
                pass
        time.sleep(0.05)
    raise Failure("nobody served %s in time" % port_name)


def expected_answer(args):
    """What the examples and the installed Info.plist say the coordinator must answer."""
    examples = os.path.join(args.prefix, args.examplesdir)
    configurations = []
    for name in sorted(os.listdir(examples)):
        with open(os.path.join(examples, name), encoding="utf-8") as file:
            configurations.append((os.path.join(examples, name), json.load(file)))
    if len(configurations) != 2:
        raise Failure("expected two example configurations, found %d" % len(configurations))
    tablets = [tablet for _, configuration in configurations
               for tablet in configuration.get("Tablets", [])]
    touch = sorted(json.dumps(tablet["TouchCapabilities"], sort_keys=True)
                   for tablet in tablets if "TouchCapabilities" in tablet)
    with open(os.path.join(args.prefix, args.info_plist), "rb") as file:
        protocol = plistlib.load(file)["Protocal"]
    return configurations, {"tablets": len(tablets), "protocol": protocol, "touch": touch}


def answer_of(output):
    """The program's answer in the form of expected_answer: the coordinator's own
    "MultiTouchDeviceID" taken out of each capability map (after checking it is there)."""
    answer = json.loads(output)
    touch = []
    for capabilities in answer["touch"]:
        if not isinstance(capabilities.pop("MultiTouchDeviceID", None), int):
            raise Failure("a capability map without an integer MultiTouchDeviceID: " + output)
        touch.append(json.dumps(capabilities, sort_keys=True))
    return {"tablets": answer["tablets"], "protocol": answer["protocol"],
            "touch": sorted(touch)}


def ask(program, environment, expected, deadline):
    """Runs the program until it answers as expected. The coordinator synchronises with the
    drivers once it has started, so the first answers may still be partial; the last answer
    is reported if the expected one never comes."""
    last = "no answer"
    while time.monotonic() < deadline:
        result = subprocess.run([program], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                text=True, timeout=30, env=environment)
        if result.returncode == 0:
            last = result.stdout
            if answer_of(result.stdout) == expected:
                return
        else:
            last = "exit %d: %s" % (result.returncode, result.stderr)
        time.sleep(0.2)
    raise Failure("%s never answered %s; last: %s" % (program, expected, last))


def stop(process, name):
    """SIGTERM by process id, then SIGKILL if it does not end in time; the exit status."""
    if process.poll() is None:
        os.kill(process.pid, signal.SIGTERM)
        try:
            process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            os.kill(process.pid, signal.SIGKILL)
            process.wait(timeout=10)
            return "%s did not end on SIGTERM" % name
    if process.returncode != 0:
        return "%s ended with status %d" % (name, process.returncode)
    return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--prefix", required=True)
    parser.add_argument("--consumer", required=True)
    parser.add_argument("--cxx", required=True)
    parser.add_argument("--sanitize", default="")
    for location in ("--bindir", "--pkgconfigdir", "--examplesdir", "--info-plist"):
        parser.add_argument(location, required=True)
    args = parser.parse_args()
    compiler_flags = ["-fsanitize=" + args.sanitize] if args.sanitize else []

    configurations, expected = expected_answer(args)
    processes = []
    problems = []
    with tempfile.TemporaryDirectory(prefix="kelto-consumer-") as work:
        try:
            source = shutil.copytree(args.consumer, os.path.join(work, "src"))
            programs = {"CMake": build_with_cmake(args, source, work, compiler_flags),
                        "pkg-config": build_with_pkg_config(args, source, work, compiler_flags)}

            port_dir = os.path.join(work, "ports")
            os.mkdir(port_dir, 0o700)
            environment = dict(os.environ, KELTO_PORT_DIR=port_dir)
            deadline = time.monotonic() + 60
            bindir = os.path.join(args.prefix, args.bindir)
            for path, configuration in configurations:
                driver = subprocess.Popen([os.path.join(bindir, "simdriver"), path],
                                          env=environment)
                processes.append(("simdriver " + os.path.basename(path), driver))
                wait_until_served(port_dir, configuration["PortName"], driver, deadline)
            # Through the link in bin/: the program must still find its bundle's Info.plist,
            # which the protocol version it answers comes from.
            coordinator = subprocess.Popen([os.path.join(bindir, "TabletDriver")],
                                           env=environment)
            processes.append(("TabletDriver", coordinator))
            wait_until_served(port_dir, COORDINATOR_PORT, coordinator, deadline)

            for build, program in programs.items():
                ask(program, environment, expected, deadline)
                print("built through %s: answered %s" % (build, json.dumps(expected)))
            # The installed command-line client, on the same coordinator.
            counted = json.loads(run([os.path.join(bindir, "tabletctl"), "--json", "count"],
                                     timeout=60, env=environment))
            if counted.get("tablets") != expected["tablets"]:
                raise Failure("tabletctl --json count answered %s" % json.dumps(counted))
            print("tabletctl: %s" % json.dumps(counted))
        except (Failure, subprocess.TimeoutExpired) as failure:
            problems.append(str(failure))
        finally:
            # The coordinator first, so that it does not see its drivers go.
            for name, process in reversed(processes):
                problem = stop(process, name)
                if problem:
                    problems.append(problem)
    for problem in problems:
        print("FAILED: " + problem, file=sys.stderr)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
