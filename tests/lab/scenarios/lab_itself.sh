# The lab is what it says it is, by tools that have nothing to do with this project.

scenario_lab_users_of_both_forests_log_on() {
    member
    local user
    for user in administrator joiner alice; do
        succeeds kinit "$user@CORP.TEST" <<<"$secret"
        succeeds kinit "$user@TRUST.TEST" <<<"$secret"
    done
}

scenario_lab_trust_carries_tickets_both_ways() {
    member
    succeeds kinit alice@TRUST.TEST <<<"$secret"
    succeeds kvno ldap/dc1.corp.test@CORP.TEST
    succeeds kinit alice@CORP.TEST <<<"$secret"
    succeeds kvno ldap/dc1.trust.test@TRUST.TEST
}

scenario_lab_joiner_may_join_below_hosts_only() {
    member
    succeeds adcli join corp.test -U joiner --stdin-password -O OU=Sub,OU=Hosts,DC=corp,DC=test <<<"$secret"
    is_joined OU=Sub,OU=Hosts
    succeeds adcli delete-computer -D corp.test -U joiner --stdin-password <<<"$secret"
    has_no_account
    capture in_box "$node" adcli join corp.test -U joiner --stdin-password -O OU=Closed,DC=corp,DC=test <<<"$secret"
    output_has "Insufficient permissions"
    has_no_account
}

scenario_lab_links_break_for_one_host_only() {
    member
    local broken=$node
    member
    black_hole "$broken" 10.99.0.2
    succeeds kinit alice <<<"$secret"
    capture in_box "$broken" timeout 1 kinit alice <<<"$secret"
    equals "kinit through a black hole" 124 "$result"
    reachable "$broken" 10.99.0.2
    refuse "$broken" 10.99.0.2
    capture in_box "$broken" kinit alice <<<"$secret"
    output_has "Cannot contact any KDC"
    reachable "$broken" 10.99.0.2
    node=$broken
    succeeds kinit alice <<<"$secret"
}
