# Joins, leaves and queries of this project and of its peers, timed inside a lab. Run by `scripts/lab script`; started by
# benchmarks/lab/compare, which makes a table of it.
#
# Usage: measure.sh REPETITIONS
#
# Prints one line for each measurement: work, contender, milliseconds, exit status (124: cut off at the cap). The
# contenders take turns on hosts of their own; a time is that of one process, from its start to its end.

repetitions=$1
cap=30
contenders=(ours adcli net realm)
user=administrator

# ---------------------------------------------------------------- the contenders

join_ours() { timed "$1" "$2" /mnt/probe /usr/libexec/nimauth/libad.so join corp.test "$user"; }
leave_ours() { timed "$1" "$2" /mnt/probe /usr/libexec/nimauth/libad.so leave "$user"; }
ask_ours() { timed "$1" "$2" /mnt/probe /usr/libexec/nimauth/libad.so trust-state; }

join_adcli() { timed "$1" "$2" adcli join corp.test -U "$user" --stdin-password; }
leave_adcli() { timed "$1" "$2" adcli delete-computer -D corp.test -U "$user" --stdin-password; }
ask_adcli() { timed "$1" "$2" adcli testjoin; }

join_net() { timed "$1" "$2" net ads join --no-dns-updates -U "$user%$secret"; }
leave_net() { timed "$1" "$2" net ads leave -U "$user%$secret"; }
ask_net() { timed "$1" "$2" net ads testjoin; }

# Through its daemon, as it is used; no packages are looked for and no service is touched.
join_realm() { timed "$1" "$2" realm join --verbose --membership-software=adcli -U "$user" corp.test; }
leave_realm() { timed "$1" "$2" realm leave --verbose --remove -U "$user" corp.test; }
ask_realm() { :; }  # it does not know whether the domain still takes the host

prepare_realm() {
    in_box "$1" rm /etc/samba/smb.conf  # else the host is a member already, for realm
    in_box "$1" mkdir -p /run/dbus
    in_box "$1" dbus-daemon --system --fork
    in_box "$1" bash -c 'cat >/etc/realmd.conf' <<'END'
[service]
automatic-install = no
[commands]
sssd-enable-logins = /bin/true
sssd-disable-logins = /bin/true
sssd-enable-service = /bin/true
sssd-disable-service = /bin/true
sssd-restart-service = /bin/true
sssd-stop-service = /bin/true
sssd-caches-flush = /bin/true
name-caches-flush = /bin/true
[sssd-packages]
sssd = /bin/true
sssd-tools = /bin/true
libnss-sss = /bin/true
libpam-sss = /bin/true
END
}

# ---------------------------------------------------------------- timing

# In the box, so that only the command is timed.
timed() {  # timed BOX WORK COMMAND...: the password is on standard input
    local box=$1 work=$2
    shift 2
    in_box "$box" bash -c '
        cap=$1 work=$2 contender=$3
        shift 3
        start=$EPOCHREALTIME
        timeout --kill-after=1 "$cap" "$@" >/tmp/out 2>&1
        status=$?
        end=$EPOCHREALTIME
        printf "%s\t%s\t%s\t%s\n" "$work" "$contender" \
            "$(((${end/./} - ${start/./}) / 100))" "$status"
        [ "$status" = 0 ] || sed "s/^/# /" /tmp/out | tail -n 3' \
        timed "$cap" "$work" "$contender" "$@" <<<"$secret"
}

each() {  # each FUNCTION WORK: every contender once
    local contender
    for contender in "${contenders[@]}"; do
        "$1_$contender" "bench-$contender" "$2"
    done
}

# What a broken controller costs: all contenders at once, as they only wait.
each_at_once() {
    local contender jobs=()
    for contender in "${contenders[@]}"; do
        "$1_$contender" "$3-$contender" "$2" &
        jobs+=($!)
    done
    wait "${jobs[@]}"
}

# ---------------------------------------------------------------- the work

directory_log_on
for contender in "${contenders[@]}"; do
    for box in bench in out; do member_start "$box-$contender"; done
done
for box in bench in out; do prepare_realm "$box-realm"; done

for ((turn = 0; turn <= repetitions; turn++)); do  # the first one warms up
    label=
    [ "$turn" != 0 ] || label="warm up: "
    each join "${label}join"
    each ask "${label}trust state"
    contender=ours
    timed bench-ours "${label}all questions of a refresh" /mnt/probe /usr/libexec/nimauth/libad.so queries corp.test alice
    each leave "${label}leave"
done

each_at_once join "warm up: join" in
for way in black-holed refused stopped killed names-black-holed; do
    for contender in "${contenders[@]}"; do
        for box in in out; do
            case $way in
                black-holed) black_hole "$box-$contender" 10.99.0.2 ;;
                refused) refuse "$box-$contender" 10.99.0.2 ;;
                names-black-holed) black_hole "$box-$contender" 10.99.0.1 ;;
            esac
        done
    done
    [ "$way" != stopped ] || stop dc1
    [ "$way" != killed ] || kill_processes dc1
    each_at_once join "$way: join" out
    each_at_once ask "$way: trust state" in
    [ "$way" != stopped ] || continue_box dc1
    [ "$way" != killed ] || controller_start dc1
    for contender in "${contenders[@]}"; do
        for box in in out; do
            reachable "$box-$contender" 10.99.0.2
            reachable "$box-$contender" 10.99.0.1
        done
    done
done
