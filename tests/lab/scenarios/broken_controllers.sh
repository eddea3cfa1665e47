# Controllers and name servers that do not answer: an error in time, nothing left behind, and recovery by itself.

# Each way to break what a member host needs: a word to break it and a word to mend it.
break_link() {
    case $1 in
        black_holed) black_hole "$node" 10.99.0.2 ;;
        refused) refuse "$node" 10.99.0.2 ;;
        names_black_holed) black_hole "$node" 10.99.0.1 ;;
        names_refused) refuse "$node" 10.99.0.1 ;;
        stopped) stop dc1 ;;
        killed) kill_processes dc1 ;;
    esac
}

mend_link() {
    case $1 in
        black_holed | refused) reachable "$node" 10.99.0.2 ;;
        names_*) reachable "$node" 10.99.0.1 ;;
        stopped) continue_box dc1 ;;
        killed) controller_start dc1 ;;
    esac
}

join_fails_and_recovers() {
    member
    break_link "$1"
    within 20 join_gives 1355 corp.test joiner Hosts
    echo "note: join, $1: error after $took ms"
    mend_link "$1"
    is_not_joined
    has_no_account
    join_gives 0 corp.test joiner Hosts
}

queries_answer_and_recover() {
    joined_member
    break_link "$1"
    within 16 trust_state_is "$trust_unreachable"
    echo "note: trust state, $1: answer after $took ms"
    within 16 ask trusted-domains
    answer_has "trusted-domains status=[1-9][0-9]* .*"
    ask active-domain
    answer_has "domain=corp.test netbios=CORP"
    mend_link "$1"
    trust_state_is "$trust_healthy"
}

scenario_join_through_a_black_hole() { join_fails_and_recovers black_holed; }
scenario_join_with_closed_ports() { join_fails_and_recovers refused; }
scenario_join_without_names() { join_fails_and_recovers names_black_holed; }
scenario_join_with_a_closed_name_server() { join_fails_and_recovers names_refused; }
alone_join_with_a_stopped_controller() { join_fails_and_recovers stopped; }
alone_join_with_a_killed_controller() { join_fails_and_recovers killed; }

scenario_queries_through_a_black_hole() { queries_answer_and_recover black_holed; }
scenario_queries_with_closed_ports() { queries_answer_and_recover refused; }
scenario_queries_without_names() { queries_answer_and_recover names_black_holed; }
scenario_queries_with_a_closed_name_server() { queries_answer_and_recover names_refused; }
alone_queries_with_a_stopped_controller() { queries_answer_and_recover stopped; }
alone_queries_with_a_killed_controller() { queries_answer_and_recover killed; }

# The tool's own time-out is shorter than the provider's: the last answers are shown, marked as stale.
scenario_tool_shows_stale_answers_in_time() {
    member
    tool 0 store set "Active Directory"
    tool 0 join corp.test/Hosts -U joiner --password-stdin <<<"$secret"
    black_hole "$node" 10.99.0.2
    within 14 tool 6 status --timeout 1
    output_has "[stale]"
    reachable "$node" 10.99.0.2
    tool 0 status --timeout 30
    output_has "trust state: 1 ("
}

scenario_a_dead_first_controller_is_passed_over() {
    name_server_start 10.99.0.13 corp.test:dead:10.99.0.200:0 corp.test:dc1:10.99.0.2:10
    member
    use_name_server "$node" 10.99.0.13
    within 20 join_gives 0 corp.test joiner Hosts
    echo "note: join past a dead controller: $took ms"
    ask controller corp.test
    answer_has "text=dc1.corp.test"
    within 14 trust_state_is "$trust_healthy"
    name_server_stop 10.99.0.13
}

# Two controllers, one dies: the other one answers.
alone_second_controller_takes_over() {
    second_controller_up
    name_server_start 10.99.0.12 corp.test:dc1:10.99.0.2:0 corp.test:dc2:10.99.0.4:10 trust.test:dc1:10.99.0.3
    joined_member
    use_name_server "$node" 10.99.0.12
    in_box dc2 samba-tool drs replicate dc2 dc1 DC=corp,DC=test -Uadministrator%"$secret" >/dev/null
    trust_state_is "$trust_healthy"
    local way
    for way in refused black_holed stopped killed; do
        break_link "$way"
        within 14 trust_state_is "$trust_healthy"
        echo "note: fail-over, first controller $way: $took ms"
        ask controller corp.test
        answer_has "text=dc2.corp.test"
        mend_link "$way"
    done
    ask set-controllers dc2.corp.test
    ask controller corp.test
    answer_has "text=dc2.corp.test"
    name_server_stop 10.99.0.12
    box_end dc2
}

# What tells a controller from a member that poses as one: the service name with the domain in it.
alone_controller_without_its_service_name_is_passed_over() {
    second_controller_up
    in_box dc2 mount --bind /bin/true /usr/sbin/samba_spnupdate  # which would add the name again
    name_server_start 10.99.0.14 corp.test:dc2:10.99.0.4:0 corp.test:dc1:10.99.0.2:10
    name_server_start 10.99.0.15 corp.test:dc2:10.99.0.4
    member
    use_name_server "$node" 10.99.0.15
    service_name_of_dc2 delete
    join_gives 1355 corp.test joiner Hosts
    is_not_joined
    use_name_server "$node" 10.99.0.14
    join_gives 0 corp.test joiner Hosts
    use_name_server "$node" 10.99.0.1  # dc2 has not heard of the account yet
    is_joined OU=Hosts
    leave_gives 0 joiner
    service_name_of_dc2 add
    use_name_server "$node" 10.99.0.15
    join_gives 0 corp.test joiner Hosts
    name_server_stop 10.99.0.14
    name_server_stop 10.99.0.15
    box_end dc2
}

service_name_of_dc2() {  # service_name_of_dc2 add|delete: where it is looked up, at its own key distribution centre
    in_box dc2 ldbmodify -H /var/lib/samba/private/sam.ldb <<END >/dev/null
dn: CN=DC2,OU=Domain Controllers,DC=corp,DC=test
changetype: modify
$1: servicePrincipalName
servicePrincipalName: ldap/dc2.corp.test/corp.test
END
}
