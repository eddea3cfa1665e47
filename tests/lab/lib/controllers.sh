# The directory: a switch, a name server, and domain controllers from snapshots. Sourced inside the lab.
#
#   network_up                      the switch and the name server 10.99.0.1 (names.sh)
#   controllers_up                  dc1.corp.test (box dc1) and dc1.trust.test (box tdc1), joined by a forest trust
#   second_controller_up            dc2.corp.test (box dc2) besides; ended with box_end
#   controller_start BOX            starts the daemons of a controller that was killed, and waits until it answers
#
# Provisioning takes ten to twenty seconds and is kept as snapshots in /mnt/cache, named after all that goes into them.

declare -A controller_address=([dc1]=10.99.0.2 [tdc1]=10.99.0.3 [dc2]=10.99.0.4)
declare -A controller_name=([dc1]=dc1.corp.test [tdc1]=dc1.trust.test [dc2]=dc2.corp.test)

network_up() {
    ip link set lo up
    ip link add switch address 02:00:00:00:00:01 type bridge  # else it takes the lowest of its ports
    ip address add 10.99.0.1/16 dev switch
    ip link set switch up
    name_server_start 10.99.0.1 corp.test:dc1:10.99.0.2 trust.test:dc1:10.99.0.3
}

controllers_up() {
    snapshot_key=$(find_snapshot_key)
    [ -e "/mnt/cache/complete-$snapshot_key" ] || provision_all
    at_once controller_up dc1 tdc1
    in_box dc1 cat /var/lib/samba/private/tls/ca.pem >/mnt/lab/corp-ca.pem
}

second_controller_up() {
    snapshot_key=$(find_snapshot_key)
    controller_up dc2
}

find_snapshot_key() {
    {
        cat /mnt/src/tests/lab/lib/provision.py
        declare -p controller_address controller_name
        declare -f provision_all provision_first provision_second make_certificates snapshot
        samba --version
    } | sha256sum | cut -c1-16
}

at_once() {  # at_once FUNCTION ARGUMENT...: one call for each, all have to succeed
    local function=$1 job jobs=()
    shift
    for job; do
        "$function" "$job" &
        jobs+=($!)
    done
    for job in "${jobs[@]}"; do
        wait "$job" || return 1
    done
}

controller_up() {
    resolver=${controller_address[$1]} box_start "$1" "${controller_name[$1]}" "${controller_address[$1]}"
    in_box "$1" tar --extract --no-same-owner --file "/mnt/cache/$1-$snapshot_key.tar" --directory /
    controller_start "$1"
}

# ---------------------------------------------------------------- once

provision_all() {
    echo "lab: provisioning the controllers" >&2
    rm -f /mnt/cache/*
    at_once provision_first dc1 tdc1
    controller_start dc1
    provision_second
    local box
    for box in dc1 dc2; do
        kill_processes "$box"
        snapshot "$box"
    done
    for box in dc1 tdc1 dc2; do box_end "$box"; done
    touch "/mnt/cache/complete-$snapshot_key"
}

provision_first() {
    local box=$1 address=${controller_address[$1]} fqdn=${controller_name[$1]} forest
    forest=${fqdn#*.}
    resolver=$address box_start "$box" "$fqdn" "$address"
    logged "$box" /usr/bin/python3 /mnt/src/tests/lab/lib/provision.py "${forest%.test}" "$address" 10.99.0.1
    logged "$box" cp /var/lib/samba/private/krb5.conf /etc/krb5.conf
    logged "$box" bash -c "$(declare -f make_certificates); set -e; make_certificates $fqdn"
    [ "$box" = dc1 ] || snapshot "$box"
}

provision_second() {
    resolver=10.99.0.2 box_start dc2 dc2.corp.test 10.99.0.4
    # Without it NTLM is tried, which needs a daemon that an ordinary user's lab has not got.
    in_box dc1 cat /etc/krb5.conf | sed 's/DC1 = /DC2 = /' | in_box dc2 bash -c 'cat >/etc/krb5.conf'
    logged dc2 kinit -c /run/join.cc administrator@CORP.TEST <<<Lab-Secret-1
    logged dc2 /usr/bin/python3 /mnt/src/tests/lab/lib/provision.py second 10.99.0.4 10.99.0.1
    logged dc2 bash -c "$(declare -f make_certificates); set -e; make_certificates dc2.corp.test"
    # A controller adds these itself, but minutes after its first start.
    local box
    for box in dc1 dc2; do
        logged "$box" ldbmodify -H /var/lib/samba/private/sam.ldb <<END
dn: CN=DC2,OU=Domain Controllers,DC=corp,DC=test
changetype: modify
add: servicePrincipalName
servicePrincipalName: ldap/DC2
servicePrincipalName: ldap/dc2.corp.test
servicePrincipalName: ldap/dc2.corp.test/corp.test
servicePrincipalName: ldap/dc2.corp.test/CORP
END
    done
}

logged() {
    in_box "$@" >>"$boxes/$1/provision.log" 2>&1 && return 0
    tail -n 40 "$boxes/$1/provision.log" >&2
    return 1
}

snapshot() {
    in_box "$1" tar --create --sparse --directory / --file - var/lib/samba etc/samba/smb.conf etc/krb5.conf \
        >"/mnt/cache/$1-$snapshot_key.tar" 2>>"$boxes/$1/provision.log"  # tar tells of sockets that it leaves out
}

# An authority and the controller's certificate, where the controller looks for them. Without, it would make keys at
# each start, signed by nobody.
make_certificates() {  # make_certificates FQDN
    mkdir -p /var/lib/samba/private/tls
    cd /var/lib/samba/private/tls || return 1
    openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -days 3650 -subj "/CN=Lab authority of $1"
    openssl req -newkey rsa:2048 -nodes -keyout key.pem -out request.pem -subj "/CN=$1"
    openssl x509 -req -in request.pem -CA ca.pem -CAkey ca.key -CAcreateserial -out cert.pem -days 3650 \
        -extfile <(printf 'subjectAltName=DNS:%s,DNS:%s\n' "$1" "${1#*.}")
    chmod 600 key.pem
    rm ca.key request.pem
}

# ---------------------------------------------------------------- each time

controller_start() {
    local services=()
    # Serving files means changing identity, which a lone mapped user cannot. Log-ons, directory, names and RPC remain.
    [ -n "${lab_is_root-}" ] ||
        services=(--option="server services = rpc, nbt, wrepl, ldap, cldap, kdc, drepl, ntp_signd, kcc, dnsupdate, dns")
    in_box "$1" setsid samba --foreground --debug-stdout --no-process-group "${services[@]}" >>"$boxes/$1/log" 2>&1 </dev/null &
    disown
    box_wait 40 controller_answers "$1" || {
        echo "lab: $1 does not answer" >&2
        tail -n 40 "$boxes/$1/log" >&2
        return 1
    }
}

controller_answers() {
    local fqdn=${controller_name[$1]} domain=${controller_name[$1]#*.}
    in_box "$1" bash -c "host -W 1 -t SRV _ldap._tcp.dc._msdcs.$domain ${controller_address[$1]} &&
        : </dev/tcp/${controller_address[$1]}/88 &&
        kinit -c /run/ready administrator@${domain^^} <<<Lab-Secret-1 &&
        KRB5CCNAME=/run/ready ldapsearch -LLL -Y GSSAPI -N -H ldap://$fqdn -s base -b '' defaultNamingContext"
}
