# Runs scenarios, functions of scenarios/*.sh. Sourced inside the lab.
#
#   scenario_NAME   may run at the same time as others
#   sweep_NAME      uses several hosts at once by itself; two at a time
#   alone_NAME      changes what others see of the directory

scenario_seconds=600
lanes=3

load_scenarios() {
    local file
    for file in /mnt/src/tests/lab/scenarios/*.sh; do
        # shellcheck disable=SC1090
        . "$file"
    done
}

functions_named() { declare -F | sed -n "s/^declare -f \(${1}_[a-z0-9_]*\)\$/\1/p"; }

run_scenarios() {
    local wanted=("$@") failed=0
    load_scenarios
    directory_log_on
    mkdir -p /mnt/lab/out
    : >/mnt/lab/failures
    : >/mnt/lab/cut
    : >/mnt/lab/done
    run_kind scenario "$lanes" "${wanted[@]}" || failed=1
    run_kind sweep 2 "${wanted[@]}" || failed=1
    run_kind alone 1 "${wanted[@]}" || failed=1
    [ "$failed" = 0 ] || keep_logs
    printf 'lab: %d scenarios, %d failed, %d cut short\n' \
        "$(wc -l </mnt/lab/done)" "$(wc -l </mnt/lab/failures)" "$(wc -l </mnt/lab/cut)" >&2
    [ -s /mnt/lab/done ] || { echo "lab: no such scenario" >&2; return 1; }
    return $failed
}

run_kind() {  # run_kind KIND LANES [WANTED]...
    local kind=$1 at_once=$2
    shift 2
    functions_named "$kind" | { [ $# = 0 ] && cat || grep -xF "$(printf "${kind}_%s\n" "$@")" || true; } |
        xargs -r -P "$at_once" -n 1 bash /mnt/src/tests/lab/lib/run-scenario "$scenario_seconds"
}

keep_logs() {
    local box
    rm -rf /mnt/kept/logs
    mkdir -p /mnt/kept/logs
    for box in "$boxes"/*/log; do cp "$box" "/mnt/kept/logs/$(basename "$(dirname "$box")").log"; done
    cp /mnt/lab/dns/*.log /mnt/kept/logs
    echo "lab: what the boxes said is in the build tree, lab/logs" >&2
}
