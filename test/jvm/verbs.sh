# shellcheck shell=bash disable=SC2034,SC2154
# The verbs of the whole-process tests. A case is a function that runs in a process and a directory of its own; the
# first verb that finds something wrong prints one line and ends the case. Given from outside: HOME_AM (the install
# tree), APP (classes of the test server), SHOP (target directory of the shop), JAVA, and JAVA_BIN of the compiler's
# JDK.

runner=() # what stands in front of the server's java, such as a change of user

# What the case has left running, and nothing else: a number that has been freed may be somebody else's.
finish_case() {
    local pid
    for pid in $(jobs -rp); do
        kill -KILL "$pid" 2>/dev/null || true
    done
}

fail() {
    echo "FAULT: $*" >&2
    exit 1
}

# wait_until WHAT COMMAND...: so long that only a fault gets there, however busy the machine is.
wait_until() {
    local deadline=$((SECONDS + 150)) what=$1
    shift
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || fail "waited in vain for $what"
        sleep 0.05
    done
}

# ---- Publish Server

# start_receiver [HOST:PORT] [option...]: sets `receiver` and `address`. Statistics end up in received.json, records in
# records.json.
start_receiver() {
    : > receiver.err
    "$HOME_AM/bin/publish-server" --listen "${1:-127.0.0.1:0}" --json --stats-file received.json \
        "${@:2}" > records.json 2> receiver.err &
    receiver=$!
    wait_until "the Publish Server" grep -q 'listening on' receiver.err
    address=$(grep -oE '127\.0\.0\.1:[0-9]+' receiver.err | head -n 1)
}

kill_receiver() {
    kill -KILL "$receiver"
    wait "$receiver" 2>/dev/null || true
}

# Its streams must have been whole, unless a fault may have broken one: `broken`.
stop_receiver() {
    kill -INT "$receiver"
    wait "$receiver" || fail "the Publish Server ended with status $?"
    [ "${broken:-no}" = yes ] || [ "$(value errors received.json)" -eq 0 ] || fail "the stream was broken"
}

received() { grep -q "\"name\":\"$1\"" records.json; }

# ---- monitored server

