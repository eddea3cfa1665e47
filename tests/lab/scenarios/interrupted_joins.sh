# A join is a transaction: whatever breaks, at whatever step, host and directory are as before or the host has joined.

fault_lanes=5
# Each such step takes a second or so, and a join has dozens: every third one is tried, or all if asked for.
fault_stride=3
[ -z "${NIMAUTH_EVERY_LAB_STEP-}" ] || fault_stride=1

# Every step in turn, a stride apart, shared out between hosts that work at the same time. BODY is called as BODY HOST STEP
# and says by false that there is no such step.
for_every_step() {  # for_every_step LAST BODY [ARGUMENT]...
    local last=$1 lane step jobs=() job hosts=()
    shift
    for ((lane = 0; lane < fault_lanes; lane++)); do
        member
        with_patience "$node"
        hosts+=("$node")
    done
    for ((lane = 0; lane < fault_lanes; lane++)); do
        (
            trap - EXIT
            node=${hosts[lane]}
            for ((step = lane * fault_stride + 1; step <= last; step += fault_lanes * fault_stride)); do
                "$@" "$node" "$step" || break
            done
            echo "$((step - fault_lanes * fault_stride))" >"/mnt/lab/steps.$node"
        ) &
        jobs+=($!)
    done
    for job in "${jobs[@]}"; do wait "$job" || exit 1; done
    last_step=$(cd /mnt/lab && printf 'steps.%s\n' "${hosts[@]}" | xargs cat | sort -n | tail -n 1)
}

steps_tried() {
    [ "$fault_stride" = 1 ] && echo "each of $last_step" || echo "one in $fault_stride, up to $last_step"
}

# There is no such step: the join went through undisturbed, and is taken back for the next one.
no_such_step() {  # no_such_step HOST
    equals "join without a fault" 0 "$(join_status "$1")"
    leave_gives 0 joiner
    false
}

# all_or_nothing STATUS WHAT: and the host is out of the domain again, afterwards. Where the fault struck the status on
# its way out there is none.
all_or_nothing() {
    local status=$1
    if [ -z "$status" ]; then
        capture probe "$node" trust-state
        ! grep -q "value=$trust_healthy " "$output" || status=0
    fi
    if [ "$status" = 0 ]; then
        trust_state_is "$trust_healthy"
        leave_gives 0 joiner
    fi
    node_is_untouched "$2"
}

node_is_untouched() {
    is_not_joined
    equals "account in the directory after $1" "" "$(account_of "$node")"
}

fails_at_step() {  # fails_at_step CALLS ERROR HOST STEP
    join_with_fault "$3" "$1" "$2" "$4"
    in_box "$3" grep -q INJECTED /tmp/trace || no_such_step "$3" || return 1
    output=/mnt/lab/fault.$3
    all_or_nothing "$(join_status "$3")" "$2 at step $4: $(in_box "$3" grep INJECTED /tmp/trace | head -n 1)"
}

sweep_interrupted_join_one_message_is_lost() {
    for_every_step 200 fails_at_step "$message_calls" ECONNRESET
    echo "note: one message fails, $(steps_tried): all or nothing"
}

sweep_interrupted_join_one_answer_is_lost() {
    for_every_step 400 fails_at_step read,recvfrom,recvmsg ECONNRESET
    echo "note: one read fails, $(steps_tried): all or nothing"
}

sweep_interrupted_join_disk_is_full() {
    for_every_step 60 fails_at_step "rename,renameat,renameat2,fsync,fdatasync,ftruncate,fchmod,mkdir,mkdirat" ENOSPC
    echo "note: one file operation fails, $(steps_tried): all or nothing"
}

# The controller goes away for good in the middle of a join, and comes back later. What it did not hear of cannot be
# taken back there; the host is out of the domain, and the next join succeeds, whatever stands in the directory.
loses_controller_at_step() {  # loses_controller_at_step WAY HOST STEP
    join_held_in_haste "$2" "$3" || no_such_step "$2" || return 1
    "$1" "$2" 10.99.0.2
    join_let_go "$2"
    reachable "$2" 10.99.0.2
    with_patience "$2"
    output=/mnt/lab/fault.$2
    if [ "$(join_status "$2")" != 0 ]; then
        is_not_joined
        join_gives 0 corp.test joiner Hosts
    fi
    trust_state_is "$trust_healthy"
    leave_gives 0 joiner
    node_is_untouched "losing the controller at message $3"
}

