# The words that scenarios are made of. Each checks at once and ends the scenario at the first difference, showing the
# expected, the actual and what the boxes said last.
#
#   member [LAYER]...               a fresh member host of the scenario's own: $node
#   join_gives STATUS DOMAIN USER [UNIT [PASSWORD]]    one call of the provider's join
#   join_account_gives STATUS DOMAIN ACCOUNT SECRET
#   leave_gives STATUS [USER [PASSWORD]]
#   ask OPERATION [ARGUMENT]...     another slot; then answer_has LINE, answer_lacks TEXT
#   tool EXIT ARGUMENT...           the shipped tool, its exit status; then output_has TEXT
#   trust_state_is VALUE
#   is_joined [UNIT]                on the host and in the directory, by other tools
#   is_not_joined, has_no_account
#   within SECONDS COMMAND...       a limit, and the time is reported
#   equals WHAT EXPECTED ACTUAL     the one that all others end in
#   cut_short WHERE                 ends the scenario with what it has seen so far; it is counted apart

secret=Lab-Secret-1

# Trust states and relationships of the provider.
trust_healthy=1 trust_out_of_step=3 trust_disabled=4 trust_missing=5 trust_not_joined=7 trust_unreachable=8 trust_clock=10
own_domain=1 outbound_forest_trust=19 two_way_forest_trust=21 unknown_domain=6

output=/dev/null

member() {
    node=node$(next_number)
    members+=("$node")
    member_start "$node" "$@"
}

equals() {
    [ "$2" != "$3" ] || return 0
    differs "$@"
}

differs() {
    local frame=0 place way=()  # the lines of scenarios that led here, the innermost first
    while place=$(caller "$frame"); do
        [[ $place != */scenarios/* ]] || way+=("$(basename "${place##* }"):${place%% *}")
        frame=$((frame + 1))
    done
    {
        printf '%s: %s\n' "${way[*]}" "$1"
        printf '  expected: %s\n  actual:   %s\n' "$2" "$3"
        [ -z "${result-}" ] || printf '  the last command ended with %s after %s ms\n' "$result" "$took"
        show_last "$output" "output of the last command"
        [ -z "${node-}" ] || show_last "$boxes/$node/log" "$node"
        show_last "$boxes/dc1/log" dc1
    } >&2
    exit 1
}

cut_short() {
    echo "cut short: $1"
    exit 0
}

show_last() {
    [ -s "$1" ] || return 0
    printf -- '--- %s:\n' "$2"
    tail -n 15 "$1" | sed 's/^/  /'
}

capture() {  # runs a command, keeps its output and its exit status in $result
    output=/mnt/lab/output.$node
    local start=$EPOCHREALTIME
    result=0
    "$@" >"$output" 2>&1 || result=$?
    took=$(milliseconds_since "$start")
}

probe_status() { sed -n 's/^[a-z-]* status=\([0-9]*\).*/\1/p' "$output" | head -n 1; }

join_gives() {
    capture probe "$node" join "$2" "$3" ${4:+"$4"} <<<"${5-$secret}"
    equals "join of $2 as $3" "$1" "$(probe_status)"
}

join_account_gives() {
    capture probe "$node" join-account "$2" "$3" <<<"$4"
    equals "join of $2 with the account $3" "$1" "$(probe_status)"
}

leave_gives() {
    capture probe "$node" leave ${2:+"$2"} <<<"${3-$secret}"
    equals "leave${2:+ as $2}" "$1" "$(probe_status)"
}

ask() { capture probe "$node" "$@"; }
answer_has() { grep -qxE -- "$1" "$output" || differs "a line of the answer" "$1" "$(tr '\n' '|' <"$output")"; }

answer_lacks() { ! grep -qF -- "$1" "$output" || differs "answer without" "$1" "$(tr '\n' '|' <"$output")"; }

trust_state_is() {
    capture probe "$node" trust-state
    equals "trust state" "$1" "$(sed -n 's/^trust-state value=\(-\?[0-9]*\).*/\1/p' "$output")"
}

tool() {
    local expected=$1
    shift
    capture ctl "$node" "$@"
    equals "exit status of nimauthctl $*" "$expected" "$result"
}

output_has() { grep -qF -- "$1" "$output" || differs "text of the output" "$1" "$(tr '\n' '|' <"$output")"; }

succeeds() {
    capture in_box "$node" "$@"
    equals "exit status of $*" 0 "$result"
}

is_joined() {
    local unit=${1-CN=Computers}
    equals "account in the directory" "CN=${node^^},$unit,DC=corp,DC=test" "$(account_of "$node")"
    succeeds adcli testjoin
    succeeds kinit -k "${node^^}\$"
    succeeds klist -k
    output_has "${node^^}\$@CORP.TEST"
}

is_not_joined() {
    in_box "$node" test ! -e /etc/krb5.keytab || {
        capture in_box "$node" klist -k
        grep -q CORP.TEST "$output" && differs "keytab" "no entry of CORP.TEST" "$(grep -c CORP.TEST "$output") entries"
    }
    capture in_box "$node" bash -c 'ls -d /etc/krb5.keytab?* /etc/sssd/conf.d/* /var/lib/nimbrel/ad/* 2>/dev/null'
    equals "files of a membership" "" "$(grep -v '[./]lock$' "$output" | grep ^/ | tr '\n' ' ')"
}

has_no_account() { equals "account in the directory" "" "$(account_of "${1-$node}")"; }

within() {
    local limit=$1 start=$EPOCHREALTIME
    shift
    "$@"
    equals "$* ends within $limit s" yes "$(awk -v from="$start" -v to="$EPOCHREALTIME" -v limit="$limit" \
        'BEGIN { print to - from <= limit ? "yes" : "no, after " to - from " s" }')"
}
