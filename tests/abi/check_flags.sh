#!/usr/bin/env bash
# Whether a build tree compiles every source of the product, and links every installed kind of file, with the flags that
# harden it. What the built files of one preset show, this shows of another without building it.
#
#   check_flags.sh SOURCE BUILD
#   check_flags.sh SOURCE BUILD PRESET    configures BUILD by this preset first
set -euo pipefail
export LC_ALL=C

source=$1 build=$2 preset=${3-}
failures=0

if [ -n "$preset" ]; then
    rm -rf "$build"
    cmake -S "$source" -B "$build" --preset "$preset" >"$build.log" 2>&1 || { cat "$build.log"; exit 1; }
fi

lacking() {  # lacking FLAG LINES: those without it, shortened to what they make
    grep -vE -- " $1( |\"|\$)" <<<"$2" | sed -E 's/.* -o ([^ ]+) .*/\1/' || true
}

expect_all() {  # expect_all WHAT FLAG LINES
    local without
    without=$(lacking "$2" "$3")
    [ -n "$without" ] || return 0
    printf 'FAILED: %s without %s:\n%s\n' "$1" "$2" "$without"
    failures=$((failures + 1))
}

sources="-c $source/(src|platform|plugins|services|tools)/"
# A test's own copy of a source is none of it.
compiled=$(grep -E "\"command\": .* $sources" "$build/compile_commands.json" | grep -v -- ' -o tests/' || true)
for flag in -fstack-protector-strong -D_FORTIFY_SOURCE=[23] '-O(g|1|2|3|s)' '-f(PIC|PIE)' -fvisibility=hidden; do
    expect_all "compiled" "$flag" "$compiled"
done

# In build.ninja a link is a paragraph: what it makes, and further down its flags.
linked=$(awk -v RS= '/^build [^\n]*_(SHARED_LIBRARY|MODULE_LIBRARY|EXECUTABLE)_LINKER__/ ||
        /\nbuild [^\n]*_(SHARED_LIBRARY|MODULE_LIBRARY|EXECUTABLE)_LINKER__/ {
        made = kind = flags = ""
        count = split($0, lines, "\n")
        for (i = 1; i <= count; ++i) {
            if (lines[i] ~ /^build /) {
                split(lines[i], words, " ")
                made = words[2]
                sub(/:$/, "", made)
                kind = words[3]
            }
            if (lines[i] ~ /^ *LINK_FLAGS = /) flags = substr(lines[i], index(lines[i], "=") + 1)
        }
        print kind " -o " made " " flags
    }' "$build/build.ninja" | grep -E ' -o (src|platform|plugins|services|tools)/' || true)
for flag in -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack; do
    expect_all "linked" "$flag" "$linked"
done
expect_all "linked" -pie "$(grep _EXECUTABLE_ <<<"$linked" || true)"

# Every library, plug-in and program that the install rules name is among them.
printf '%s sources, %s links\n' "$(grep -c . <<<"$compiled")" "$(grep -c . <<<"$linked")"
for kind in _SHARED_LIBRARY_ _MODULE_LIBRARY_ _EXECUTABLE_; do
    grep -q "$kind" <<<"$linked" || { echo "FAILED: no $kind in $build/build.ninja"; failures=$((failures + 1)); }
done
exit $((failures > 0))
