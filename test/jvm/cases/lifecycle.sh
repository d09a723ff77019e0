# shellcheck shell=bash disable=SC2034,SC2154
# How a monitored process ends, and the collector's own stop and start while the server works.

# ends_in PATH STATUS LEAST MOST: every way to end gives the status that it gives without the agent, within the seconds
# that the stop is allowed.
ends_in() {
    local path=$1 status=$2 least=$3 most=$4 from
    lonely_station
    from=$SECONDS
    end_by "$path" "$status"
    [ $((SECONDS - from)) -ge "$least" ] || fail "ended after $((SECONDS - from)) s, the grace time is $least s"
    [ $((SECONDS - from)) -le "$most" ] || fail "ended after $((SECONDS - from)) s, at most $most s are allowed"
    expect_console server.out "${started[@]}"
}

case_main_returns() {
    ends_in '/return?0' 0 10 59
    expect_console server.err
}

case_main_throws() {
    ends_in '/throw?0' 1 10 59
    expect_console server.err \
        'Exception in thread "main" java.lang.IllegalStateException: thrown on purpose'
}

case_halted() {
    ends_in '/halt?5' 5 59 120
    expect_console server.err 'WARNING: Probe Manager is still alive!'
}

case_terminated() {
    lonely_station
    kill -TERM "$server"
    ended_with 143 "$server"
    expect_console server.err
    expect_line "$logs/dc-msg.log" 'INFO 1003 '
}

# A Publish Server that holds the connection and reads no more: the server works on, and ends in time.
case_ends_while_publish_server_stalls() {
    connected_station
    kill -STOP "$receiver"
    get '/load?8' > /dev/null
    sleep 20
    get /state
    end_soon
    expect_output "${started[@]}"
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
    collecting_station
    wait_until "the question" test -e asked
    end_soon
    expect_output "${started[@]}"
}

# An interrupt that is pending neither shortens the stop nor gets lost, and the collector comes back.
case_interrupted_stop() {
    lonely_station
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
    export MALLOC_ARENA_MAX=1
    connected_station -XX:+AlwaysPreTouch
    local before requests
    [ "$(get '/threads?10000')" = 10000 ] || fail "the threads have not ended"
    before=$(memory_kb)
    [ "$(get '/threads?20000')" = 20000 ] || fail "the threads have not ended"
    wait_until "the memory that 20000 threads may leave" memory_below $((before + 12000))
    unharmed
    requests=$(requests)
    end_by '/return?0' 0
    stop_receiver
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
    export MALLOC_ARENA_MAX=1
    connected_station -Xcheck:jni -XX:+AlwaysPreTouch "$@"
    [ "$(get '/virtual?1')" = 1 ] || { echo "this JVM has no virtual threads"; return 1; }
}

# expect_streams LINE...: after an end without failures.
expect_streams() {
    unharmed
    end_by '/return?0' 0
    stop_receiver
    [ "$(virtual_streams | sort)" = "$(printf '%s\n' "$@" | sort)" ] ||
        fail "virtual threads have told: $(virtual_streams | sort -rn | head -n 4 | paste -sd ';')"
    expect_output "${started[@]}"
}

case_virtual_threads() {
    monitored_virtual internal.memory.limit=200 || return 0
    local empty
    [ "$(get '/brief?20000')" = 20000 ] || fail "the threads have not ended"
    wait_until "an empty queue" eval '[ "$(grep -c HttpEvent.end records.json)" -eq 20001 ]'
    empty=$(memory_kb)
    [ "$(get '/brief?100000')" = 100000 ] || fail "the threads have not ended"
    [ "$(get '/waiting?10000')" = 10000 ] || fail "the threads do not wait"
    wait_until "the memory that 10000 waiting threads may take" memory_below $((empty + 30000))
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
    wait_until "their statements" eval '[ "$(grep -c SQLEvent.begin records.json)" -ge 2002 ]'
    get '/cycle?1' > /dev/null
    wait_until "the new connection" grep -q '"conn":2,.*"name":"PSStatusEvent"' records.json
    get '/virtual?500' > /dev/null
    get '/release?0' > /dev/null
    expect_streams '501 HSsSsh' '2000 HS???h'
}

# ended_with STATUS PID...: each process ends by itself, with the status.
ended_with() {
    local expected=$1 pid status
    shift
    for pid in "$@"; do
        wait_until "the end of process $pid" eval "! kill -0 $pid 2> /dev/null"
        status=0
        wait "$pid" || status=$?
        [ "$status" -eq "$expected" ] || fail "exit status $status, expected $expected"
    done
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
        wait_until "the JVM" grep -qs 'loaded Environment' "out.$moment"
        sleep "$moment"
        kill -TERM "$pid"
    done
    ended_with 0 "${short[@]}"
    ended_with 143 "${killed[@]}"
    # A JVM that dies while the agent initialises gives out no more monitors: told, and no harm.
    sed 's/## ERROR: JVMPI could not create a Raw Monitor//g' err.* > server.err
    expect_console server.err
}
