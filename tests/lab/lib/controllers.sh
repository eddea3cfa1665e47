# The directory: a switch, a name server, and domain controllers from a snapshot. Sourced inside the lab.
#
#   network_up                      the switch and the name server 10.99.0.1 (names.sh)
#   controllers_up                  dc1.corp.test (box dc1) and dc1.trust.test (box tdc1), joined by a forest trust
#   controller_start BOX            starts the daemons of a controller that was killed, and waits until it answers
#
# Provisioning takes ten seconds and is kept as a snapshot in /mnt/cache, named after all that goes into it.

declare -A controller_address=([dc1]=10.99.0.2 [tdc1]=10.99.0.3)
declare -A controller_forest=([dc1]=corp [tdc1]=trust)

network_up() {
    ip link set lo up
    ip link add switch address 02:00:00:00:00:01 type bridge  # else it takes the lowest of its ports
    ip address add 10.99.0.1/16 dev switch
    ip link set switch up
    name_server_start 10.99.0.1 corp.test:dc1:10.99.0.2 trust.test:dc1:10.99.0.3
}

snapshot_key() {
    {
        cat /mnt/src/tests/lab/lib/provision.py
        declare -p controller_address controller_forest
        declare -f controller_provision make_certificates
        samba --version
    } | sha256sum | cut -c1-16
}

controllers_up() {
    local box key job jobs=()
    key=$(snapshot_key)
    for box in "${!controller_address[@]}"; do
        controller_boot "$box" "/mnt/cache/$box-$key.tar" &
        jobs+=($!)
    done
    for job in "${jobs[@]}"; do
        wait "$job" || return 1
    done
    in_box dc1 cat /var/lib/samba/private/tls/ca.pem >/mnt/lab/corp-ca.pem
}

controller_boot() {
    local box=$1 snapshot=$2 forest=${controller_forest[$1]}
    resolver=${controller_address[$box]} box_start "$box" "dc1.$forest.test" "${controller_address[$box]}"
    if [ ! -e "$snapshot" ]; then
        echo "lab: provisioning $forest.test" >&2
        controller_provision "$box" "$forest" "$snapshot"
    else
        in_box "$box" tar --extract --no-same-owner --file "$snapshot" --directory /
    fi
    controller_start "$box"
}

controller_provision() {
    local box=$1 forest=$2 snapshot=$3 old
    in_box "$box" python3 /mnt/src/tests/lab/lib/provision.py "$forest" "${controller_address[$box]}" 10.99.0.1 \
        >"$boxes/$box/provision.log" 2>&1 || { tail -n 40 "$boxes/$box/provision.log" >&2; return 1; }
    in_box "$box" cp /var/lib/samba/private/krb5.conf /etc/krb5.conf
    in_box "$box" bash -c "$(declare -f make_certificates); set -e; make_certificates dc1.$forest.test" \
        2>>"$boxes/$box/provision.log"
    for old in /mnt/cache/"$box"-*.tar; do rm -f "$old"; done
    in_box "$box" tar --create --directory / --file - var/lib/samba etc/samba/smb.conf etc/krb5.conf >"$snapshot.new"
    mv "$snapshot.new" "$snapshot"
}

# An authority and the controller's certificate, where the controller looks for them. Without, it would make keys for
# minutes of a small machine's time at each start, signed by nobody.
make_certificates() {  # make_certificates FQDN
    cd /var/lib/samba/private/tls
    openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -days 3650 -subj "/CN=Lab authority of ${1#*.}"
    openssl req -newkey rsa:2048 -nodes -keyout key.pem -out request.pem -subj "/CN=$1"
    openssl x509 -req -in request.pem -CA ca.pem -CAkey ca.key -CAcreateserial -out cert.pem -days 3650 \
        -extfile <(printf 'subjectAltName=DNS:%s\n' "$1")
    chmod 600 key.pem
    rm ca.key request.pem
}

controller_start() {
    local services=()
    # Serving files means changing identity, which a lone mapped user cannot. Log-ons, directory, names and RPC remain.
    [ -n "${lab_is_root-}" ] ||
        services=(--option="server services = rpc, nbt, wrepl, ldap, cldap, kdc, drepl, ntp_signd, kcc, dnsupdate, dns")
    in_box "$1" setsid samba --foreground --no-process-group "${services[@]}" >>"$boxes/$1/log" 2>&1 </dev/null &
    disown
    box_wait 40 controller_answers "$1" || {
        echo "lab: $1 does not answer" >&2
        tail -n 40 "$boxes/$1/log" >&2
        return 1
    }
}

controller_answers() {
    local domain=${controller_forest[$1]}.test
    in_box "$1" bash -c "host -W 1 -t SRV _ldap._tcp.dc._msdcs.$domain ${controller_address[$1]} &&
        printf Lab-Secret-1 | kinit -c /run/ready administrator@${domain^^} &&
        KRB5CCNAME=/run/ready ldapsearch -LLL -Y GSSAPI -N -H ldap://dc1.$domain -s base -b '' defaultNamingContext"
}
