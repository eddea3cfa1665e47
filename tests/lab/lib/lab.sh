# Everything that can be used inside the lab.

lab_is_root=
[ "$(awk '{ print $3 }' /proc/self/uid_map)" = 1 ] || lab_is_root=yes

for part in box names controllers member directory assertions faults runner; do
    # shellcheck disable=SC1090
    . "/mnt/src/tests/lab/lib/$part.sh"
done

seconds_since() { awk -v from="$1" -v to="$EPOCHREALTIME" 'BEGIN { printf "%.1f", to - from }'; }
milliseconds_since() { awk -v from="$1" -v to="$EPOCHREALTIME" 'BEGIN { printf "%.0f", (to - from) * 1000 }'; }
