# shellcheck shell=bash disable=SC2034,SC2154
# Whatever becomes of an event that was begun: it is decoded, or the Publish Server is told that it is lost.

# accountable SETTING...: a connected station.
accountable() {
    connected_station "$@"
    begun=0
}

# works REQUESTS: each of them has two statements, so three begins and three ends.
works() {
    [ "$(get "/work?$1")" = "$1" ] || fail "the work was not done"
    begun=$((begun + 6 * $1))
}

# Sets `decoded` and `told`, over all Publish Servers of the case.
count_events() {
    decoded=$(cat records*.json | grep -cE '"name":"(HttpEvent|SQLEvent)\.(begin|end)"') || true
    told=$(cat records*.json | grep '"name":"DroppedEvent"' | grep -oE '"(other|method|sql)(Starts|Ends)":[0-9]+' |
        awk -F: '{ sum += $2 } END { print sum + 0 }') || true
}
balanced() { count_events && [ $((decoded + told)) -eq "$begun" ]; }
nothing_missing() { count_events && [ $((decoded + told)) -ge "$begun" ]; }

# all_told CONDITION
all_told() {
    wait_until "the account, $1" "$1"
    echo "$begun begun, $decoded decoded, $told told"
}

# A new Publish Server at the old address; the records of the old one stay.
restart_receiver() {
    "$1"
    mv records.json "records-$SECONDS.json"
    start_receiver "$address"
}

end_accountable() {
    unharmed
    end_by '/exit?3' 3
    stop_receiver
}

# A receiver that does not read, until packets are refused.
case_lost_at_a_full_packet_queue() {
    accountable networkagent.buffer.limit=3 internal.probe.event.packet.size=100
    kill -STOP "$receiver"
    local turn
    for turn in $(seq 400); do
        works 500
        [ "$(grep -c ' 1057 ' "$logs/dc-msg.log")" -lt 5 ] || break
    done
    grep -q ' 1057 ' "$logs/dc-msg.log" || fail "the queue was never full"
    works 100
    kill -CONT "$receiver"
    all_told balanced
    [ "$told" -gt 0 ] || fail "nothing was lost"
    end_accountable
}

case_lost_at_a_full_thread_queue() {
    accountable internal.probe.event.queue.size.limit=500
    local turn
    for turn in $(seq 5); do
        works 5000
    done
    all_told balanced
    [ "$told" -gt 1000 ] || fail "only $told events were lost"
    end_accountable
}

# After the second restart the traffic may come before the agent has looked at its connection.
case_publish_server_restarted_while_idle() {
    accountable
    works 300
    all_told balanced
    restart_receiver stop_receiver
    wait_until "the new connection, with no traffic" received InitRecord
    works 300
    all_told balanced
    [ "$told" -eq 0 ] || fail "$told events were lost"
    restart_receiver stop_receiver
    works 300
    all_told balanced
    end_accountable
}

# At the shipped settings an event agent looks every four seconds, where little was sent. 1500 events are more than a
# quarter of what a queue may hold, so that it looks at once.
case_keeps_up_by_itself() {
    start_receiver
    options_for station --publish-server "$address"
    rm "$runtime/datacollector_test.properties"
    collecting_station
    begun=$((20 * 1500))
    local taken
    taken=$(get '/taken?20')
    echo "20 turns took $taken ms"
    [ "$taken" -lt 40000 ] || fail "20 turns took $taken ms"
    all_told balanced
    [ "$told" -eq 0 ] || fail "$told events were lost"
    end_accountable
}

# In the socket of the Publish Server.
something_is_unread() {
    awk -v port="$(printf ':%04X$' "${address#*:}")" \
        '$2 ~ port && $5 !~ /:00000000$/ && $4 == "01" { found = 1 } END { exit !found }' /proc/net/tcp
}

# What lies unread in the dead connection is told, and perhaps what was read just before.
case_killed_with_packets_under_way() {
    accountable
    works 300
    all_told balanced
    kill -STOP "$receiver"
    works 600
    wait_until "a packet under way" something_is_unread
    restart_receiver kill_receiver
    works 300
    all_told nothing_missing
    [ "$told" -gt 0 ] || fail "nothing was told"
    expect_line "$logs/dc-trace.log" 'Connection lost with packets under way, possibly lost:'
    end_accountable
}
