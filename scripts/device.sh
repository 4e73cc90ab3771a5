# Sourced inside a private world: brings a device up there and takes it down. PATH leads to the
# binaries. What the daemons log is in $device_log.

device_log=/tmp/device.log
device_limit=30 # seconds that anything may take
device_pids=()
collector_pid=

fail() {
    echo
    echo "run: FAILED: $*"
    echo "The end of the log:"
    tail -n 20 "$device_log" | sed 's/^/    /'
    exit 1
} >&2

# wait_until WHAT COMMAND [ARG ...]: until the command succeeds.
wait_until() {
    local what=$1 deadline=$((SECONDS + device_limit))
    shift
    until "$@" 2>/dev/null; do
        [ $SECONDS -lt $deadline ] || fail "$what"
        sleep 0.02
    done
}

# logged_since LINE TEXT: the log holds the text after so many lines.
log_lines() { wc -l <"$device_log"; }
logged_since() { tail -n "+$(($1 + 1))" "$device_log" | grep -qF -- "$2"; }

start_daemon() {
    "$@" >>/tmp/device.out 2>&1 </dev/null &
    device_pids+=($!)
}

start_collector() {
    : >"$device_log"
    dbgcollect -o "$device_log" 2>>/tmp/device.out </dev/null &
    collector_pid=$!
    wait_until "dbgcollect makes its FIFO" test -p /tmp/sockDbg
}

# Brings up the siblings, then the manager; options are the device manager's.
boot_device() {
    local from
    from=$(log_lines)
    mkdir -p /etc/sysmgt /run/sysmgt/import /run/sysmgt/confirm
    cp "$project/packaging/cfg_data_set.json" /etc/sysmgt/
    start_daemon DevManager "$@"
    start_daemon ChanManager
    wait_until "DevManager starts" logged_since "$from" "start: serving /tmp/sockDev"
    wait_until "ChanManager starts" logged_since "$from" "start: serving /tmp/sockChan"
    start_daemon CfgManager
    wait_until "CfgManager starts" logged_since "$from" "init: dataCommunicator started"
    wait_until "the start at boot" logged_since "$from" "serve: LOAD_CHANNELS"
}

# As a power cut would.
cut_device() {
    kill -KILL "${device_pids[@]}"
    { wait "${device_pids[@]}" || true; } 2>/dev/null
    device_pids=()
}

end_device() {
    kill "${device_pids[@]}" "$collector_pid" 2>/dev/null || true
    { wait || true; } 2>/dev/null
}
