# Faults at an exact step of the provider's work, by its system calls: no timing, no luck. Sourced inside the lab.
#
#   join_with_fault NODE CALLS ERROR STEP     a join whose STEP-th call of CALLS fails with ERROR
#   join_held NODE STEP                       starts a join that is held at its STEP-th message; false if it ended before
#   join_let_go NODE, join_end NODE           lets it go on, or ends it there and then
#   join_status NODE                          what such a join returned, when it has ended
#
# The join is that of a user, unless fault_join and fault_secret say another one.
#
# A message is any call that sends: to a name server, to the key distribution centre, to the directory, to a file.

message_calls=sendto,sendmsg,sendmmsg,write,writev
fault_join=(/mnt/probe /usr/libexec/nimauth/libad.so join corp.test joiner Hosts)

join_with_fault() {
    in_box "$1" strace -f -qq -o /tmp/trace -e "trace=$2" -e "inject=$2:error=$3:when=$4" "${fault_join[@]}" \
        <<<"${fault_secret-$secret}" >"/mnt/lab/fault.$1" 2>&1 || true
}

join_held() {
    local trace=$boxes/$1/trace
    : >"$trace"
    in_box "$1" strace -f -qq -o "$trace" -e "trace=$message_calls" -e "inject=$message_calls:signal=SIGSTOP:when=$2" \
        "${fault_join[@]}" <<<"${fault_secret-$secret}" >"/mnt/lab/fault.$1" 2>&1 &
    local tracer=$!
    printf '%s\n' "$tracer" >"$boxes/$1/tracer"
    until grep -q 'stopped by SIGSTOP' "$trace"; do
        kill -0 "$tracer" 2>/dev/null || return 1
        sleep 0.02
    done
}

join_let_go() {
    local tracer
    tracer=$(<"$boxes/$1/tracer")
    # Steps are counted in each thread: a second one may be held later.
    while kill -0 "$tracer" 2>/dev/null; do
        in_box "$1" pkill -CONT -x probe || true
        sleep 0.02
    done
    wait "$tracer" || true
}

join_end() {
    in_box "$1" pkill -KILL -x probe || true
    wait "$(<"$boxes/$1/tracer")" || true
}

join_status() { sed -n 's/^join status=\([0-9]*\).*/\1/p' "/mnt/lab/fault.$1"; }
