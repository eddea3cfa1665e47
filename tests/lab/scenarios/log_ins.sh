# Users of the directory resolve and log in on a joined host, through the modules that the provider names. SSSD is laid
# over the member hosts from its packages; name-service and PAM files are edited here as an administrator would.

# A host with SSSD, not joined yet.
sssd_member() {
    [ -d /mnt/kept/sssd ] || differs "SSSD's packages in /mnt/kept/sssd (tests/lab/lib/sssd-packages)" there missing
    member /mnt/kept/sssd
    in_box "$node" bash -c '
        mkdir -p /var/lib/sss/{db,mc,pipes/private,pubconf/krb5.include.d,gpo_cache,secrets,deskprofile} /var/log/sssd'
}

# Its PAM service `domain` has SSSD's module alone, so that each result is its own.
log_in_member() {
    sssd_member
    in_box "$node" bash -c '
        sed -i "s/^\(passwd\|group\): .*/\1: files sss/" /etc/nsswitch.conf
        printf "%s required pam_sss.so\n" auth account session >/etc/pam.d/domain'
}

join_host() {
    capture ctl "$node" join corp.test/Hosts -U joiner --password-stdin <<<"$secret"
    equals "exit status of join" 0 "$result"
}

leave_domain() {
    capture ctl "$node" leave -U joiner --password-stdin <<<"$secret"
    equals "exit status of leave" 0 "$result"
}

# SSSD checks a password as the user, whose id must exist: an ordinary user's lab has one id alone.
needs_user_ids() { [ -n "$lab_is_root" ] || cut_short "at the first password, which root's lab alone can check"; }

# log_in_says TEXT USER [PASSWORD]: what pamtester ends with
log_in_says() {
    needs_user_ids
    capture in_box "$node" timeout 60 pamtester domain "$2" authenticate acct_mgmt <<<"${3-$secret}"
    output_has "$1"
}

logs_in() {
    log_in_says "account management done" "$1"
    equals "exit status of a log-in of $1" 0 "$result"
}

# Its first look at the domain may come too late on a busy machine; the next one follows a minute later.
is_known() {
    box_wait 90 in_box "$node" getent passwd "$1" || true
    succeeds getent passwd "$1"
}
is_unknown() {
    capture in_box "$node" getent passwd "$1"
    equals "$1 is unknown" 2 "$result"
}

# A request that SSSD holds while it ends is waited for by SSSD's client for five minutes, so none is made meanwhile.
sssd_ends() {
    in_box "$node" pkill -x sssd
    box_wait 60 in_box "$node" bash -c '! pgrep sssd' || differs "SSSD's processes" none "$(in_box "$node" pgrep -l sssd)"
}

# No controller of any forest answers this host.
cut_off() {
    local address
    for address in "${controller_address[@]}"; do refuse "$node" "$address"; done
}

scenario_log_in_users_of_the_domain() {
    log_in_member
    is_unknown alice@corp.test
    join_host
    is_known alice@corp.test
    within 20 logs_in alice@corp.test
    output_has "account management done"
    log_in_says "Authentication failure" alice@corp.test Wrong-Secret
    log_in_says "User not known" nobody@corp.test
    log_in_says "Permission denied" disabled@corp.test
    log_in_says "Permission denied" expired@corp.test
    log_in_says "new one required" mustchange@corp.test
    succeeds id alice@corp.test
    output_has "(hostadmins@corp.test)"
    # A short name is never the domain's: it could pass for a local user's.
    is_unknown alice
}

scenario_log_in_users_of_a_trusted_forest() {
    log_in_member
    join_host
    is_known alice@trust.test
    logs_in alice@trust.test
    log_in_says "Authentication failure" alice@trust.test Wrong-Secret
    logs_in alice@corp.test
    leave_domain
    is_unknown alice@trust.test
}

