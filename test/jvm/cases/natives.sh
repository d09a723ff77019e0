# shellcheck shell=bash disable=SC2034,SC2154
# Natives that leave something behind for the next connection or the next process.

# tokens FILE: 16 threads with 195 tokens each, into that file; the first one stands in `first`. Not a multiple of the
# cushion: the number that the counter file holds is given out without a look at the file, and so once more later.
tokens() {
    local status=0
    "$JAVA" "${options[@]}" -XX:+UseSerialGC -Xmx64m -cp "$APP" amtest.Tokens 101 16 195 > server.out 2> server.err || status=$?
    [ "$status" -eq 0 ] || fail "exit status $status: $(tail -n 3 server.err)"
    grep -E '^[0-9a-f]{8}$' server.out > "$1"
    [ "$(wc -l < "$1")" -eq 3121 ] || fail "not all tokens: $(tail -n 1 "$1")"
    first=$(head -n 1 "$1")
}

case_tokens() {
    options_for tokens --publish-server 127.0.0.1:1
    echo internal.probe.stop.wait=0 >> "$runtime/datacollector_test.properties"
    local counter=$runtime/zykoraGpsCounter.txt
    tokens one
    [ "$first" = a0000000 ] || fail "the first token is $first"
    [ "$(cat "$counter")" -ge 3120 ] || fail "the file holds $(cat "$counter")"
    tokens two
    [ -z "$(sort one two | uniq -d)" ] || fail "tokens come twice: $(sort one two | uniq -d | head -n 3)"
    ! grep -v '^[ab]' one two || fail "the region is lost"
    echo -n 1000 > "$counter"
    tokens three
    [ "$first" = a00003e8 ] || fail "the first token is $first"
    echo "no number" > "$counter"
    tokens four
    [ "$first" = a0000000 ] || fail "the first token after a broken file is $first"
    rm "$counter"
    mkdir "$counter"
    tokens five
    [ -z "$(sort five | uniq -d)" ] || fail "tokens come twice without a file"
}

# The names of a portal's methods and the traced classes go out again on each new connection.
case_names_after_reconnect() {
    start_receiver
    options_for station --publish-server "$address"
    collecting_station
    wait_until "the connection" received InitRecord
    get '/names?3' > /dev/null
    wait_until "the classes" received ClassEvent.unload
    kill_receiver
    start_receiver "$address"
    wait_until "the names" eval '[ "$(grep -c "\"name\":\"PortalMethodConstantEvent\"" records.json)" -ge 4 ]'
    serves
    stop_receiver
    [ "$(grep -o '"methodId":.*"methodName":"[^"]*"' records.json | sort -u | tr '\n' ' ')" = \
        '"methodId":1,"methodName":"render 1" "methodId":2,"methodName":"render 2" "methodId":3,"methodName":"" ' ] ||
        fail "other names: $(grep PortalMethodConstantEvent records.json | tail -n 4)"
    [ "$(grep -o '"class":.*' records.json)" = '"class":"shop/Kept","methodIds":[1],"methods":["m()V"]}' ] ||
        fail "other classes: $(grep '"class":' records.json)"
}

# collections OPTION...: what a JVM with this collector reports of collections that were asked for.
collections() {
    station_options=(-Xms64m -Xmx64m "$@" -cp "$APP")
    start_receiver
    options_for station --publish-server "$address"
    collecting_station
    wait_until "the connection" received InitRecord
    wait_until "three collections" eval 'get "/collect?1" > /dev/null
        [ "$(grep -c "\"name\":\"GCEvent.end\"" records.json)" -ge 3 ]'
    serves
    stop_receiver
    local begins ends
    begins=$(grep -c '"name":"GCEvent.begin"' records.json)
    ends=$(grep -c '"name":"GCEvent.end"' records.json)
    [ "$begins" -eq "$ends" ] || fail "$begins begins, $ends ends"
    grep '"name":"GCEvent' records.json | tr -d '"{}' | tr ',' '\n' | awk -F: '
        $1 == "timeSec" { sec = $2 }
        $1 == "timeUSec" { time = sec * 1000 + $2 / 1000 }
        $1 == "name" { isEnd = $2 == "GCEvent.end" }
        $1 == "timeUSec" && isEnd && time < begun { print "ends before it begins" }
        $1 == "timeUSec" && !isEnd { begun = time }
        $1 == "usedObjectSpace" { used = $2 }
        $1 == "totalObjectSpace" && !(used > 100000 && used <= $2 && $2 <= 70000000) { print used, $2 }
    ' > odd
    [ ! -s odd ] || fail "odd figures: $(head -n 1 odd)"
    [ "$(sed -n 's/.*"name":"GCEvent.begin".*"timeSec":\([0-9]*\).*/\1/p' records.json | tail -n 1)" -ge $(($(date +%s) - 300)) ] ||
        fail "another clock"
}

case_collections_serial() { collections -XX:+UseSerialGC; }
case_collections_parallel() { collections -XX:+UseParallelGC; }
case_collections_g1() { collections -XX:+UseG1GC; }
case_collections_z() { collections -XX:+UseZGC; }
