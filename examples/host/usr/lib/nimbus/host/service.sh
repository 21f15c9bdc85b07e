# shellcheck shell=sh disable=SC2154 # its variables are those of the script that sources it
# The common part of the host's init scripts, for them to source. A script sets
#
#   name       what it is called
#   run        function: becomes the daemon (exec) or is it
#   prepare    function: what has to be done before; its failure is the script's
#   ready      function: whether the daemon can be used, asked until it can be
#
# and ends with:  service "$@". The last two functions may be left out.
#
# The host calls SCRIPT ++group=init/NAME VERB, the group being the one that the daemon belongs to.
# A person at the console may leave it out.

prepare() { :; }
ready() { :; }

# listens PORT: whether a server has that TCP port.
listens() { netstat -lnt | grep -q ":$1 "; }

# Tries a command fifty times a second, for five seconds.
wait_until() {
    tries=0
    until "$@"; do
        tries=$((tries + 1))
        [ "$tries" -lt 250 ] || return 1
        usleep 20000
    done
}

daemon_pid() { cat "/var/run/nimbus/$name.pid" 2>/dev/null; }
alive() { pid=$(daemon_pid) && kill -0 "$pid" 2>/dev/null; }
dead() { ! kill -0 "-$pid" 2>/dev/null; } # the daemon and all that it has started
usable() { ! alive || ready; }            # one that ended at once is not waited for

service_start() {
    if alive; then return 0; fi
    prepare || return
    # A session of its own, and so a group of processes that can be ended together.
    setsid "$0" run </dev/null >/dev/null 2>&1 &
    echo $! >"/var/run/nimbus/$name.pid"
    wait_until usable && alive && return 0
    echo "$name: it does not come up" >&2
    return 7
}

service_stop() {
    if pid=$(daemon_pid) && ! dead; then
        kill -TERM "-$pid"
        wait_until dead || kill -KILL "-$pid"
    fi
    rm -f "/var/run/nimbus/$name.pid"
}

service() {
    case ${1-} in
    ++group=*) shift ;;
    esac
    case ${1-} in
    start) service_start ;;
    stop) service_stop ;;
    restart) service_stop && service_start ;;
    status) alive || return 3 ;;
    run) run ;;
    *)
        echo "usage: $0 [++group=GROUP] start|stop|restart|status" >&2
        return 2
        ;;
    esac
}
