# shellcheck shell=bash disable=SC2034,SC2154
# How a monitored process ends, and the collector's own stop and start while the server works.

# Every way to end gives the status that it gives without the agent, within the time that the stop is allowed.
ends_in() {
    local path=$1 status=$2 least=$3 most=$4 from
    options_for station
    start_station "${options[@]}"
    await_collector
    from=$SECONDS
    end_by "$path" "$status"
    [ $((SECONDS - from)) -ge "$least" ] || fail "ended after $((SECONDS - from)) s, the grace time is $least s"
    [ $((SECONDS - from)) -le "$most" ] || fail "ended after $((SECONDS - from)) s, at most $most s are allowed"
    expect_console server.out "${started[@]}"
}

case_main_returns() {
    ends_in '/return?0' 0 10 30
    expect_console server.err
}

case_main_throws() {
    ends_in '/throw?0' 1 10 30
    expect_console server.err \
        'Exception in thread "main" java.lang.IllegalStateException: thrown on purpose'
}

case_halted() {
    ends_in '/halt?5' 5 59 90
    expect_console server.err 'WARNING: Probe Manager is still alive!'
}

case_terminated() {
    options_for station
    start_station "${options[@]}"
    await_collector
    kill -TERM "$server"
    local status=0
    wait "$server" || status=$?
    [ "$status" -eq 143 ] || fail "exit status $status after SIGTERM"
    expect_line "$logs/dc-msg.log" 'INFO 1003 '
}

# A Publish Server that holds the connection and reads no more: the server works on, and ends in time.
case_ends_while_publish_server_stalls() {
    start_receiver
    options_for station --publish-server "$address"
    start_station "${options[@]}"
    await_collector
    wait_until 30 "the connection" received InitRecord
    kill -STOP "$receiver"
    get '/load?8' > /dev/null
    sleep 20
    get /state
    local from=$SECONDS
    end_by '/exit?3' 3
    [ $((SECONDS - from)) -le 30 ] || fail "ended after $((SECONDS - from)) s"
    expect_output "${started[@]}"
}

# An address where packets vanish.
case_ends_while_connecting() {
    options_for station --publish-server 192.0.2.1:9
    start_station "${options[@]}"
    await_collector
    sleep 3
    local from=$SECONDS
    end_by '/exit?3' 3
    [ $((SECONDS - from)) -le 30 ] || fail "ended after $((SECONDS - from)) s"
}

# A name service that does not answer: the agent waits for it, its end does not.
case_ends_while_resolving() {
    cat > resolver.c <<'END'
#define _GNU_SOURCE
#include <dlfcn.h>
#include <netdb.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
int getaddrinfo(const char *host, const char *service, const struct addrinfo *hints, struct addrinfo **list) {
    if (host != NULL && strcmp(host, "hangs.example") == 0 && (hints->ai_flags & AI_NUMERICHOST) == 0) {
        fclose(fopen("asked", "a"));
        for (;;) pause();
    }
    int (*real)(const char *, const char *, const struct addrinfo *, struct addrinfo **) =
        (int (*)(const char *, const char *, const struct addrinfo *, struct addrinfo **))dlsym(RTLD_NEXT, "getaddrinfo");
    return real(host, service, hints, list);
}
END
    cc -shared -fPIC -o resolver.so resolver.c -ldl || fail "the resolver of the case is wrong"
    options_for station --publish-server hangs.example:9
    runner=(env "LD_PRELOAD=$PWD/resolver.so")
    start_station "${options[@]}"
    await_collector
    wait_until 30 "the question" test -e asked
    local from=$SECONDS
    end_by '/exit?3' 3
    [ $((SECONDS - from)) -le 20 ] || fail "ended after $((SECONDS - from)) s"
    expect_output "${started[@]}"
}

# An interrupt that is pending neither shortens the stop nor gets lost, and the collector comes back.
case_interrupted_stop() {
    options_for station
    start_station "${options[@]}"
    local virtual taken
    for virtual in 0 1; do
        await_collector
        taken=$(get "/interrupted?$virtual")
        [ "$taken" -ge 9900 ] || fail "the stop of an interrupted thread took $taken ms"
        get '/cycle?1' > /dev/null
    done
    await_collector
    end_by '/exit?3' 3
    expect_output "${started[@]}"
}

# Threads come and go.
case_many_threads() {
    start_receiver
    options_for station --publish-server "$address"
    export MALLOC_ARENA_MAX=1
    start_station "${options[@]}" -XX:+AlwaysPreTouch
    await_collector
    wait_until 30 "the connection" received InitRecord
    local before requests
    [ "$(get '/threads?10000')" = 10000 ] || fail "the threads have not ended"
    before=$(memory_kb)
    [ "$(get '/threads?20000')" = 20000 ] || fail "the threads have not ended"
    sleep 2
    echo "$before KB, $(memory_kb) KB after 20000 more threads"
    [ "$(memory_kb)" -lt $((before + 12000)) ] || fail "20000 threads took $(($(memory_kb) - before)) KB"
    get /state | grep -q ' failures 0 ' || fail "natives have thrown: $(get /state)"
    requests=$(get /state | grep -oE '^requests [0-9]+' | grep -oE '[0-9]+$')
    end_by '/return?0' 0
    stop_receiver
    [ "$(value errors received.json)" -eq 0 ] || fail "the stream was broken"
    [ "$(grep -c '"name":"HttpEvent.begin"' records.json)" -eq "$requests" ] ||
        fail "$(grep -c '"name":"HttpEvent.begin"' records.json) begins of $requests requests arrived"
    expect_output "${started[@]}"
}

