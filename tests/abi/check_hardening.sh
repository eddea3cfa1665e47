#!/usr/bin/env bash
# Looks at every ELF file of an installed tree as an attacker does: how it is linked, what its compiler was told, what
# it exports. A file is found, not named, so a new one is covered as soon as it is installed.
#
#   check_hardening.sh TREE
set -euo pipefail
export LC_ALL=C

tree=$1
failures=0
namespaces='(7nimbrel14authentication|19SystemConfiguration)'
special='(TV|TI|TS|TT|TC|GV|Tv0_n[0-9]+_)?N?K?'

# What each kind of file may export, as a pattern over whole mangled names; and which libraries stay loaded, because
# threads, handlers or other libraries may still be in them after the last dlclose.
#
# The tool's own `sleep` stands in for the library's, to show the pauses between attempts to join.
#     where                                  exports                                             stays
files='
usr/lib(/[^/]+)?/libnimauth\.so\.[0-9.]+     _Z'$special$namespaces'.*                           yes
usr/lib(/[^/]+)?/libhostmgmt\.so\.[0-9.]+    _Z'$special'8HostMgmt.*                             no
usr/lib(/[^/]+)?/liborbconfigstore\.so\.[0-9.]+ _Z'$special'(14OrbConfigStore|8HostMgmt3Lib17HostMgmtException).* no
usr/lib(/[^/]+)?/libsysnet\.so\.[0-9.]+      _Z'$special'(6SysNet|8HostMgmt3Lib17HostMgmtException).* no
usr/lib(/[^/]+)?/libnss_[a-z]+\.so\.2        _nss_[a-z]+_(get|set|end)[a-z]+(_r)?                yes
usr/lib(/[^/]+)?/security/pam_[a-z_]+\.so    pam_sm_[a-z_]+                                      yes
usr/libexec/nimauth/libapx[a-z]+\.so         APXProxyClientOperations                            yes
usr/libexec/nimauth/lib[a-z]+\.so            ActiveDirectoryClient(Metadata|Operations)          yes
usr/libexec/nimauth/[a-z-]+                  -                                                   no
usr/s?bin/apxd                               -                                                   no
usr/bin/nimauthctl                           sleep                                               no
'

# Functions that have a checked variant and are called as they are, in any file: the compiler knows that the length
# fits, or cannot know the size of the object. What formats or copies texts is always checked where the headers are asked to,
# so that it is allowed by name only: the library lets a host stand in for `syslog`, and the standard library takes the
# address of `vsnprintf` to write numbers.
plain='fread|gethostname|getcwd|memcpy|memmove|memset|poll|ppoll|pread|read|readlink|realpath|recv|recvfrom'
plain_in_libnimauth='syslog'
plain_in_nimauthctl='vsnprintf'

report() {  # report FILE FACT DETAIL
    printf 'FAILED: %s: %s%s\n' "$1" "$2" "${3:+: $3}"
    failures=$((failures + 1))
}

must() {  # must FILE FACT PATTERN LINES: some line matches
    grep -qE -- "$3" <<<"$4" || report "$1" "$2"
}

must_not() {  # must_not FILE FACT PATTERN LINES: no line matches
    local offending
    ! offending=$(grep -E -- "$3" <<<"$4") || report "$1" "$2" "$(paste -sd ' ' <<<"$offending")"
}

# The checked variants that this machine's C library has: __snprintf_chk stands for snprintf.
checked_functions() {
    nm -D --defined-only "$1" | sed -nE 's/.* __([a-z0-9_]+)_chk(@.*)?$/\1/p' | sort -u
}

check_link() {  # check_link NAME FILE
    local dynamic segments
    dynamic=$(readelf -dW "$2")
    segments=$(readelf -lW "$2")
    must "$1" "is position-independent" '^Elf file type is DYN' "$segments"
    if grep -q '^ *INTERP ' <<<"$segments"; then
        must "$1" "is linked as a position-independent program" '\(FLAGS_1\).*PIE' "$dynamic"
    fi
    must "$1" "binds at start" '\(FLAGS_1\).*NOW' "$dynamic"
    must "$1" "makes its relocations read-only" 'GNU_RELRO' "$segments"
    must "$1" "says what its stack needs" 'GNU_STACK' "$segments"
    must_not "$1" "needs no executable stack" 'GNU_STACK.* RWE ' "$segments"
    must_not "$1" "has no segment that is writable and executable" 'LOAD.* RWE ' "$segments"
    must_not "$1" "has no text relocations" '\(TEXTREL\)|\(FLAGS\).*TEXTREL' "$dynamic"
    must_not "$1" "carries no search path" '\((RPATH|RUNPATH)\)' "$dynamic"
}

check_compilation() {  # check_compilation NAME FILE
    local imports allowed=$plain unchecked
    imports=$(nm -D --undefined-only "$2" | awk '{ print $NF }' | sed 's/@.*//' | sort -u)
    must "$1" "has a stack protector" '^__stack_chk_fail$' "$imports"
    case $1 in
        */libnimauth.so.*) allowed+="|$plain_in_libnimauth" ;;
        */nimauthctl) allowed+="|$plain_in_nimauthctl" ;;
    esac
    unchecked=$(comm -12 <(printf '%s\n' "$imports") <(printf '%s\n' "$checked") | grep -vxE "$allowed" || true)
    must_not "$1" "calls the checked variants" . "$unchecked"
}

check_exports() {  # check_exports NAME FILE
    local where pattern stays exports
    # What a program has a copy of keeps the version of the library it comes from; what has type A is a version's name.
    exports=$(nm -D --defined-only "$2" |
        awk '$2 != "A" && $NF !~ /@(GLIBC|GLIBCXX|CXXABI|GCC)_/ { print $NF }' | sed 's/@.*//')
    while read -r where pattern stays; do
        if [ -z "$where" ] || ! grep -qxE -- "$where" <<<"$1"; then continue; fi
        must_not "$1" "exports nothing but $pattern" . "$(grep -vxE -- "$pattern" <<<"$exports" || true)"
        [ "$pattern" = - ] || must "$1" "exports $pattern" . "$exports"
        [ "$stays" = no ] || must "$1" "stays loaded" '\(FLAGS_1\).*NODELETE' "$(readelf -dW "$2")"
        return
    done <<<"$files"
    report "$1" "is a kind of file that this check knows"
}

libc=$(ldd "$(command -v bash)" | sed -nE 's/.*libc\.so\.6 => ([^ ]+) .*/\1/p')
checked=$(checked_functions "$libc")
if [ "$(grep -cxE 'snprintf|strcpy|memcpy|read' <<<"$checked")" != 4 ]; then
    echo "FAILED: $libc has no checked functions"
    exit 1
fi

count=0
while IFS= read -r -d '' file; do
    [ "$(head -c 4 "$file" | tr -d '\0')" = $'\x7fELF' ] || continue
    name=${file#"$tree/"}
    check_link "$name" "$file"
    check_compilation "$name" "$file"
    check_exports "$name" "$file"
    count=$((count + 1))
done < <(find "$tree" -type f -print0)
[ "$count" -gt 0 ] || { echo "FAILED: $tree holds no ELF file"; exit 1; }

must_not "$tree" "has nothing that others may write or that lends its owner's rights" . \
    "$(find "$tree" ! -type l -perm /7022)"
echo "$count files, $failures failures"
exit $((failures > 0))