scenario_log_in_while_no_controller_answers() {
    log_in_member
    join_host
    is_known alice@corp.test
    logs_in alice@corp.test
    cut_off
    within 30 logs_in alice@corp.test
    log_in_says "Authentication failure" alice@corp.test Wrong-Secret
    # Was never here, so nothing is kept of her.
    capture in_box "$node" timeout 60 pamtester domain bob@corp.test authenticate <<<"$secret"
    equals "exit status of a log-in of bob" 1 "$result"
    within 20 logs_in alice@corp.test
    # A leave that only forgets needs no controller, and takes the kept password along.
    tool 0 leave
    log_in_says "Authentication" alice@corp.test
    equals "exit status of a log-in after the leave" 1 "$result"
    is_unknown alice@corp.test
}

scenario_log_in_ends_with_the_membership() {
    log_in_member
    join_host
    is_known alice@corp.test
    logs_in alice@corp.test
    capture in_box "$node" bash -c 'ls /tmp/krb5cc_* /var/lib/sss/db/cache_corp.test.ldb'
    equals "tickets and cached data of a user" 0 "$result"
    leave_domain
    is_unknown alice@corp.test
    log_in_says "Authentication" alice@corp.test
    equals "exit status of a log-in after the leave" 1 "$result"
    capture in_box "$node" bash -c 'find /etc/sssd -name "*nimauth*"; find /var/lib/sss /tmp /var/lib/nimbrel -type f |
        grep -iE "corp|trust|krb5cc|/mc/|log-ins"; pgrep -x sssd'
    equals "what a leave leaves" "" "$(tr '\n' ' ' <"$output")"
    has_no_account
    # And again: nothing of the first membership is in the way of a second.
    join_host
    is_known alice@corp.test
    logs_in alice@corp.test
}

scenario_log_in_begins_when_sssd_comes_later() {
    log_in_member
    in_box "$node" mv /usr/sbin/sssd /usr/sbin/sssd.later
    join_host
    is_unknown alice@corp.test
    in_box "$node" mv /usr/sbin/sssd.later /usr/sbin/sssd
    succeeds sssd -D
    is_known alice@corp.test
    logs_in alice@corp.test
    leave_domain
    is_unknown alice@corp.test
}

scenario_log_in_beside_an_administrators_own_configuration() {
    log_in_member
    in_box "$node" bash -c 'umask 077; cat >/etc/sssd/sssd.conf' <<'END'
[sssd]
services = nss, ssh
domains = local
[domain/local]
id_provider = files
END
    in_box "$node" bash -c 'umask 077; cat >/etc/sssd/conf.d/70-local.conf' <<'END'
[domain/corp.test]
access_provider = simple
simple_allow_users = alice@corp.test
END
    succeeds sssd -D
    join_host
    is_known alice@corp.test
    logs_in alice@corp.test
    log_in_says "Permission denied" bob@corp.test
    succeeds pgrep -f sssd_ssh
    succeeds sssctl config-check
    leave_domain
    is_unknown alice@corp.test
    succeeds pgrep -x sssd
    succeeds test -e /etc/sssd/sssd.conf -a -e /etc/sssd/conf.d/70-local.conf
}

scenario_log_in_settings_reach_sssd() {
    log_in_member
    capture probe "$node" set-controllers dc1.corp.test
    equals "status of the preferred controllers, before the join" 0 "$(probe_status)"
    join_host
    capture probe "$node" set-smart-cards sshd login
    equals "status of the smart-card services" 0 "$(probe_status)"
    ask smart-cards
    answer_has '.*sshd.*'
    succeeds sssctl config-check
    output_has "Issues identified by validators: 0"
    output_has 55-nimauth-controllers.conf
    output_has 60-nimauth-smartcard.conf
    succeeds bash -c "sed -n 's/^ad_server = //p' /etc/sssd/conf.d/55-nimauth-controllers.conf"
    output_has "dc1.corp.test, _srv_"
    logs_in alice@corp.test
    succeeds cat /var/lib/sss/pubconf/kdcinfo.CORP.TEST
    output_has "${controller_address[dc1]}"
    capture probe "$node" set-smart-cards
    equals "status of no smart-card services" 0 "$(probe_status)"
    succeeds sssctl config-check
    logs_in alice@corp.test
}

