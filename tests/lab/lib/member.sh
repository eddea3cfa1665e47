# Member hosts: machines with this project installed, whose provider is "ad". Sourced inside the lab.
#
#   member_start NAME [LAYER]...   NAME.corp.test at an address of its own; LAYER as unpacked packages, on top
#   member_end NAME
#   probe NAME ARGUMENT...         calls one slot of the provider, without the library's pauses and retries
#   ctl NAME ARGUMENT...           the shipped nimauthctl
#   limits NAME KEY=SECONDS...     how long the provider waits; what is not named as by default
#   with_patience NAME             far longer than by default, where a busy machine must make no difference
#   with_clock NAME OFFSET COMMAND...   the same with the clock off, `+20m` or `-20m`
#
# krb5.conf and smb.conf are there for the oracles and the other tools only; the provider reads neither.

member_start() {
    local name=$1 number
    shift
    number=$(next_number)
    box_start "$name" "$name.corp.test" "10.99.$((1 + number / 200)).$((1 + number % 200))" "$@" /mnt/stage
    in_box "$name" bash -c 'rm -f /etc/nimbrel/nimauth/provider.conf; cat >/etc/nimbrel/nimauth/provider.conf' \
        <<<'provider = "ad"'
    in_box "$name" bash -c 'cat >/etc/nimbrel/nimauth/ad.conf' <<<'certificate_authority = "/mnt/lab/corp-ca.pem"'
    in_box "$name" bash -c 'cat >/etc/krb5.conf' <<'END'
[libdefaults]
    default_realm = CORP.TEST
    dns_lookup_realm = false
    dns_lookup_kdc = true
    rdns = false
    dns_canonicalize_hostname = false
    udp_preference_limit = 0
END
    in_box "$name" bash -c 'cat >/etc/samba/smb.conf' <<END
[global]
    security = ads
    realm = CORP.TEST
    workgroup = CORP
    netbios name = ${name^^}
    kerberos method = secrets only
    idmap config * : backend = tdb
    idmap config * : range = 100000-199999
END
}

member_end() { box_end "$1"; }

next_number() {  # unique in the whole lab, also among scenarios that run at the same time
    (
        flock 9
        local number
        number=$(($(cat /mnt/lab/number 2>/dev/null || echo 0) + 1))
        printf '%s\n' "$number" >/mnt/lab/number
        printf '%s\n' "$number"
    ) 9>/mnt/lab/number.lock
}

probe() { in_box "$1" /mnt/probe /usr/libexec/nimauth/libad.so "${@:2}"; }
ctl() { in_box "$1" nimauthctl "${@:2}"; }
limits() {
    in_box "$1" bash -c 'sed -i /_seconds/d "$0" && printf "%s\n" "$@" >>"$0"' /etc/nimbrel/nimauth/ad.conf "${@:2}"
}
with_patience() { limits "$1" controller_seconds=20 join_seconds=300 query_seconds=60; }
with_clock() { in_box "$1" faketime -f "$2" "${@:3}"; }
