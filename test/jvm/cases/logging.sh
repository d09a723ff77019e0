# shellcheck shell=bash disable=SC2034,SC2154
# Log files, their language, and what can be changed while the server runs.

# A short life of a monitored station, started under the locale $1.
life_in() {
    export LANG=$1 LC_ALL=$1
    lonely_station
    serves
}

case_messages_in_english() {
    life_in C.UTF-8
    local text
    for text in 'INFO 1071 PropertyMgr started' 'INFO 1001 Native Custom Service initialized successfully' \
        'INFO 1066 NetworkAgentManager started' 'INFO 1046 EvtAgentManager started...' \
        'INFO 1072 Thread Manager started' 'INFO 1011 ProbeManager Started successfully' \
        'INFO 1004 Native Probe started successfully...' 'INFO 1005 Native Probe stopped successfully...' \
        'INFO 1003 Native Custom Service shutdown completes...'; do
        expect_line "$logs/dc-msg.log" "$text"
    done
    expect_line "$logs/dc-trace.log" 'Waiting DONE 10 secs'
}

case_messages_in_german() {
    life_in de_DE.UTF-8
    expect_line "$logs/dc-msg.log" 'INFO 1072 Thread Manager gestartet'
    expect_line "$logs/dc-msg.log" 'INFO 1003 Nativer Dienst vollständig heruntergefahren...'
}

# Levels change while the server runs; the monitoring level outlives it.
case_levels_at_run_time() {
    lonely_station
    ! grep -q ' entry' "$logs/dc-trace.log" || fail "traces of entries that nobody asked for"
    get '/log?21000' > /dev/null
    get '/work?10' > /dev/null
    wait_until "traces of entries" grep -q ' entry' "$logs/dc-trace.log"
    get '/log?24000' > /dev/null
    [ "$(get '/level?1003')" = 1 ] || fail "the level cannot be changed"
    [ "$(get '/level?3')" = 0 ] || fail "the level can be changed to what it is"
    [ "$(get '/level?4')" = 0 ] || fail "level 4 is accepted"
    end_by '/exit?0' 0
    collecting_station
    end_by '/exit?0' 0
    expect_line "$logs/dc-msg.log" 'INFO 1080 Using probe level 3'
}
