# What a joined host is told, and what it finds out about its own standing.

joined_member() {
    member
    join_gives 0 corp.test joiner Hosts
}

scenario_queries_of_a_joined_host() {
    joined_member
    ask active-domain
    answer_has "domain=corp.test netbios=CORP"
    ask machine-dn
    answer_has "text=CN=${node^^},OU=Hosts,DC=corp,DC=test"
    ask trusted-domains
    answer_has "domain=trust.test netbios=TRUST"
    ask controller corp.test
    answer_has "text=dc1.corp.test"
    ask host-principal corp.test
    answer_has "text=host/$node.corp.test@CORP.TEST"
    trust_state_is "$trust_healthy"
    ask relationship corp.test
    answer_has "relationship value=$own_domain .*"
    ask relationship trust.test
    answer_has "relationship value=$two_way_forest_trust .*"
    ask relationship nowhere.test
    answer_has "relationship value=$unknown_domain .*"
}

scenario_user_names_of_both_forests() {
    joined_member
    local given expected
    while read -r given expected; do
        ask canonical "$given"
        answer_has "text=$expected"
    done <<'END'
alice alice@corp.test
ALICE alice@corp.test
alice@corp.test alice@corp.test
CORP\alice alice@corp.test
alice@trust.test alice@trust.test
TRUST\alice alice@trust.test
END
    ask canonical nobody-at-all
    answer_has "canonical status=[1-9][0-9]* .*"
}

scenario_trust_state_of_a_host_that_never_joined() {
    member
    trust_state_is "$trust_not_joined"
}

scenario_trust_state_after_a_password_reset() {
    joined_member
    account_reset_password "$node"
    trust_state_is "$trust_out_of_step"
}

scenario_trust_state_of_a_disabled_account() {
    joined_member
    account_disable "$node"
    trust_state_is "$trust_disabled"
}

scenario_trust_state_of_a_deleted_account() {
    joined_member
    directory_delete "(sAMAccountName=${node^^}\$)"
    trust_state_is "$trust_missing"
    leave_gives 0
    is_not_joined
}

scenario_trust_added_and_removed() {
    joined_member
    ask trusted-domains
    answer_lacks third.test
    in_box dc1 ldbadd -H /var/lib/samba/private/sam.ldb --relax /dev/stdin <<'END' >/dev/null
dn: CN=third.test,CN=System,DC=corp,DC=test
objectClass: trustedDomain
trustPartner: third.test
flatName: THIRD
securityIdentifier: S-1-5-21-7007-8008-9009
trustDirection: 2
trustType: 2
trustAttributes: 8
END
    ask trusted-domains
    answer_has "domain=third.test netbios=THIRD"
    ask relationship third.test
    answer_has "relationship value=$outbound_forest_trust .*"
    in_box dc1 ldbdel -H /var/lib/samba/private/sam.ldb CN=third.test,CN=System,DC=corp,DC=test >/dev/null
    ask trusted-domains
    answer_lacks third.test
}

scenario_clock_off_by_twenty_minutes() {
    local offset
    for offset in +20m -20m; do
        member
        capture with_clock "$node" "$offset" /mnt/probe /usr/libexec/nimauth/libad.so join corp.test joiner Hosts <<<"$secret"
        equals "join with the clock $offset" 1398 "$(probe_status)"
        is_not_joined
        has_no_account
        join_gives 0 corp.test joiner Hosts
        capture with_clock "$node" "$offset" /mnt/probe /usr/libexec/nimauth/libad.so trust-state
        answer_has "trust-state value=$trust_clock .*"
    done
}
