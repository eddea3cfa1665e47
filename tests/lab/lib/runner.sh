# Runs scenarios: functions of scenarios/*.sh named scenario_NAME, which may run at the same time as others, or
# alone_NAME, which change what others see of the directory. Sourced inside the lab.

scenario_seconds=150
lanes=4

load_scenarios() {
    local file
    for file in /mnt/src/tests/lab/scenarios/*.sh; do
        # shellcheck disable=SC1090
        . "$file"
    done
}

functions_named() { declare -F | sed -n "s/^declare -f \(${1}_[a-z0-9_]*\)\$/\1/p"; }

run_scenarios() {
    local function wanted=() failed=0
    load_scenarios
    directory_log_on
    mkdir -p /mnt/lab/out
    : >/mnt/lab/failures
    for function in "$@"; do wanted+=("scenario_$function" "alone_$function"); done
    # shellcheck disable=SC2046
    set -- $(functions_named scenario) $(functions_named alone)
    if [ ${#wanted[@]} -gt 0 ]; then
        # shellcheck disable=SC2046
        set -- $(printf '%s\n' "$@" | grep -xF "$(printf '%s\n' "${wanted[@]}")")
        [ $# -gt 0 ] || { echo "lab: no such scenario" >&2; return 1; }
    fi
    printf '%s\n' "$@" | grep '^scenario_' |
        xargs -r -P "$lanes" -n 1 bash /mnt/src/tests/lab/lib/run-scenario "$scenario_seconds" || failed=1
    for function in $(printf '%s\n' "$@" | grep '^alone_'); do
        bash /mnt/src/tests/lab/lib/run-scenario "$scenario_seconds" "$function" || failed=1
    done
    [ "$failed" = 0 ] || keep_logs
    printf 'lab: %d scenarios, %d failed\n' $# "$(wc -l </mnt/lab/failures)" >&2
    return $failed
}

keep_logs() {
    local box
    rm -rf /mnt/work/logs
    mkdir -p /mnt/work/logs
    for box in "$boxes"/*/log; do cp "$box" "/mnt/work/logs/$(basename "$(dirname "$box")").log"; done
    cp /mnt/lab/dns/*.log /mnt/work/logs
    echo "lab: what the boxes said is in the build tree, lab/logs" >&2
}
