# Joining through the authentication proxy: the host never has a user's credentials, the proxy has a keytab of its own.

# The service's account, made and given its rights by the very commands that the how-to tells an administrator. Once for
# all scenarios; the keytab is its outcome.
service_account() {
    (
        flock 9
        [ ! -e /mnt/lab/apxd.keytab ] || exit 0
        sed -n '/^ *samba-tool user create apxd/,/^ *samba-tool domain exportkeytab/p' \
            /mnt/src/docs/how-to/proxy-join.md | in_box dc1 bash -euo pipefail -c 'cd /root; . /dev/stdin' >/dev/null
        in_box dc1 cat /root/apxd.keytab >/mnt/lab/apxd.keytab.new
        mv /mnt/lab/apxd.keytab.new /mnt/lab/apxd.keytab
    ) 9>/mnt/lab/apxd.lock
}

proxy_start() {  # $proxy at $proxy_address
    service_account
    proxy=proxy$(next_number)
    members+=("$proxy")
    member_start "$proxy"
    proxy_address=$(in_box "$proxy" ip -4 -o address show scope global | sed -n 's/.* inet \([0-9.]*\).*/\1/p' | head -n 1)
    in_box "$proxy" bash -c 'cat >/root/apxd.keytab' </mnt/lab/apxd.keytab
    in_box "$proxy" openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 \
        -subj "/CN=$proxy.corp.test" -keyout /root/key.pem -out /root/certificate.pem 2>/dev/null
    in_box "$proxy" bash -c 'cat >/etc/nimbrel/apxd.conf' <<END
certificate = /root/certificate.pem
key = /root/key.pem
allow = 10.99.0.0/16
domain = corp.test
back-end = ad
keytab = /root/apxd.keytab
principal = apxd
unit = Hosts
ledger = /root/ledger
$*
END
    proxy_run
}

proxy_run() {
    in_box "$proxy" bash -c 'apxd >>/root/apxd.log 2>&1 & echo $! >/root/apxd.pid'
    box_wait 20 in_box "$proxy" grep -q '^ready ' /root/apxd.log
}

proxy_log() { in_box "$proxy" cat /root/apxd.log; }

trust_the_proxy() {
    tool 0 proxy cert import --fetch "$proxy_address" --yes \
        "$(in_box "$proxy" openssl x509 -noout -fingerprint -sha1 -in /root/certificate.pem | cut -d= -f2)"
}

scenario_proxy_join_query_leave_by_the_tool() {
    proxy_start
    member
    tool 0 store set "Active Directory"
    trust_the_proxy
    tool 0 proxy domain "$proxy_address"
    output_has "domain: corp.test"
    local start=$EPOCHREALTIME
    tool 0 join --proxy "$proxy_address"
    echo "note: joined through the proxy in $(milliseconds_since "$start") ms"
    is_joined OU=Hosts
    tool 0 status --timeout 30
    output_has "proxy address: $proxy_address"
    output_has "trust state: 1 ("
    equals "passwords and secrets in the proxy's log" 0 "$(proxy_log | grep -ciE "secret|$secret" || true)"
    tool 0 leave
    is_not_joined
}

scenario_proxy_join_into_another_unit() {
    proxy_start
    member
    tool 0 store set "Active Directory"
    trust_the_proxy
    tool 5 join --proxy "$proxy_address" --ou Closed
    has_no_account
    tool 0 join --proxy "$proxy_address" --ou Hosts/Sub
    is_joined OU=Sub,OU=Hosts
}

scenario_proxy_leaves_an_account_that_exists_alone() {
    proxy_start
    member
    make_account "$node" OU=Hosts One-Time-Secret-3
    local before
    before=$(directory_search "(sAMAccountName=${node^^}\$)" '*')
    tool 0 store set "Active Directory"
    trust_the_proxy
    tool 3 join --proxy "$proxy_address"
    equals "the account" "$before" "$(directory_search "(sAMAccountName=${node^^}\$)" '*')"
    is_not_joined
}

scenario_proxy_hands_out_a_pre_staged_account() {
    proxy_start
    member
    make_account "$node" OU=Hosts One-Time-Secret-3
    in_box "$proxy" bash -c "echo 'pre-staged = $node' >>/etc/nimbrel/apxd.conf; kill -HUP \$(cat /root/apxd.pid)"
    box_wait 20 in_box "$proxy" grep -q '^reloaded ' /root/apxd.log
    tool 0 store set "Active Directory"
    trust_the_proxy
    tool 0 join --proxy "$proxy_address"
    is_joined OU=Hosts
}

# What the how-to delegates is enough for all that the service does, as the scenarios above show, and for nothing else.
scenario_proxy_account_may_do_nothing_to_users() {
    service_account
    member
    in_box "$node" bash -c 'cat >/root/apxd.keytab' </mnt/lab/apxd.keytab
    succeeds kinit -k -t /root/apxd.keytab apxd@CORP.TEST
    directory_change <<END
dn: CN=$node-user,OU=Hosts,DC=corp,DC=test
changetype: add
objectClass: user
sAMAccountName: $node-user
END
    refuses <<END
dn: CN=$node-other,OU=Hosts,DC=corp,DC=test
changetype: add
objectClass: user
sAMAccountName: $node-other
END
    refuses <<END
dn: CN=$node-user,OU=Hosts,DC=corp,DC=test
changetype: modify
replace: description
description: written
END
    refuses <<END
dn: CN=$node-user,OU=Hosts,DC=corp,DC=test
changetype: modify
replace: unicodePwd
unicodePwd:: $(quoted_password Another-Secret-2)
END
    directory_delete "(sAMAccountName=$node-user)"
}

refuses() {  # LDIF on standard input, with the ticket of the box
    capture in_box "$node" ldapmodify -Q -Y GSSAPI -N -H ldap://dc1.corp.test
    equals "LDAP result, insufficient access" 50 "$result"
}

scenario_proxy_answers_that_the_domain_cannot_be_reached() {
    proxy_start
    member
    tool 0 store set "Active Directory"
    trust_the_proxy
    refuse "$proxy" 10.99.0.2
    tool 9 join --proxy "$proxy_address"
    reachable "$proxy" 10.99.0.2
    is_not_joined
    has_no_account
}

scenario_proxy_back_end_keeps_its_contract() {
    member
    printf 'addent -password -p administrator@CORP.TEST -k 1 -e aes256-cts-hmac-sha1-96 -f\n%s\nwkt /root/administrator.keytab\n' \
        "$secret" | in_box "$node" ktutil >/dev/null
    succeeds /mnt/build/tests/contract/contract_proxy_back_end_ad
    output_has "[  PASSED  ] 10 tests."
}