# virtual_streams: what each virtual thread has told, and how many told it: H and h are the ends of a page at depth 1,
# S and s those of a statement at depth 2, ? is anything else.
virtual_streams() {
    sed -nE 's/.*"name":"([^"]*)","thread":([0-9]+),"depth":([0-9]+),.*/\1 \2 \3/p' records.json | awk '
        BEGIN { sign["HttpEvent.begin1"] = "H"; sign["HttpEvent.end1"] = "h"
                sign["SQLEvent.begin2"] = "S"; sign["SQLEvent.end2"] = "s" }
        $2 >= 2147483648 { told[$2] = told[$2] (($1 $3) in sign ? sign[$1 $3] : "?") }
        END { for (thread in told) ++count[told[thread]]; for (stream in count) print count[stream], stream }'
}

# Virtual threads change what carries them within a request, and keep their number, their order and their nesting.
# monitored_virtual [property...]: a server under the agent and its Publish Server; false where the JVM has none.
monitored_virtual() {
    start_receiver
    options_for station --publish-server "$address"
    printf '%s\n' "$@" >> "$runtime/datacollector_test.properties"
    export MALLOC_ARENA_MAX=1
    start_station "${options[@]}" -Xcheck:jni
    await_collector
    wait_until 30 "the connection" received InitRecord
    [ "$(get '/virtual?1')" = 1 ] || { echo "this JVM has no virtual threads"; return 1; }
}

# expect_streams LINE...: after an end without failures.
expect_streams() {
    get /state | grep -q ' failures 0 ' || fail "natives have thrown: $(get /state)"
    end_by '/return?0' 0
    stop_receiver
    [ "$(virtual_streams | sort)" = "$(printf '%s\n' "$@" | sort)" ] ||
        fail "virtual threads have told: $(virtual_streams | sort -rn | head -n 4 | paste -sd ';')"
    expect_output "${started[@]}"
}

case_virtual_threads() {
    monitored_virtual internal.memory.limit=200 || return 0
    local empty waiting
    [ "$(get '/brief?20000')" = 20000 ] || fail "the threads have not ended"
    sleep 2
    empty=$(memory_kb)
    [ "$(get '/brief?100000')" = 100000 ] || fail "the threads have not ended"
    [ "$(get '/waiting?10000')" = 10000 ] || fail "the threads do not wait"
    waiting=$(memory_kb)
    echo "$empty KB, $waiting KB with 10000 waiting"
    [ "$waiting" -lt $((empty + 30000)) ] || fail "10000 waiting threads took $((waiting - empty)) KB"
    [ "$(get '/virtual?2000')" = 2000 ] || fail "the threads have not ended"
    [ "$(get '/release?0')" = 10000 ] || fail "the threads have not ended"
    [ "$(grep -c 'CPU clock' "$logs/dc-trace.log")" -eq 1 ] || fail "the missing clock is not told once"
    expect_streams '132001 HSsSsh'
}

# At that level nothing of a request is told but its frame, however many of them wait.
case_virtual_threads_at_level_1() {
    monitored_virtual internal.disable.nestedrequests=YES || return 0
    get '/waiting?2000' > /dev/null
    get '/virtual?2000' > /dev/null
    get '/release?0' > /dev/null
    expect_streams '4001 Hh'
}

# The collector's restart finds them waiting; those that end meanwhile leave nothing behind.
case_virtual_threads_restart() {
    monitored_virtual || return 0
    get '/waiting?2000' > /dev/null
    wait_until 30 "their statements" eval '[ "$(grep -c SQLEvent.begin records.json)" -ge 2002 ]'
    get '/cycle?1' > /dev/null
    wait_until 30 "the new connection" grep -q '"conn":2,.*"name":"PSStatusEvent"' records.json
    get '/virtual?500' > /dev/null
    get '/release?0' > /dev/null
    expect_streams '501 HSsSsh' '2000 HS???h'
}

# ended_with STATUS PID SECONDS: the process has the status within the time.
ended_with() {
    local status=0 deadline=$((SECONDS + $3))
    while kill -0 "$2" 2>/dev/null; do
        [ "$SECONDS" -lt "$deadline" ] || fail "process $2 has not ended after $3 s"
        sleep 0.2
    done
    wait "$2" || status=$?
    [ "$status" -eq "$1" ] || fail "exit status $status, expected $1"
}

# The end comes while the collector is still on its way up: at once, and by a signal at several moments. Not before
# the JVM itself is up: some end with a status of their own then, with or without an agent.
case_ends_while_starting() {
    options_for station
    local moment pid short=() killed=()
    for moment in 1 2 3 4; do
        "$JAVA" "${options[@]}" "${station_options[@]}" amtest.Station at-once > "out.$moment" 2> "err.$moment" &
        short+=("$!")
    done
    for moment in 0 0.01 0.03 0.1 0.3 0.6; do
        "$JAVA" "${options[@]}" "${station_options[@]}" amtest.Station > "out.$moment" 2> "err.$moment" &
        pid=$!
        killed+=("$pid")
        wait_until 60 "the JVM" grep -qs 'loaded Environment' "out.$moment"
        sleep "$moment"
        kill -TERM "$pid"
    done
    for pid in "${short[@]}"; do ended_with 0 "$pid" 45; done
    for pid in "${killed[@]}"; do ended_with 143 "$pid" 45; done
    # A JVM that dies while the agent initialises gives out no more monitors: told, and no harm.
    sed 's/## ERROR: JVMPI could not create a Raw Monitor//g' err.* > server.err
    expect_console server.err
}

memory_kb() { sed -n 's/^VmRSS:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$server/status"; }
