# Joins and leaves that go as they should, seen from the host and from the directory.

scenario_join_query_leave_by_the_tool() {
    member
    tool 0 store set "Active Directory"
    tool 0 join corp.test -U administrator --password-stdin <<<"$secret"
    is_joined
    tool 0 status --timeout 30
    output_has "trust state: 1 ("
    output_has "trust.test"
    output_has "CN=${node^^},CN=Computers,DC=corp,DC=test"
    tool 0 leave -U administrator --password-stdin <<<"$secret"
    is_not_joined
    has_no_account
    tool 0 status
    output_has "trust state: 7"
}

scenario_join_into_a_unit_by_the_tool() {
    member
    tool 0 store set "Active Directory"
    tool 0 join corp.test/Hosts/Sub -U joiner --password-stdin <<<"$secret"
    is_joined OU=Sub,OU=Hosts
}

scenario_join_into_a_unit_by_its_name() {
    member
    join_gives 0 corp.test administrator OU=Sub,OU=Hosts,DC=corp,DC=test
    is_joined OU=Sub,OU=Hosts
    leave_gives 0 administrator
    is_not_joined
    has_no_account
}

scenario_join_with_delegated_rights() {
    member
    join_gives 0 corp.test joiner Hosts
    is_joined OU=Hosts
    leave_gives 0 joiner
    is_not_joined
    has_no_account
}

scenario_join_describes_the_host_in_the_directory() {
    member
    join_gives 0 corp.test administrator
    local this="(sAMAccountName=${node^^}\$)"
    equals "DNS name" "$node.corp.test" "$(directory_value "$this" dNSHostName)"
    equals "encryption types" 24 "$(directory_value "$this" msDS-SupportedEncryptionTypes)"
    equals "kind of account" 4096 "$(directory_value "$this" userAccountControl)"
    equals "service principals" \
        "host/$node host/$node.corp.test restrictedkrbhost/$node restrictedkrbhost/$node.corp.test" \
        "$(directory_search "$this" servicePrincipalName | sed -n 's/^servicePrincipalName: //p' | tr '[:upper:]' '[:lower:]' |
            sort | paste -sd' ')"
    equals "samba-tool computer show" "$node.corp.test" \
        "$(in_box dc1 samba-tool computer show "${node^^}" --attributes dNSHostName | sed -n 's/^dNSHostName: //p')"
    equals "mode of the keytab" 600 "$(in_box "$node" stat -c %a /etc/krb5.keytab)"
}

scenario_leave_without_credentials_forgets_and_keeps_the_account() {
    member
    join_gives 0 corp.test administrator
    leave_gives 0
    is_not_joined
    equals "account in the directory" "CN=${node^^},CN=Computers,DC=corp,DC=test" "$(account_of "$node")"
    leave_gives 2692
    join_gives 0 corp.test administrator
    is_joined
}

scenario_join_takes_over_an_account_that_the_user_may_write() {
    member
    join_gives 0 corp.test joiner Hosts
    local before
    before=$(directory_value "(sAMAccountName=${node^^}\$)" objectSid)
    leave_gives 0
    join_gives 0 corp.test joiner Hosts
    is_joined OU=Hosts
    equals "identity of the account" "$before" "$(directory_value "(sAMAccountName=${node^^}\$)" objectSid)"
}

scenario_join_leaves_the_account_of_another_owner_alone() {
    member
    make_account "$node" OU=Closed One-Time-Secret-3
    local before
    before=$(directory_search "(sAMAccountName=${node^^}\$)" '*')
    join_gives 5 corp.test joiner Hosts
    is_not_joined
    equals "the account" "$before" "$(directory_search "(sAMAccountName=${node^^}\$)" '*')"
}

scenario_join_with_a_one_time_secret() {
    member
    make_account "$node" OU=Hosts One-Time-Secret-3
    join_account_gives 1326 corp.test "${node^^}\$" wrong
    is_not_joined
    join_account_gives 0 corp.test "${node^^}\$" One-Time-Secret-3
    is_joined OU=Hosts
    join_account_gives 2691 corp.test "${node^^}\$" One-Time-Secret-3
    trust_state_is "$trust_healthy"
}

scenario_a_joined_host_stays_joined() {
    member
    join_gives 0 corp.test administrator
    local before
    before=$(in_box "$node" sha256sum /etc/krb5.keytab)
    join_gives 2691 corp.test administrator
    join_gives 2691 trust.test administrator
    equals "keytab" "$before" "$(in_box "$node" sha256sum /etc/krb5.keytab)"
    is_joined
}

# What is wrong, and the status that says so. Nothing is left behind, on either side.
scenario_join_refusals() {
    member
    local status domain user unit password
    while read -r status domain user unit password; do
        [ "$unit" != - ] || unit=
        join_gives "$status" "$domain" "$user" "$unit" "$password"
        is_not_joined
        has_no_account
    done <<END
1326 corp.test administrator - Wrong-Secret-9
1326 corp.test nobody-at-all - $secret
1331 corp.test disabled - $secret
1793 corp.test expired - $secret
1909 corp.test locked - $secret
1907 corp.test mustchange - $secret
5 corp.test plain Hosts $secret
5 corp.test plain - $secret
5 corp.test joiner Closed $secret
2 corp.test administrator Hosts/Nowhere $secret
2 corp.test administrator OU=Nowhere,DC=corp,DC=test $secret
1355 nowhere.test administrator - $secret
END
}

scenario_join_refuses_a_long_host_name() {
    member
    in_box "$node" hostname sixteen-letters0
    join_gives 1210 corp.test administrator
    is_not_joined
    has_no_account sixteen-letters0
    has_no_account sixteen-letters
}

scenario_secrets_are_in_no_process_list_file_or_log() {
    member
    in_box "$node" strace -f -qq -s 4096 -o /tmp/trace -e trace=execve,write,sendto,sendmsg /mnt/probe \
        /usr/libexec/nimauth/libad.so join corp.test administrator <<<"$secret" >/dev/null
    equals "traces of the password" 0 "$(in_box "$node" grep -c "$secret" /tmp/trace)"
    equals "files with the password" "" "$(in_box "$node" grep -rlF "$secret" /etc /var/lib /var/log /run 2>/dev/null)"
}

# 50 hosts know nothing of each other.
alone_fifty_hosts_join_at_once() {
    local number hosts=() host failed=() start
    for number in {1..50}; do
        member
        with_patience "$node"
        hosts+=("$node")
    done
    start=$EPOCHREALTIME
    for host in "${hosts[@]}"; do
        probe "$host" join corp.test joiner Hosts <<<"$secret" >"/mnt/lab/fifty.$host" 2>&1 &
    done
    wait
    echo "note: 50 joins in $(seconds_since "$start") s"
    for host in "${hosts[@]}"; do
        grep -q '^join status=0 ' "/mnt/lab/fifty.$host" || failed+=("$host: $(tr '\n' ' ' <"/mnt/lab/fifty.$host")")
    done
    equals "failed joins" "" "${failed[*]}"
    for host in "${hosts[@]}"; do
        in_box "$host" kinit -k "${host^^}\$" || failed+=("$host")
    done
    equals "hosts without a good keytab" "" "${failed[*]}"
}