# options_for SERVER [am-options argument...]: sets `options`, and `runtime`, which gets the samples with lively pauses.
options_for() {
    local server=$1
    shift
    mapfile -t options < <("$HOME_AM/bin/am-options" "$server" --node node --data "$PWD/data" "$@")
    [ "${#options[@]}" -gt 0 ] || fail "am-options prints nothing"
    runtime=$PWD/data/runtime/server.node.$server
    logs=$PWD/data/ZYK/logs/node.$server
    mkdir -p "$runtime"
    cp "$HOME_AM"/etc/*.properties "$runtime"
    printf '%s\n' networkagent.ps.reconnect.frequency=1000 networkagent.publish.frequency=50 \
        internal.probe.publishing.frequency=200 > "$runtime/datacollector_test.properties"
}

station_options=(-Xms48m -Xmx48m -XX:+UseSerialGC -cp "$APP")

# start_station [JVM option...]: the small server; sets `server` and `url`.
start_station() {
    listen_on station "$JAVA" "$@" "${station_options[@]}" amtest.Station
}

# start_shop [JVM option...]: the servlet application on its database.
start_shop() {
    listen_on shop "$JAVA" "$@" -Xmx192m -XX:+UseSerialGC \
        -cp "$SHOP/shop.jar:$SHOP/lib/*:$HOME_AM/java/am-servlet.jar" demo.shop.Main
}

monitored_shop() {
    start_shop "${options[@]}" -Dshop.wait.probe=true -Dshop.jdbc.prefix=jdbc:am: \
        -Dshop.filter=com.zykora.probe.servlet.JakartaRequestFilter "$@"
}

listen_on() {
    local name=$1
    shift
    : > server.out
    "${runner[@]}" "$@" > server.out 2> server.err &
    server=$!
    wait_until "the server to listen" has_begun
    url=http://127.0.0.1:$(sed -n "s/^$name listening on //p" server.out)
}

has_begun() {
    grep -q 'listening on [0-9]' server.out && return
    kill -0 "$server" 2>/dev/null || fail "the server has not come up: $(tail -n 5 server.err)"
    return 1
}

get() { curl -fsS --max-time 300 "$url$1"; }

# end_by PATH STATUS: how the station shall end, and what its exit status must be.
end_by() {
    local status=0
    get "$1" > /dev/null || fail "$1 is not answered"
    wait "$server" || status=$?
    [ "$status" -eq "$2" ] || fail "exit status $status after $1, expected $2"
}

# end_soon [STATUS]: as soon as the stop of the collector allows, whatever stands still.
end_soon() {
    local from=$SECONDS
    end_by "/exit?${1:-3}" "${1:-3}"
    [ $((SECONDS - from)) -lt 60 ] || fail "ended after $((SECONDS - from)) s"
}

unharmed() { get /state | grep -q ' failures 0 ' || fail "natives have thrown: $(get /state)"; }
requests() { get /state | grep -oE '^requests [0-9]+' | grep -oE '[0-9]+$'; }

# Some work, and the end with a status of its own: what an unharmed server does.
serves() {
    [ "$(get '/work?200')" = 200 ] || fail "the work was not done"
    unharmed
    end_by '/exit?7' 7
}

enabled() { [ "$(get '/enabled?0' 2>/dev/null)" = 1 ]; }

# collecting_station [JVM option...]: under the agent with `options`.
collecting_station() {
    start_station "${options[@]}" "$@"
    await_collector
}
await_collector() { wait_until "the collector to take events" enabled; }

# lonely_station [JVM option...]: with a collector, which finds no Publish Server.
lonely_station() {
    options_for station --publish-server 127.0.0.1:1
    collecting_station "$@"
}

# connected_station [SETTING | -JVM option]...: with a collector that is connected to a Publish Server.
connected_station() {
    start_receiver
    options_for station --publish-server "$address"
    local word jvm=()
    for word in "$@"; do
        case $word in -*) jvm+=("$word") ;; *) echo "$word" >> "$runtime/datacollector_test.properties" ;; esac
    done
    collecting_station "${jvm[@]}"
    wait_until "the connection" received InitRecord
}

memory_kb() { sed -n 's/^VmRSS:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$server/status"; }
memory_below() { [ "$(memory_kb)" -lt "$1" ]; }

stop_shop() {
    local status=0
    curl -fsS -X POST "$url/admin/stop" > /dev/null
    wait "$server" || status=$?
    [ "$status" -eq 0 ] || fail "the shop ended with status $status"
}

# drive [option...]: real traffic for the shop; every answer must be right. The result stands in driver.json.
drive() {
    "$JAVA_BIN/java" -Xmx96m -XX:+UseSerialGC -cp "$SHOP/shop.jar" demo.load.Main --url "$url" --threads 8 \
        --report driver.json "$@" > driver.out 2> driver.err ||
        fail "wrong or lost answers: $(tail -n 1 driver.out)"
}

# value KEY FILE: the first number or word under a key of a JSON text.
value() { grep -oE "\"$1\": ?\"?[0-9a-f.]+" "$2" | head -n 1 | grep -oE '[0-9a-f.]+$'; }

# ---- what a server has printed

# The server's console without its own line, and without what the JVM adds to an exception.
console() { grep -vE '^(station|shop) listening on |^[[:space:]]+at |^Picked up ' "$1" || true; }

# expect_console FILE [LINE...]: exactly these lines.
expect_console() {
    local file=$1
    shift
    [ "$(console "$file")" = "$(printf '%s\n' "$@")" ] ||
        fail "$file holds something else: $(diff <(printf '%s\n' "$@") <(console "$file") | head -n 6)"
}

# expect_output [LINE...]: on standard output; standard error must be empty.
expect_output() {
    expect_console server.out "$@"
    expect_console server.err
}

expect_line() { grep -qF -- "$2" "$1" || fail "no '$2' in $1"; }
