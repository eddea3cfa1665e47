#!/usr/bin/env bash
# Looks at the built library as the loader does: what it must export, how it is named, what it needs. That it exports
# nothing else and is hardened is what check_hardening.sh looks at, as in every installed file.
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
# Address, size, type and name; undefined symbols and the version's own name are no exports.
exports=$(nm -D --defined-only "$library" | awk '$2 != "A" { print $NF }' | sed 's/@.*//')

[ -n "$exports" ] || { echo "FAILED: $library exports nothing"; exit 1; }

for symbol in _ZN7nimbrel14authentication20ActiveDirectoryStoreC1Ei _ZTVN7nimbrel14authentication20ActiveDirectoryStoreE \
    _ZTIN7nimbrel14authentication9ExceptionE _ZN7nimbrel14authentication20ThrowMappedExceptionEj \
    _ZN7nimbrel14authentication9SingletonINS0_26AuthenticationStoreFactoryEE9_instanceE; do
    expect_one "exports $(c++filt "$symbol")" "^$symbol\$" "$exports"
done

expect_one "is named libnimauth.so.0" '\(SONAME\).*\[libnimauth\.so\.0\]' "$dynamic"

needed=$(sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p' <<<"$dynamic")
allowed='^(libcrypto\.so\.3|liborbconfigstore\.so\.0|libhostmgmt\.so\.0|libsysnet\.so\.0'
allowed+='|libstdc\+\+\.so\.6|libgcc_s\.so\.1|libm\.so\.6|libc\.so\.6|ld-linux-x86-64\.so\.2)$'
expect_none "needs only libcrypto, the three platform libraries and the runtime" . "$(grep -vE "$allowed" <<<"$needed" || true)"
for library in libcrypto.so.3 liborbconfigstore.so.0 libhostmgmt.so.0 libsysnet.so.0; do
    expect_one "needs $library" "^${library//./\\.}\$" "$needed"
done

exit $((failures > 0))
