#!/usr/bin/env bash
# check_hardening.sh refuses each kind of soft file for its own reason, and takes the same file when it is hard;
# check_flags.sh, a build tree that lacks a flag.
#
#   check_hardening_test.sh CHECKS COMPILER WORK
set -euo pipefail
checks=$1 compiler=$2 work=$3
failures=0
rm -rf "$work"
mkdir -p "$work"

cat >"$work/program.c" <<'END'
#include <stdio.h>
#include <string.h>
int main(int count, char** words) {
    char text[64];
    snprintf(text, sizeof text, "%d", count);
    strcpy(text + 4, words[0]);
    return (int)strlen(text);
}
END
cat >"$work/library.c" <<'END'
#include <stdio.h>
#include <string.h>
#define EXPORTED __attribute__((visibility("default")))
#ifndef NOTHING
EXPORTED
#endif
int ActiveDirectoryClientMetadata(int count, char** words);
int ActiveDirectoryClientMetadata(int count, char** words) {
    char text[64];
    snprintf(text, sizeof text, "%d", count);
    strcpy(text + 4, words[0]);
    return (int)strlen(text);
}
#ifdef ALSO
EXPORTED int also = 1;
#endif
END
cat >"$work/both.c" <<'END'
__attribute__((section(".both,\"awx\",@progbits#"))) int both = 1;
END

hard=(-O2 -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -Wl,-z,relro,-z,now,-z,noexecstack)
hard_program=("${hard[@]}" -fPIE -pie)
hard_library=("${hard[@]}" -fPIC -shared -fvisibility=hidden)
stays=-Wl,-z,nodelete

# holds NAME PLACE SOURCE OPTION...: a tree with this one file
holds() {
    mkdir -p "$(dirname "$work/$1/$2")"
    "$compiler" "$work/$3" -o "$work/$1/$2" "${@:4}" 2>"$work/$1/log" || { cat "$work/$1/log"; exit 1; }
    rm "$work/$1/log"
    chmod 755 "$work/$1/$2"
}

# finds NAME FACTS [CHECK ARGUMENT...]: the check tells these of the tree, joined by ";", and fails; nothing, and it
# succeeds, if they are empty
finds() {
    local output facts status=0 command=("$checks/check_hardening.sh" "$work/$1")
    [ $# = 2 ] || command=("${@:3}")
    output=$("${command[@]}" 2>&1) || status=$?
    facts=$(sed -nE 's/^FAILED: ([^:]*: )?([^:]*).*/\2/p' <<<"$output" | paste -sd ';')
    if [ "$facts" = "$2" ] && [ $((status > 0)) = $((${#2} > 0)) ]; then
        echo "ok: $1"
    else
        printf 'FAILED: %s (status %s): finds "%s", not "%s"\n%s\n' "$1" "$status" "$facts" "$2" "$output"
        failures=$((failures + 1))
    fi
}

program() {  # program NAME FACTS OPTION...: a program that is hard but for these options
    holds "$1" usr/sbin/apxd program.c "${hard_program[@]}" "${@:3}"
    finds "$1" "$2"
}

library() {  # library NAME FACTS PLACE OPTION...
    holds "$1" "$3" library.c "${hard_library[@]}" "${@:4}"
    finds "$1" "$2"
}

provider=usr/libexec/nimauth/libsome.so
program hard_program ''
library hard_library '' "$provider" $stays

program fixed_address 'is position-independent;is linked as a position-independent program' -no-pie -fno-pie
program lazy 'binds at start' -Wl,-z,lazy
program writable_relocations 'makes its relocations read-only' -Wl,-z,norelro
program executable_stack 'needs no executable stack' -Wl,-z,execstack
program run_path 'carries no search path' -Wl,-rpath,/tmp
program old_run_path 'carries no search path' -Wl,-rpath,/tmp,--disable-new-dtags
program no_stack_protector 'has a stack protector' -fno-stack-protector
program not_fortified 'calls the checked variants' -U_FORTIFY_SOURCE
program exporting 'exports nothing but -' -Wl,--export-dynamic-symbol=main
program writable_and_executable 'has no segment that is writable and executable' "$work/both.c"

library dlclosable 'stays loaded' "$provider"
library text_relocations 'has no text relocations' "$provider" $stays -fno-pic -mcmodel=large -Wl,-z,notext
library talkative 'exports nothing but ActiveDirectoryClient(Metadata|Operations)' "$provider" $stays -DALSO
library mute 'exports ActiveDirectoryClient(Metadata|Operations)' "$provider" $stays -DNOTHING
library unknown 'is a kind of file that this check knows' usr/lib/libsome.so.1 $stays

program group_writable ''
chmod g+w "$work/group_writable/usr/sbin/apxd"
finds group_writable 'has nothing that others may write or that lends its owner'"'"'s rights'
program set_user_id ''
chmod u+s "$work/set_user_id/usr/sbin/apxd"
finds set_user_id 'has nothing that others may write or that lends its owner'"'"'s rights'
mkdir "$work/empty"
echo text >"$work/empty/file"
finds empty "$work/empty holds no ELF file"

# flags NAME FACTS COMPILER-OPTIONS LINK-FLAGS: a build tree with one source and one program, made with these
flags() {
    mkdir "$work/$1"
    printf '[{ "directory": "/", "command": "g++ %s -o src/one.o -c /one/src/one.cc", "file": "/one/src/one.cc" }]\n' \
        "$3" | sed 's/, "/,\n"/g' >"$work/$1/compile_commands.json"
    printf '# one\nbuild src/%s: CXX_%s_LINKER__one_Debug src/one.o\n  LINK_FLAGS = %s\n\n' \
        one EXECUTABLE "$4" one.so SHARED_LIBRARY "$4" two.so MODULE_LIBRARY "$4" >"$work/$1/build.ninja"
    finds "$1" "$2" "$checks/check_flags.sh" /one "$work/$1"
}

all='-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -Og -g1 -fPIC -fvisibility=hidden -fstack-protector-strong'
links='-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -fPIE -pie'
flags flags_all '' "$all" "$links"
flags flags_not_optimised 'compiled without -O(g|1|2|3|s)' "${all/-Og/-O0}" "$links"
flags flags_not_fortified 'compiled without -D_FORTIFY_SOURCE=[23]' "${all/-D_FORTIFY_SOURCE=2/}" "$links"
flags flags_no_stack_protector 'compiled without -fstack-protector-strong' "${all/-fstack-protector-strong/}" "$links"
flags flags_not_pic 'compiled without -f(PIC|PIE)' "${all/-fPIC/}" "$links"
flags flags_visible 'compiled without -fvisibility=hidden' "${all/-fvisibility=hidden/}" "$links"
flags flags_lazy 'linked without -Wl,-z,now' "$all" "${links/-Wl,-z,now/}"
flags flags_no_relro 'linked without -Wl,-z,relro' "$all" "${links/-Wl,-z,relro/}"
flags flags_stack 'linked without -Wl,-z,noexecstack' "$all" "${links/-Wl,-z,noexecstack/}"
flags flags_no_pie 'linked without -pie' "$all" "${links/-pie/}"

exit $((failures > 0))
