# shellcheck shell=bash disable=SC2034,SC2154
# Limits of memory, as seen from outside. Between two rounds of the event agent, two seconds or more, the work of twelve
# threads passes each of them.

# governed SETTING...: a station under small limits, with work in progress. The turbo limits are 8 and 7 MB, of which 4.5
# are fixed and a full network queue takes 5: turbo mode lasts while the Publish Server stands still.
governed() {
    connected_station internal.probe.event.packet.size=500 internal.memory.limit=40 turbo.mem.ulimit=0.2 \
        turbo.mem.llimit=0.175 internal.probe.publishing.frequency=2000 \
        internal.probe.event.queue.size.limit=20000 internal.probe.queue.wakeup=false "$@"
    priorities_are normal 705
    get '/load?8' > /dev/null
    get '/slow?4' > /dev/null
}

logged() { grep -cF -- "$2" "$logs/$1" || true; }
more_logged() { [ "$(logged "$1" "$2")" -gt "$3" ]; }
priorities() { [ "$(get '/priorities?0')" = "$1" ]; }
priorities_are() { wait_until "priorities of $1 mode" priorities "$2"; }

turbo_modes() { logged dc-trace.log 'Switching to Turbo Mode'; }
turbo_has_ended() { [ "$(logged dc-trace.log 'Switching to Normal Mode')" -eq "$(turbo_modes)" ]; }

# in_turbo COMMAND...: turbo mode in which the command holds, brought about by a Publish Server that stands still. It is
# left by itself after a second in which nothing is taken, so a slow look may find it over: then once more.
in_turbo() {
    local deadline=$((SECONDS + 240))
    while [ "$SECONDS" -lt "$deadline" ]; do
        kill -STOP "$receiver"
        ! "$@" || return 0
        leave_turbo
    done
    fail "no turbo mode in which $* holds"
}

# Lets the Publish Server go on, until as many turbo modes have ended as have begun.
leave_turbo() {
    kill -CONT "$receiver"
    wait_until "the end of turbo mode" turbo_has_ended
}

# Who does not wait goes on, though nothing is recorded.
is_refused() { [ "$(get '/during?1008')" -gt 20 ]; }

# Every thread of the load is at the gate.
is_held() { [ "$(get '/during?1008')" -eq 0 ]; }

goes_on() { [ "$(requests)" -gt "$1" ]; }

# each_figure FILE TEXT CONDITION: the memory that each line with TEXT tells meets the condition, such as '>= 7'.
each_figure() {
    [ "$(logged "$1" "$2")" -gt 0 ] || fail "no '$2' in $1"
    local figure
    for figure in $(grep -F -- "$2" "$logs/$1" | sed -E 's/.*(memory taken|Utilization): ([0-9]+).*/\2/'); do
        awk -v f="$figure" "BEGIN { exit !(f $3) }" || fail "$2 at $figure, not $3"
    done
}

# The threads that have marked a gap, a line for each mark.
marks() { grep '"name":"DroppedEvent".*"otherStarts":0.*"sqlStarts":0,' records.json | grep -oE '"thread":[0-9]+' || true; }
marked_threads() { [ "$(marks | sort -u | wc -l)" -ge "$1" ]; }

# at_most_a_mark_each GAPS
at_most_a_mark_each() {
    [ "$(marks | sort | uniq -c | awk '$1 > most { most = $1 } END { print most }')" -le "$1" ] ||
        fail "more marks than $1 gaps: $(marks | sort | uniq -c | tr '\n' ' ')"
}

end_governed() {
    unharmed
    end_by '/exit?3' 3
    stop_receiver
    expect_output "${started[@]}"
}

# New requests are refused, once a thread with a mark; those under way wait at the gate and end whole.
case_turbo_refuses_new_requests() {
    governed
    local turn
    for turn in $(seq 20); do # a thread that is not scheduled meanwhile gets no mark
        in_turbo is_refused
        leave_turbo
        priorities_are normal 705
        ! marked_threads 8 || break
    done
    wait_until "a mark of each fast thread" marked_threads 8
    each_figure dc-trace.log 'Switching to Turbo Mode' '>= 8000000'
    [ "$(logged dc-msg.log ' 1054 ')" -eq 0 ] || fail "the limit was reached, not only turbo mode"
    end_governed
    at_most_a_mark_each "$(turbo_modes)"
}

# With `turbomode.allownew` off every thread waits, and nothing is refused.
case_turbo_holds_all_threads() {
    governed turbomode.allownew=false
    local before
    in_turbo is_held
    before=$(requests)
    leave_turbo
    wait_until "requests after turbo mode" goes_on "$before"
    priorities_are normal 705
    each_figure dc-trace.log 'Switching to Turbo Mode' '>= 8000000'
    end_governed
    [ "$(marks | wc -l)" -eq 0 ] || fail "$(marks | wc -l) marks, although nothing was refused"
}

# Whoever waits at the gate gets out, whatever ends turbo mode.
case_stopped_while_threads_wait() {
    governed turbomode.allownew=false
    in_turbo is_held
    [ "$(get '/cycle?1')" = 1 ] || fail "the collector has not come back"
    kill -CONT "$receiver"
    await_collector
    local before
    before=$(requests)
    wait_until "requests after the stop" goes_on "$((before + 100))"
    end_governed
}

case_ends_while_threads_wait() {
    governed turbomode.allownew=false
    in_turbo is_held
    end_soon
    expect_output "${started[@]}"
}

# The accept control alone: no thread waits; each marks a gap in its stream once.
case_limit_without_turbo() {
    governed dc.turbomode.enabled=false internal.memory.limit=8 internal.memory.accept.threshold=1
    kill -STOP "$receiver"
    wait_until "the limit" more_logged dc-msg.log ' 1054 ' 0
    wait_until "requests of all threads" goes_on $(($(requests) + 1000))
    kill -CONT "$receiver"
    wait_until "the way back" more_logged dc-msg.log ' 1055 ' 0
    wait_until "a mark of each thread" marked_threads 12
    each_figure dc-msg.log ' 1054 ' '>= 8000000'
    each_figure dc-msg.log ' 1055 ' '<= 7000000'
    [ "$(logged dc-trace.log 'Switching to')" -eq 0 ] || fail "turbo mode, although it is off"
    end_governed
    at_most_a_mark_each "$(logged dc-msg.log ' 1054 ')"
}
