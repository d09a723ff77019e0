# shellcheck shell=bash disable=SC2034,SC2154
# Starts and stops from eight threads at random, under 64 threads of requests.

# What differs from storm to storm: the seed picks a line.
storm_settings=(
    'internal.probe.stop.wait=0'
    'internal.probe.stop.wait=20 eventagent.pool.size=3 networkagent.pool.size=2 internal.memory.limit=40 turbomode.allownew=false'
    'internal.probe.stop.wait=0 ea.popevent.size=7 na.popbuffer.size=4 internal.probe.event.queue.size.limit=50 internal.probe.drops.exact=true'
    'internal.probe.stop.wait=20 eventagent.pool.size=2 internal.probe.event.packet.size=64 log.statistics=true log.statistics.frequency=50'
)

# storm STOPS SEED [LIMIT]: the server must end with its own status within LIMIT seconds, having met no fault, while its
# Publish Server dies, is away, reads no more and comes back; memory is printed.
storm() {
    local storm_limit=$((SECONDS + ${3:-3600})) memory=0 last=0 settings
    read -r -a settings <<< "${storm_settings[$2 % ${#storm_settings[@]}]}"
    start_receiver
    options_for storm --publish-server "$address"
    printf '%s\n' networkagent.ps.reconnect.frequency=0 internal.probe.publishing.frequency=5 \
        networkagent.publish.frequency=5 "${settings[@]}" >> "$runtime/datacollector_test.properties"
    : > server.out
    mkfifo control
    exec 7<> control
    MALLOC_ARENA_MAX=1 "${runner[@]}" "$JAVA" "${options[@]}" -Xms128m -Xmx128m -XX:+AlwaysPreTouch -XX:+UseSerialGC \
        -cp "$APP" amtest.Storm "$1" "$2" < control > server.out 2> server.err 7<&- &
    server=$!
    until said calm; do vex_receiver; done
    prove_work
    while alive; do vex_receiver; done
    judge_storm
}

alive() {
    [ "$SECONDS" -lt "$storm_limit" ] || { kill -QUIT "$server" && sleep 5 && fail "it hangs: $(tail -n 1 server.out)"; }
    kill -0 "$server" 2> /dev/null
}

said() { grep -q "^$1" server.out || ! alive; }

# One round of what may happen to a Publish Server; it is back at the end.
vex_receiver() {
    sleep 1
    case $((RANDOM % 4)) in
    0) kill -STOP "$receiver" && sleep 1 && kill_receiver ;;
    1) kill_receiver && sleep 1 ;;
    *) kill_receiver ;;
    esac
    start_receiver "$address"
    last=$(memory_kb 2> /dev/null || echo "$last")
    [ "$memory" -ne 0 ] || [ "$SECONDS" -lt 10 ] || memory=$last
}

prove_work() {
    said calm || return 0
    echo go >&7
    until said told; do sleep 0.1; done
    wait_until 60 "the pages" eval '! alive || [ "$(grep -c "\"HttpEvent.begin\".*/proof" records.json)" -eq 20 ]'
    echo go >&7
}

judge_storm() {
    local status=0
    wait "$server" || status=$?
    echo "$(tail -n 1 server.out); $memory KB after 9 s, $last KB at the end"
    [ "$status" -eq 5 ] || fail "exit status $status: $(head -n 3 server.err)"
    grep -qE '^stops [0-9]+ requests [0-9]+ faults 0 back true$' server.out || fail "$(tail -n 1 server.out)"
    [ ! -s server.err ] || fail "on standard error: $(head -n 3 server.err)"
}

case_storm() { storm 40 "$RANDOM" 200; }