# What `logins` may touch, file by file.
log_in_files() {
    in_box "$node" bash -c 'find /etc/pam.d /etc/nsswitch.conf /usr/share/pam-configs /var/lib/pam /etc/security -type f |
        sort | xargs stat --format "%n %a %u:%g" && find /etc/pam.d /etc/nsswitch.conf /usr/share/pam-configs /var/lib/pam \
        /etc/security -type f | sort | xargs sha256sum'
}

# The PAM service `host` is like those of the distribution: it includes the common files.
common_log_in_says() {  # TEXT USER PASSWORD
    needs_user_ids
    capture in_box "$node" timeout 60 pamtester host "$2" authenticate acct_mgmt <<<"$3"
    output_has "$1"
}

scenario_log_in_enabled_and_disabled_by_the_tool() {
    sssd_member
    in_box "$node" bash -c 'printf "@include common-%s\n" auth account session >/etc/pam.d/host
        useradd --create-home keeper && chpasswd <<<keeper:Local-Secret-1'
    log_in_files >/mnt/lab/before.$node
    tool 4 logins enable --confirm-within 0
    join_host
    is_unknown alice@corp.test
    tool 0 logins enable --dry-run
    output_has "+passwd: files sss"
    output_has "pam_sss.so"
    equals "files after a preview" "$(</mnt/lab/before.$node)" "$(log_in_files)"
    tool 0 logins enable --confirm-within 0
    is_known alice@corp.test
    common_log_in_says "account management done" alice@corp.test "$secret"
    common_log_in_says "Authentication failure" alice@corp.test Wrong-Secret
    common_log_in_says "account management done" keeper Local-Secret-1
    common_log_in_says "Authentication failure" keeper Wrong-Secret
    tool 0 store set "Active Directory"
    tool 0 check --joined
    tool 0 logins enable --confirm-within 0
    cut_off
    within 30 common_log_in_says "account management done" alice@corp.test "$secret"
    within 10 common_log_in_says "account management done" keeper Local-Secret-1
    sssd_ends
    within 10 common_log_in_says "account management done" keeper Local-Secret-1
    tool 0 logins disable --confirm-within 0
    equals "files after disable" "$(</mnt/lab/before.$node)" "$(log_in_files)"
    is_unknown alice@corp.test
    common_log_in_says "account management done" keeper Local-Secret-1
}

# check_finds EXIT CHECK RESULT
check_finds() {
    tool "$1" check --joined
    output_has "check: $2 result=$3"
}

scenario_log_in_check_names_what_is_missing() {
    log_in_member
    check_finds 3 store fail
    tool 0 store set "Active Directory"
    check_finds 4 membership fail
    join_host
    check_finds 1 pam fail
    in_box "$node" bash -c 'sed -i "1i auth sufficient pam_sss.so" /etc/pam.d/common-auth
        sed -i "1i account sufficient pam_sss.so" /etc/pam.d/common-account'
    check_finds 0 pam pass
    output_has "check: keytab result=pass found=\"/etc/krb5.keytab: ${node^^}\$@CORP.TEST\""
    output_has "check: trust state result=pass"
    output_has "check: sssd runs result=pass"
    in_box "$node" sed -i 's/^group: .*/group: files/' /etc/nsswitch.conf
    check_finds 1 "name service" fail
    output_has "does not name 'sss' for group"
    in_box "$node" sed -i 's/^group: .*/group: files sss/' /etc/nsswitch.conf
    in_box "$node" chmod 644 /etc/sssd/conf.d/50-nimauth-domain.conf
    check_finds 5 "sssd configuration" fail
    in_box "$node" chmod 600 /etc/sssd/conf.d/50-nimauth-domain.conf
    sssd_ends
    check_finds 1 "sssd runs" fail
    in_box "$node" mv /etc/krb5.keytab /etc/krb5.keytab.away
    check_finds 1 keytab fail
    in_box "$node" mv /etc/krb5.keytab.away /etc/krb5.keytab
    account_disable "$node"
    check_finds 7 "trust state" fail
    output_has "the machine account is disabled"
}
