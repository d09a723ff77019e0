# shellcheck shell=bash disable=SC2034,SC2154
# Starts and stops from eight threads at random, under 64 threads of requests.

# storm STOPS SEED: the server must end with its own status, having met no fault, while its Publish Server comes and goes.
storm() {
    start_receiver
    local port=${address#*:}
    options_for storm --publish-server "$address"
    printf '%s\n' internal.probe.stop.wait=20 networkagent.ps.reconnect.frequency=0 \
        >> "$runtime/datacollector_test.properties"
    : > server.out
    "${runner[@]}" "$JAVA" "${options[@]}" -Xms128m -Xmx128m -XX:+AlwaysPreTouch -XX:+UseSerialGC -cp "$APP" amtest.Storm "$1" "$2" \
        > server.out 2> server.err &
    server=$!
    local status=0 memory=0 round=0
    while kill -0 "$server" 2> /dev/null; do
        sleep 3
        kill_receiver
        start_receiver "127.0.0.1:$port"
        round=$((round + 1))
        [ "$round" -ne 3 ] || memory=$(memory_kb 2> /dev/null || echo 0)
        last=$(memory_kb 2> /dev/null || echo "$last")
        [ "$SECONDS" -lt "${STORM_LIMIT:-3600}" ] || { kill -QUIT "$server" && sleep 5 && fail "it hangs"; }
    done
    wait "$server" || status=$?
    echo "$(tail -n 1 server.out); $memory KB after 9 s, $last KB at the end"
    [ "$status" -eq 5 ] || fail "exit status $status: $(head -n 3 server.err)"
    grep -qE '^stops [0-9]+ requests [0-9]+ faults 0 back true$' server.out || fail "$(tail -n 1 server.out)"
    [ ! -s server.err ] || fail "on standard error: $(head -n 3 server.err)"
}

case_storm() { STORM_LIMIT=$((SECONDS + 200)) storm 40 "$RANDOM"; }