# As join_held, of a join that does not try what cannot succeed for as long as it would on a wide network. On a busy
# machine such haste can end the join before the step, which does not tell that there is none: one that has time tells.
join_held_in_haste() {  # join_held_in_haste HOST STEP
    in_haste "$1"
    ! join_held "$1" "$2" || return 0
    with_patience "$1"
    [ "$(join_status "$1")" != 0 ] || return 1
    join_held "$1" "$2"
}

in_haste() { limits "$1" controller_seconds=1 join_seconds=3 roll_back_seconds=1; }

sweep_interrupted_join_controller_vanishes() {
    for_every_step 200 loses_controller_at_step black_hole
    echo "note: controller black-holed at a message, $(steps_tried): host clean, next join succeeds"
}

sweep_interrupted_join_controller_closes() {
    for_every_step 200 loses_controller_at_step refuse
    echo "note: controller refuses from a message on, $(steps_tried): host clean, next join succeeds"
}

# A stopped controller still takes what is sent to it, and carries it out when it goes on.
alone_interrupted_join_controller_stops() {
    local step
    member
    with_patience "$node"
    for ((step = 1; ; step += 3 * fault_stride)); do
        join_held_in_haste "$node" "$step" || no_such_step "$node" || break
        stop dc1
        join_let_go "$node"
        continue_box dc1
        with_patience "$node"
        output=/mnt/lab/fault.$node
        if [ "$(join_status "$node")" != 0 ]; then
            is_not_joined
            box_wait 60 controller_answers dc1
            join_gives 0 corp.test joiner Hosts
        fi
        trust_state_is "$trust_healthy"
        leave_gives 0 joiner
        node_is_untouched "a stop of the controller at message $step"
    done
    echo "note: controller stopped at a message, up to $((step - 3 * fault_stride)): host clean, next join succeeds"
}

# The process is killed: nobody is left to take anything back. The host has joined or it has not, and can join.
killed_at_step() {  # killed_at_step HOST STEP
    join_held "$1" "$2" || no_such_step "$1" || return 1
    join_end "$1"
    output=/mnt/lab/fault.$1
    capture probe "$1" trust-state
    if ! grep -q "value=$trust_healthy " "$output"; then
        answer_has "trust-state value=$trust_not_joined .*"
        join_gives 0 corp.test joiner Hosts
        trust_state_is "$trust_healthy"
    fi
    leave_gives 0 joiner
    node_is_untouched "being killed at message $2"
}

sweep_interrupted_join_process_is_killed() {
    for_every_step 200 killed_at_step
    echo "note: killed at a message, $(steps_tried): in or out, next join succeeds"
}

# The one-time secret may be used up by then: the same join goes on with the keys that the host holds.
killed_account_join_at_step() {  # killed_account_join_at_step HOST STEP
    local fault_join=(/mnt/probe /usr/libexec/nimauth/libad.so join-account corp.test "${1^^}\$")
    local fault_secret=One-Time-Secret-3 is_held=yes
    make_account "$1" OU=Hosts "$fault_secret"
    join_held "$1" "$2" || is_held=
    [ -z "$is_held" ] || join_end "$1"
    output=/mnt/lab/fault.$1
    capture probe "$1" trust-state
    if ! grep -q "value=$trust_healthy " "$output"; then
        answer_has "trust-state value=$trust_not_joined .*"
        join_account_gives 0 corp.test "${1^^}\$" "$fault_secret"
    fi
    trust_state_is "$trust_healthy"
    leave_gives 0 joiner
    node_is_untouched "being killed at message $2"
    [ -n "$is_held" ]
}

sweep_interrupted_join_with_a_one_time_secret_is_killed() {
    for_every_step 200 killed_account_join_at_step
    echo "note: killed at a message, $(steps_tried): in or out, the same join succeeds"
}
