# SPDX-License-Identifier: MIT
# Sourced by with-daemon and as-system-bus.
# start_bus PRIVATE_BUS CONFIG DIR: starts the suites' private_bus with the
# configuration (dbus-daemon, or dbus-broker with TESSIVA_TEST_BUS=dbus-broker),
# its address carried back through a FIFO in DIR, where its log goes too;
# sets bus_pid and address. When the bus does not start, shows its log and
# exits.
start_bus() {
    mkfifo "$3/bus"
    "$1" "$2" >"$3/bus" 2>"$3/bus.log" &
    bus_pid=$!
    address=''
    read -r -t 10 address <"$3/bus" || true
    if [[ -z $address ]]; then
        echo "$(basename "$0"): the bus did not start" >&2
        cat "$3/bus.log" >&2
        exit 1
    fi
}
