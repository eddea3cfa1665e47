#!/usr/bin/env bash
# Looks at the built library as the loader does: what it exports, how it is named, hardened and linked.
#
#   check_library.sh LIBRARY
set -euo pipefail
export LC_ALL=C

library=$1
failures=0

expect_none() {  # expect_none FACT PATTERN LINES: no line matches
    local offending
    if offending=$(grep -E -- "$2" <<<"$3"); then
        printf 'FAILED: %s:\n%s\n' "$1" "$offending"
        failures=$((failures + 1))
    else
        printf 'ok: %s\n' "$1"
    fi
}

expect_one() {  # expect_one FACT PATTERN LINES: some line matches
    if grep -qE -- "$2" <<<"$3"; then
        printf 'ok: %s\n' "$1"
    else
        printf 'FAILED: %s: nothing matches %s\n' "$1" "$2"
        failures=$((failures + 1))
    fi
}

dynamic=$(readelf -dW "$library")
segments=$(readelf -lW "$library")
# Address, size, type and name; undefined symbols and the version's own name are no exports.
exports=$(nm -D --defined-only "$library" | awk '$2 != "A" { print $NF }' | sed 's/@.*//')
namespaces='(7nimbrel14authentication|19SystemConfiguration)'

[ -n "$exports" ] || { echo "FAILED: $library exports nothing"; exit 1; }

# Functions, tables, type information and thunks whose own name, not just an argument, lies in the namespaces.
foreign=$(grep -vE "^_Z(TV|TI|TS|TT|TC|GV|Tv0_n[0-9]+_)?N?K?$namespaces" <<<"$exports" | c++filt || true)
expect_none "every exported symbol lies in the two namespaces" . "$foreign"
for symbol in _ZN7nimbrel14authentication20ActiveDirectoryStoreC1Ei _ZTVN7nimbrel14authentication20ActiveDirectoryStoreE \
    _ZTIN7nimbrel14authentication9ExceptionE _ZN7nimbrel14authentication20ThrowMappedExceptionEj \
    _ZN7nimbrel14authentication9SingletonINS0_26AuthenticationStoreFactoryEE9_instanceE; do
    expect_one "exports $(c++filt "$symbol")" "^$symbol\$" "$exports"
done

expect_one "is named libnimauth.so.0" '\(SONAME\).*\[libnimauth\.so\.0\]' "$dynamic"
expect_none "carries no search path" '\((RPATH|RUNPATH)\)' "$dynamic"
expect_one "stays loaded" '\(FLAGS_1\).*NODELETE' "$dynamic"
expect_one "binds at start" '\(FLAGS_1\).*NOW' "$dynamic"
expect_one "makes its relocations read-only" 'GNU_RELRO' "$segments"
expect_one "says what its stack needs" 'GNU_STACK' "$segments"
expect_none "needs no executable stack" 'GNU_STACK.* RWE ' "$segments"
expect_none "has no segment that is writable and executable" 'LOAD.* RWE ' "$segments"
expect_none "has no text relocations" '\(TEXTREL\)' "$dynamic"

needed=$(sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p' <<<"$dynamic")
allowed='^(libcrypto\.so\.3|liborbconfigstore\.so\.0|libhostmgmt\.so\.0|libsysnet\.so\.0'
allowed+='|libstdc\+\+\.so\.6|libgcc_s\.so\.1|libm\.so\.6|libc\.so\.6|ld-linux-x86-64\.so\.2)$'
expect_none "needs only libcrypto, the three platform libraries and the runtime" . "$(grep -vE "$allowed" <<<"$needed" || true)"
for library in libcrypto.so.3 liborbconfigstore.so.0 libhostmgmt.so.0 libsysnet.so.0; do
    expect_one "needs $library" "^${library//./\\.}\$" "$needed"
done

exit $((failures > 0))
