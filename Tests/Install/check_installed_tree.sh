#!/usr/bin/env bash
# check_installed_tree.sh: the trees install.stage made (StageInstall.cmake), as a packager
# and a user find them. Every check runs; each failure is one line "FAIL: ..."; the exit
# status is 1 when any failed.
#
#   prefix   everything, a plain prefix
#   destdir  everything, DESTDIR staged for /opt/kelto (files name /opt/kelto, lie under DESTDIR)
#   odd      coordinator and tools, a prefix with a space, '%', '$' and '&'
#
# The layout comes from the environment, as the build was configured (relative to the
# prefix): KEL_APPDIR KEL_BINDIR KEL_INCLUDEDIR KEL_PKGCONFIGDIR KEL_UNITDIR KEL_AGENTDIR
# KEL_EXAMPLESDIR KEL_MANDIR; and KEL_STAGE KEL_SOURCE KEL_BINARY KEL_VERSION.
#
# The manual pages are written by hand (docs/man/); the checks at the end keep them from
# drifting from what the programs' --help says when an option, a command or a key changes.
# No pipefail: `grep -q` ends a pipe early on purpose, which would count as its writer failing.
set -u
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
expect_eq() { [ "$1" = "$2" ] || fail "$3: '$1', expected '$2'"; }

# The value at a key path of a property list ("KeepAlive.SuccessfulExit", "ProgramArguments"
# as its items a line each); empty when missing.
plist() {
    python3 - "$1" "$2" <<'EOF'
import plistlib, sys
try:
    value = plistlib.load(open(sys.argv[1], "rb"))
    for key in sys.argv[2].split("."):
        value = value[key]
except Exception:
    sys.exit(0)
if isinstance(value, bool):
    print("true" if value else "false")
elif isinstance(value, list):
    print("\n".join(map(str, value)))
else:
    print(value)
EOF
}

