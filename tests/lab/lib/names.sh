# Name servers: what a member host is told of controllers, whether these run or not. Sourced inside the lab.
#
#   name_server_start ADDRESS DOMAIN:HOST:HOSTADDRESS[:PRIORITY[:WEIGHT]]...
#   name_server_stop ADDRESS
#   use_name_server NODE ADDRESS
#
# A controller's own name service would end with it; here the two fail one at a time. The controllers themselves ask
# their own, and the name server of the lab for the other forest.

site=Default-First-Site-Name

name_server_start() {
    local address=$1 entry domain host ip priority weight records=() service
    shift
    mkdir -p /mnt/lab/dns
    [ "$address" = 10.99.0.1 ] || ip address add "$address/16" dev switch
    for entry; do
        IFS=: read -r domain host ip priority weight <<<"$entry"
        records+=("--local=/$domain/" "--host-record=$host.$domain,$ip")
        for service in _ldap._tcp:389 "_ldap._tcp.$site._sites:389" _ldap._tcp.dc._msdcs:389 _ldap._tcp.pdc._msdcs:389 \
            "_ldap._tcp.$site._sites.dc._msdcs:389" _ldap._tcp.gc._msdcs:3268 _gc._tcp:3268 _kerberos._tcp:88 \
            _kerberos._udp:88 _kerberos._tcp.dc._msdcs:88 "_kerberos._tcp.$site._sites.dc._msdcs:88" \
            _kpasswd._tcp:464 _kpasswd._udp:464; do
            records+=("--srv-host=${service%:*}.$domain,$host.$domain,${service#*:},${priority:-0},${weight:-100}")
        done
    done
    # As for debugging: else it would give up rights that a lone mapped user has not got.
    dnsmasq --no-daemon --conf-file=/dev/null --user=root --group=root --no-resolv --no-hosts --pid-file= \
        --port=53 --listen-address="$address" --bind-interfaces --cache-size=0 --local=/test/ --local=/arpa/ \
        --log-queries --log-facility=- "${records[@]}" </dev/null >"/mnt/lab/dns/$address.log" 2>&1 &
    printf '%s\n' "$!" >"/mnt/lab/dns/$address.pid"
    box_wait 30 grep -q started "/mnt/lab/dns/$address.log" || { cat "/mnt/lab/dns/$address.log" >&2; return 1; }
}

name_server_stop() {
    kill -KILL "$(</mnt/lab/dns/"$1".pid)"
    wait "$(</mnt/lab/dns/"$1".pid)" 2>/dev/null || true
    [ "$1" = 10.99.0.1 ] || ip address delete "$1/16" dev switch
}

use_name_server() { in_box "$1" sed -i "s/^nameserver .*/nameserver $2/" /etc/resolv.conf; }
