#!/usr/bin/env bash
# verify_unit.sh <unit file> <manual page directory>
#
# `systemd-analyze verify --user` on one unit file: its syntax and keys, the program of
# ExecStart= present and executable, the pages of Documentation= found by man(1) in the given
# directory alone (MANPATH). systemd-analyze exits 0 on an unknown key or a bad value, which
# it only reports, so any message it prints rejects the unit too.
#
# A user manager needs a runtime directory; each run gets a new one of its own, so that the
# check neither needs nor touches a running user session.
set -uo pipefail
unit=$1
mandir=$2

runtime=$(mktemp -d)
trap 'rm -rf "$runtime"' EXIT
output=$(XDG_RUNTIME_DIR=$runtime MANPATH=$mandir timeout 60 \
    systemd-analyze verify --user "$unit" 2>&1)
status=$?
if [ "$status" -ne 0 ] || [ -n "$output" ]; then
    printf '%s\n' "$output"
    echo "verify_unit: rejected $unit (exit status $status)"
    exit 1
fi
echo "verify_unit: verified $unit"
