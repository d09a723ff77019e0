# shellcheck shell=bash disable=SC2034,SC2154
# Real traffic on the servlet application.

# What was sent is what arrives, and the server answers and ends as it does without the agent.
case_counts() {
    start_shop
    drive --requests 600
    stop_shop
    local plain
    plain=$(value checksum driver.json)

    start_receiver
    options_for shop --publish-server "$address"
    monitored_shop
    drive --requests 600
    stop_shop
    stop_receiver
    [ "$(value checksum driver.json)" = "$plain" ] || fail "the agent changes the answers"
    "$TOOLS/compare-counts" driver.json received.json 2> /dev/null > differences || fail "$(head -n 1 differences)"
    expect_console server.out "${started[@]}"
    ! grep -q '^##\|Exception' server.err || fail "the collector complains: $(cat server.err)"
}

# The slowest of requests that are sent one by one for SECONDS, in whole milliseconds.
slowest_request() {
    local end=$((SECONDS + $1))
    while [ "$SECONDS" -lt "$end" ]; do
        curl -fsS -o /dev/null --max-time 60 -w '%{time_total}\n' "$url/item?id=7" || echo 999
        sleep 0.1
    done | awk '$1 > most { most = $1 } END { printf "%d\n", most * 1000 }'
}

# Nobody has waited for the Publish Server, though a busy machine makes all of them slow.
nobody_waited() {
    local slow
    for slow in $(cat slowest) $(grep -oE '"p95Ms":[0-9]+' driver.json | grep -oE '[0-9]+$'); do
        [ "$slow" -lt 10000 ] || fail "a request took $slow ms"
    done
}

# The Publish Server dies without a word and comes back on its port.
case_publish_server_killed() {
    start_receiver
    options_for shop --publish-server "$address"
    monitored_shop
    slowest_request 20 > slowest &
    local sampler=$!
    drive --seconds 20 &
    local traffic=$!
    wait_until "records" received HttpEvent.begin
    kill_receiver
    sleep 6
    start_receiver "$address"
    wait_until "records on the new connection" eval 'get "/item?id=7" > /dev/null; received SQLEvent.end'
    wait "$traffic" || fail "a request failed"
    wait "$sampler"
    nobody_waited
    stop_shop
    stop_receiver
    [ "$(head -n 2 records.json | grep -oE '"name":"(InitRecord|J2EEInitRecord)"' | tr '\n' ' ')" = \
        '"name":"InitRecord" "name":"J2EEInitRecord" ' ] || fail "no initial block: $(head -n 2 records.json)"
    [ "$(value connections received.json)" -eq 1 ] || fail "not one new connection"
}

case_publish_server_never_there() {
    options_for shop --publish-server 127.0.0.1:1
    monitored_shop
    slowest_request 10 > slowest &
    local sampler=$!
    drive --requests 2000
    wait "$sampler"
    nobody_waited
    stop_shop
    expect_line "$logs/dc-msg.log" 'ERROR 1059 socket connect() failure [127.0.0.1:1] Errno: 111'
    expect_line "$logs/dc-msg.log" 'ERROR 1064 Failed to connect to PS socket'
}

# differential SEED CALLS SETTING...: whatever is called, a receiver gets what was to be expected, byte by byte.
differential() {
    local seed=$1 calls=$2
    shift 2
    start_receiver 127.0.0.1:0 --capture "$PWD/capture"
    options_for differential --publish-server "$address"
    printf '%s\n' internal.url.limit=60 internal.sql.limit=80 "$@" >> "$runtime/datacollector_test.properties"
    local suppresses=NO status=0
    [[ "$*" != *nestedrequests=YES* ]] || suppresses=YES
    "$JAVA" "${options[@]}" "${checks[@]}" -Xmx128m -XX:+UseSerialGC -cp "$APP" amtest.Differential "$calls" "$seed" 60 80 $suppresses \
        expected > server.out 2> server.err || status=$?
    [ "$status" -eq 3 ] || fail "exit status $status: $(tail -n 3 server.err)"
    stop_receiver
    ! grep -A 4 'WARNING\|FATAL' server.out || fail "the JVM complains of a native: $(grep -m 1 'WARNING\|FATAL' server.out)"
    "$JAVA" -Xmx512m -cp "$APP" amtest.Differential compare capture/* expected 2> difference ||
        fail "seed $seed, $*: $(grep -m 1 -A 2 Exception difference | cut -c 1-2000)"
}

# AM_CALLS=100000 and AM_SEED make more of it by hand.
checks=()

case_every_byte() { differential "${AM_SEED:-$RANDOM}" "${AM_CALLS:-20000}" ea.popevent.size=1; }

# Under the JVM's own checks of what natives do.
case_every_byte_without_nested() {
    checks=(-Xcheck:jni)
    differential "${AM_SEED:-$RANDOM}" "${AM_CALLS:-20000}" ea.popevent.size=7 internal.disable.nestedrequests=YES
}
