# shellcheck shell=bash disable=SC2034,SC2154
# Starts and stops from eight threads at random, under 64 threads of requests.

# What differs from storm to storm: the seed picks a line. The last one has the usual pause, with a tenth of the stops.
storm_settings=(
    'internal.probe.stop.wait=0'
    'internal.probe.stop.wait=20 eventagent.pool.size=3 networkagent.pool.size=2 internal.memory.limit=40 turbomode.allownew=false'
    'internal.probe.stop.wait=0 ea.popevent.size=7 na.popbuffer.size=4 internal.probe.event.queue.size.limit=50 internal.probe.drops.exact=true'
    'internal.probe.stop.wait=20 eventagent.pool.size=2 internal.probe.event.packet.size=64 log.statistics=true log.statistics.frequency=50'
    ''
)

# storm STOPS SEED [LIMIT]: the server must end with its own status within LIMIT seconds, having met no fault and kept no
# memory, while its Publish Server dies, is away, reads no more and comes back. What was seen is printed in one line.
storm() {
    local storm_limit=$((SECONDS + ${3:-3600})) stops=$1 decoded=0 settings memory=()
    read -r -a settings <<< "${storm_settings[$2 % ${#storm_settings[@]}]}"
    [ "${#settings[@]}" -gt 0 ] || stops=$(((stops + 9) / 10))
    start_receiver
    options_for storm --publish-server "$address"
    printf '%s\n' networkagent.ps.reconnect.frequency=0 internal.probe.publishing.frequency=5 \
        networkagent.publish.frequency=5 "${settings[@]}" >> "$runtime/datacollector_test.properties"
    : > server.out
    mkfifo control
    exec 7<> control
    MALLOC_ARENA_MAX=1 "${runner[@]}" "$JAVA" "${options[@]}" -Xms128m -Xmx128m -XX:+AlwaysPreTouch -XX:+UseSerialGC \
        -cp "$APP" amtest.Storm "$stops" "$2" < control > server.out 2> server.err 7<&- &
    server=$!
    until said calm; do vex_receiver; done
    prove_work
    until said over; do vex_receiver; done
    note_memory
    echo go >&7
    judge_storm "$2"
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
    decoded=$((decoded + $(wc -l < records.json)))
    start_receiver "$address"
    while [ "$(grep -c '^stop' server.out)" -ge $((stops * (1 + 4 * ${#memory[@]}) / 10)) ] && [ "${#memory[@]}" -lt 2 ]; do
        note_memory
    done
}

# At a tenth, at half and at the end: what the server holds, without what its allocator keeps.
note_memory() {
    "$JAVA_BIN/jcmd" "$server" System.trim_native_heap > /dev/null 2>&1 || true
    memory+=("$(memory_kb 2> /dev/null || echo 0)")
}

prove_work() {
    said calm || return 0
    echo go >&7
    until said told; do sleep 0.1; done
    wait_until "the pages" eval '! alive || [ "$(grep -c "\"HttpEvent.begin\".*/proof" records.json)" -eq 20 ]'
    echo go >&7
}

judge_storm() {
    local status=0 reports seen
    wait "$server" || status=$?
    reports=$(grep -rhaE '(ERROR|WARNING|FATAL): [A-Za-z]*Sanitizer|runtime error: ' . || true)
    seen=$(tail -n 1 server.out)
    echo "seed $1: $seen, decoded $((decoded + $(wc -l < records.json))), sanitiser reports $(grep -c . <<< "$reports" || true), exit status $status," \
        "KB resident at 10 %, 50 %, 100 %: ${memory[*]}; $SECONDS s"
    [ -z "$reports" ] || fail "the sanitiser: $reports"
    [ "$status" -eq 5 ] || fail "exit status $status: $(head -n 3 server.err)"
    [[ $seen =~ ^stops\ [0-9]+\ requests\ [0-9]+\ faults\ 0\ back\ true$ ]] || fail "$seen"
    [ ! -s server.err ] || fail "on standard error: $(head -n 3 server.err)"
    [ -n "${preset:-}" ] || [ $((memory[2] - memory[1])) -lt $((8000 + 4 * stops)) ] || fail "it keeps memory: ${memory[*]} KB"
}

case_storm() { storm 40 "$RANDOM" 300; }
