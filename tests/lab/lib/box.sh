# Boxes: machines made of namespaces, on one switch. Sourced inside the lab, where /mnt/lab is the lab's own.
#
#   box_start NAME FQDN ADDRESS [LAYER]...   starts a machine; layers as box-init takes them
#   box_end NAME                             ends it with all it runs
#   in_box NAME COMMAND...                   runs a command in it, exit status and streams its own
#   box_wait SECONDS COMMAND...              until the command succeeds
#
# What happens to a whole machine:
#
#   stop NAME, continue_box NAME its processes are stopped and go on: the kernel still accepts connections
#   kill_processes NAME          they are gone: connections are refused
#
# What one box sees of an address, without anybody else noticing:
#
#   black_hole NAME ADDRESS      packets are lost without a word
#   refuse NAME ADDRESS          connections are refused, open ones reset
#   reachable NAME ADDRESS       as before

boxes=/mnt/lab/boxes
resolver=${resolver-10.99.0.1}

box_start() {
    local name=$1 fqdn=$2 address=$3 starter pid
    shift 3
    mkdir -p "$boxes/$name/space"
    rm -f "$boxes/$name/pid"
    setsid unshare --mount --uts --ipc --net --pid --fork --kill-child \
        bash /mnt/src/tests/lab/lib/box-init "$name" "$fqdn" "$resolver" "$@" >>"$boxes/$name/log" 2>&1 </dev/null &
    starter=$!
    disown  # its end is wanted and no news
    printf '%s\n' "$starter" >"$boxes/$name/starter"
    box_wait 20 box_started "$name" || true
    if [ ! -e "$boxes/$name/pid" ]; then
        printf 'lab: the box %s did not start:\n' "$name" >&2
        cat "$boxes/$name/log" >&2
        return 1
    fi
    pid=$(<"$boxes/$name/pid")
    ip -batch - <<END
link add b$pid type veth peer name eth0 netns $pid
link set b$pid master switch up
END
    in_box "$name" ip -batch - <<END
address add $address/16 dev eth0
link set eth0 up
route add default via 10.99.0.1
END
    in_box "$name" bash -c "printf '%s\t%s %s\n' $address $fqdn $name >>/etc/hosts"
}

box_started() {
    [ -e "$boxes/$1/pid" ] || ! kill -0 "$(<"$boxes/$1/starter")" 2>/dev/null
}

box_end() {
    [ -e "$boxes/$1/starter" ] || return 0
    kill -KILL "$(<"$boxes/$1/starter")" 2>/dev/null || true
    while kill -0 "$(<"$boxes/$1/starter")" 2>/dev/null; do sleep 0.01; done
    rm -rf "${boxes:?}/$1" 2>/dev/null || true
}

in_box() {
    local pid
    pid=$(<"$boxes/$1/pid")
    shift
    # The environment is the box's: nothing of the person who runs the lab shines through.
    nsenter --target "$pid" --mount --uts --ipc --net --pid \
        env -i HOME=/root TERM="${TERM-dumb}" LC_ALL=C.UTF-8 \
        PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin "$@"
}

box_wait() {  # polls: only for what tells nobody when it is ready
    local end=$((SECONDS + $1))
    shift
    until "$@" >/dev/null 2>&1; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.05
    done
}

# Process 1 and the signalling shell are spared by the kernel.
stop() { in_box "$1" bash -c 'kill -STOP -1'; }
continue_box() { in_box "$1" bash -c 'kill -CONT -1'; }
kill_processes() { in_box "$1" bash -c 'kill -KILL -1' 2>/dev/null || true; }

# A neighbour that nobody is: frames leave and are lost.
black_hole() { in_box "$1" ip neighbour replace "$2" lladdr 02:00:00:00:0d:ad nud permanent dev eth0; }
refuse() { in_box "$1" ip address add "$2/32" dev lo; }
reachable() {
    in_box "$1" ip neighbour delete "$2" dev eth0 2>/dev/null || true
    in_box "$1" ip address delete "$2/32" dev lo 2>/dev/null || true
}