# A key of a systemd unit's section.
unit_value() { # file section key
    awk -v section="[$2]" -v key="$3" '
        /^\[/ { inside = ($0 == section) }
        inside && index($0, key "=") == 1 { print substr($0, length(key) + 2) }' "$1"
}

# ExecStart's program as systemd reads it: one double-quoted word, "%%" standing for "%".
unit_program() { local word=${1#\"}; word=${word%\"}; printf '%s' "${word//%%/%}"; }

check_tree() { # name root prefix
    local name=$1 root=$2 prefix=$3
    local disk=$root$prefix
    local program=$prefix/$KEL_APPDIR/TabletDriver.app/Contents/MacOS/TabletDriver
    local on_disk=$root$program
    [ -x "$on_disk" ] || fail "$name: $on_disk is not an executable"
    local info=$disk/$KEL_APPDIR/TabletDriver.app/Contents/Info.plist
    expect_eq "$(plist "$info" CFBundleExecutable)" TabletDriver "$name: CFBundleExecutable"
    expect_eq "$(plist "$info" CFBundleIdentifier)" com.kelto.TabletDriver \
        "$name: CFBundleIdentifier"

    # Relative, so that it holds in the DESTDIR tree too; it resolves to the bundle's program,
    # whose own path is what the program finds its Info.plist from.
    local link=$disk/$KEL_BINDIR/TabletDriver
    [ -L "$link" ] || fail "$name: $link is not a link"
    case $(readlink "$link") in /*) fail "$name: $link is absolute" ;; esac
    expect_eq "$(readlink -f "$link")" "$(readlink -f "$on_disk")" "$name: the link's target"

    # The session files name the program under the prefix, never under DESTDIR.
    local unit=$disk/$KEL_UNITDIR/kelto-coordinator.service
    expect_eq "$(unit_program "$(unit_value "$unit" Service ExecStart)")" "$program" \
        "$name: ExecStart"
    expect_eq "$(unit_value "$unit" Service Restart)" on-failure "$name: Restart"
    expect_eq "$(unit_value "$unit" Install WantedBy)" default.target "$name: WantedBy"
    local agent=$disk/$KEL_AGENTDIR/com.kelto.TabletDriver.plist
    expect_eq "$(plist "$agent" Label)" com.kelto.TabletDriver "$name: agent Label"
    expect_eq "$(plist "$agent" ProgramArguments)" "$program" "$name: agent ProgramArguments"
    expect_eq "$(plist "$agent" RunAtLoad)" true "$name: agent RunAtLoad"
    # Kept alive as the unit is restarted: only when it ends with a failure.
    expect_eq "$(plist "$agent" KeepAlive.SuccessfulExit)" false "$name: agent KeepAlive"

    # install_manifest.txt is what packagers and `xargs rm` go by: the files written at
    # install time (the link, the unit, the agent) are in it like the others, and nothing else.
    local listed installed
    listed=$(grep -v '^$' "$KEL_STAGE/$name.manifest" | sed "s|^|$root|" | sort)
    installed=$(find "$disk" \( -type f -o -type l \) | sort)
    [ "$listed" = "$installed" ] ||
        fail "$name: manifest and files differ: $(diff <(echo "$listed") <(echo "$installed") | grep '^[<>]' | head -3 | tr '\n' ' ')"
}

check_tree prefix "" "$KEL_STAGE/prefix"
check_tree destdir "$KEL_STAGE/destdir" /opt/kelto
check_tree odd "" "$KEL_STAGE/odd 100%\$& x"

# A path of the build machine in an installed text file breaks the package elsewhere.
# Executables and archives are left out: their debug information names the sources on purpose.
text_files=0
while IFS= read -r -d '' file; do
    [ "$(tr -d '\000' <"$file" | wc -c)" = "$(wc -c <"$file")" ] || continue
    text_files=$((text_files + 1))
    grep -q -F -e "$KEL_SOURCE" -e "$KEL_BINARY" "$file" && fail "$file names the source or build tree"
done < <(find "$KEL_STAGE/destdir" -type f -print0)
[ "$text_files" -gt 10 ] || fail "only $text_files text files in the DESTDIR tree"

# Every header the installed ones include by their project path is installed too.
include=$KEL_STAGE/prefix/$KEL_INCLUDEDIR
[ -f "$include/Client/CKeltoClient.h" ] || fail "Client/CKeltoClient.h is not installed"
while IFS=: read -r header included; do
    [ -f "$include/$included" ] || fail "${header#"$include/"} includes $included, not installed"
done < <(grep -r -o -P '^\s*#\s*include\s*"\K[^"]+' "$include")

# The package's module finds the prefix from its own place, in both full trees.
for tree in "$KEL_STAGE/prefix" "$KEL_STAGE/destdir/opt/kelto"; do
    config() { PKG_CONFIG_PATH=$tree/$KEL_PKGCONFIGDIR pkg-config "$@" kelto-client; }
    [ -f "$(config --variable=includedir)/Client/CKeltoClient.h" ] || fail "$tree: includedir"
    [ -f "$(config --variable=libdir)/libkelto-client.a" ] || fail "$tree: libdir"
    expect_eq "$(config --modversion)" "$KEL_VERSION" "$tree: pkg-config version"
    config --cflags --libs | grep -q -- -lkelto-client || fail "$tree: no -lkelto-client"
done

# Every example configuration is installed, and the installed driver accepts each.
examples=$KEL_STAGE/prefix/$KEL_EXAMPLESDIR
expect_eq "$(ls "$examples")" "$(cd "$KEL_SOURCE/Tools/SimulatedDriver/examples" && ls ./*.json | sed 's|^\./||')" \
    "installed examples"
for example in "$examples"/*; do
    "$KEL_STAGE/prefix/$KEL_BINDIR/simdriver" --check "$example" >/dev/null 2>&1 ||
        fail "simdriver --check $example"
done

# The manual pages: groff reads each without a warning, with the sections a page has.
bin=$KEL_STAGE/prefix/$KEL_BINDIR
man=$KEL_STAGE/prefix/$KEL_MANDIR/man1
plain() { sed -E 's/\\f[BIRP]//g; s/\\-/-/g; s/\\\(aq/'"'"'/g; s/\\\(dq/"/g; s/\\&//g' "$1"; }
section() { # page "NAME": the plain text of one .SH section
    plain "$1" | awk -v name="$2" '/^\.SH / { sub(/^\.SH "?/, ""); sub(/"$/, ""); inside = ($0 == name); next }
                                  inside'
}
options() { grep -o -E -- '--[a-z][a-z0-9-]*' | sort -u; }
for program in TabletDriver tabletctl simdriver; do
    page=$man/$program.1
    expect_eq "$(groff -man -ww -z -Tutf8 "$page" 2>&1)" "" "groff on $program.1"
    for name in NAME SYNOPSIS DESCRIPTION "EXIT STATUS"; do
        plain "$page" | grep -q -E "^\.SH \"?$name\"?$" || fail "$program.1 has no $name"
    done
    section "$page" NAME | grep -q -F "$program - " || fail "$program.1: NAME"
done

# simdriver's --help is a manual page in plain text: the page has each of its sections
# (a line in capitals), exactly its options, every configuration key, every request kind.
help=$("$bin/simdriver" --help)
while IFS= read -r heading; do
    plain "$man/simdriver.1" | grep -q -E "^\.SH \"?$heading\"?$" || fail "simdriver.1 has no $heading"
done < <(grep -E '^[A-Z][A-Z ]+$' <<<"$help")
expect_eq "$(plain "$man/simdriver.1" | options)" "$(options <<<"$help")" "simdriver.1 options"
configuration=$(section "$man/simdriver.1" CONFIGURATION)
help_configuration=$(awk '/^[A-Z][A-Z ]+$/ { inside = ($0 == "CONFIGURATION"); next } inside' <<<"$help")
words() { grep -c -w -F -- "$1" <<<"$configuration" >/dev/null || fail "simdriver.1 lacks $2 $1"; }
keys=$(grep -o -E '"[A-Z][A-Za-z]+"' <<<"$help_configuration" | tr -d '"' | sort -u)
[ "$(wc -l <<<"$keys")" -gt 10 ] || fail "too few configuration keys in simdriver --help"
for key in $keys; do words "$key" "configuration key"; done
kinds=$(grep -o -E 'one of:[^"]*' <<<"$help_configuration" | head -1 | cut -d: -f2 | grep -o -E '[a-z][a-z-]*' | sort -u)
[ "$(wc -l <<<"$kinds")" -gt 5 ] || fail "too few request kinds in simdriver --help"
for kind in $kinds; do words "$kind" "request"; done

# Every command and alias tabletctl's helps list has its own subsection (.SS) in the page,
# and the page names exactly the options the helps name.
subsections=$(plain "$man/tabletctl.1" | sed -n 's/^\.SS //p' | tr -d '"')
all_options=""
commands=0
walk() { # words leading to a command
    local help
    help=$("$bin/tabletctl" "$@" --help) || fail "tabletctl $* --help"
    all_options+=$(options <<<"$help")$'\n'
    # CLI11's "Subcommands:" block: "  name, alias      description"
    while read -r name aliases; do
        local path="${*:+$* }$name"
        commands=$((commands + 1))
        local title
        title=$(grep -E "^$path( |,|$)" <<<"$subsections" | head -1)
        if [ -z "$title" ]; then
            fail "tabletctl.1 has no subsection for $path"
        fi
        for alias in ${aliases//,/ }; do
            grep -q -w -F -- "$alias" <<<"$title" || fail "tabletctl.1: $path alias $alias"
        done
        walk "$@" "$name"
    done < <(awk '/^Subcommands:$/ { inside = 1; next }
                  inside && /^$/ { inside = 0 }
                  inside && match($0, /^  [a-z][a-z0-9-]*(, [a-z][a-z0-9-]*)*  +[^ ]/) {
                      entry = substr($0, 3, RLENGTH - 2); sub(/ +[^ ]$/, "", entry)
                      sub(/,/, " ", entry); gsub(/,/, "", entry); print entry }' <<<"$help")
}
walk
[ "$commands" -gt 10 ] || fail "only $commands tabletctl commands found"
expect_eq "$(plain "$man/tabletctl.1" | options)" "$(sort -u <<<"$all_options" | grep -v '^$')" \
    "tabletctl.1 options"

echo "check_installed_tree: $failures failed"
[ "$failures" -eq 0 ]
