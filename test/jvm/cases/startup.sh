# shellcheck shell=bash disable=SC2034,SC2154
# The outcomes of the agent's start, and configurations that are missing or broken. Whatever it meets, the server
# serves and keeps its exit status.

reading_environment='## PropertyMgr::initialize() Calling  defineEnvMethodId.......'
environment_loaded='## PropertyMgr::initialize() loaded Environment Variables'
started=("$reading_environment" "$environment_loaded")

# serves_idle [JVM option...]: the collector stays off, and nothing is to be seen of it.
serves_idle() {
    start_station "$@"
    sleep 2
    ! enabled || fail "the collector takes events"
    serves
}

# serves_busy [JVM option...]: it takes events, wherever it may get rid of them.
serves_busy() {
    collecting_station "$@"
    serves
}

# serves_fully [SETTING | -JVM option]...: each request arrives once.
serves_fully() {
    connected_station "$@"
    serves
    stop_receiver
    [ "$(grep -c '"name":"HttpEvent.begin"' records.json)" -eq 200 ] || fail "requests are missing or doubled"
}

case_inert() {
    options_for station
    export AM_DC_ENABLED=False
    serves_idle "${options[@]}"
    expect_output
    unset AM_DC_ENABLED
    serves_idle "${options[@]}" -DNORAK_DC_ENABLED=true -DNORAK_DC_ENABLED=FALSE
    expect_output
    [ ! -e data/ZYK ] || fail "logs of an agent that is off"
}

case_hollow() {
    options_for station
    serves_idle "${options[@]/libam_qel_16.so=/libam_qel_16.so=disableDC,}"
    expect_output
    [ ! -e data/ZYK ] || fail "logs of an agent that is off"
}

case_running() {
    serves_fully
    expect_output "${started[@]}"
}

case_heap_dump_off_and_debugger_pause() {
    options_for station
    options=("${options[@]/libam_qel_16.so=/libam_qel_16.so=am.debug=on,}")
    export AM_HEAPDUMP=0
    serves_busy
    expect_output '## Sleeping for 30 seconds ' '## Heap dump is disabled.' "${started[@]}"
}

# The same option twice, as a start script and an environment variable may give it together.
case_loaded_twice() {
    options_for station
    serves_fully "${options[0]}"
    expect_output "${started[@]}"
}

# The options in the environment, and in a file; there the switch is seen by the Java half only.
case_options_from_elsewhere() {
    options_for station
    local given=("${options[@]}")
    export JAVA_TOOL_OPTIONS="${given[*]}"
    options=()
    serves_busy
    unset JAVA_TOOL_OPTIONS
    expect_output "${started[@]}"
    expect_line "$logs/dc-msg.log" 'INFO 1003 '

    printf '"%s"\n' "${given[@]}" -DNORAK_DC_ENABLED=false > options
    serves_idle @options
    expect_output "${started[@]}" \
        '## zykora: Datacollector is disabled. Check value of the NORAK_DC_ENABLED property'
}

# A debugger's agent and a flight recording in the same JVM.
case_beside_other_agents() {
    serves_fully -agentlib:jdwp=transport=dt_socket,server=y,suspend=n,address=127.0.0.1:0 -XX:StartFlightRecording
    expect_console server.err
}

# The JVM itself watches how its interface is used, over a whole life with traces and a stop and start.
case_checked_by_the_jvm() {
    connected_station -Xcheck:jni
    get '/log?21000' > /dev/null
    get '/level?1003' > /dev/null
    get '/cycle?1' > /dev/null
    serves
    stop_receiver
    expect_output "${started[@]}"
}

# ---- configuration

# Nothing but the library: its helpers are not there, and it stays dormant.
case_library_alone() {
    serves_idle "-agentpath:$HOME_AM/lib/libam_qel_16.so"
    expect_console server.out \
        '## PropertyMgr::initialize() Could not load RuntimeBuilder Class; Dynamic Runtime Build will not be attempted' \
        '## loadEnvProperties failed.' \
        '## PropertyMgr::initialize() could not load Environment Variables' \
        '## PropertyMgr::initialize() error during initialization' \
        '## PropertyMgr::initialize() NORAK will be disabled'
}

no_logging() {
    echo "WARN: Could not open Toolkit. please check if lgkit property file $1/etc/zyk-lgkit.properties exists." \
        "Trying $2/etc/zyk-lgkit.properties "
    echo "ERROR: Could not open Toolkit. please check if lgkit property file $2/etc/zyk-lgkit.properties exists. "
}

case_no_properties_at_all() {
    options=()
    serves_busy "-agentpath:$HOME_AM/lib/libam_qel_16.so" "-Xbootclasspath/a:$HOME_AM/java/am-probe.jar"
    mapfile -t silent < <(no_logging '' /zykora)
    expect_output "${started[@]}" "${silent[@]}"
}

# A station of a user who is not root, from a tree of its own.
as_plain_user() {
    own_tree tree
    options_for station
    run_as_plain_user
}

# A directory that nobody may enter.
case_unreadable_directory() {
    as_plain_user
    chmod 000 "$runtime"
    serves_busy
    chmod 700 "$runtime"
    expect_console server.out "${started[@]}" "## Cannot read $runtime/zyk-lgkit.properties: Permission denied"
}

# Files that are there, but not for this user.
case_unreadable_files() {
    as_plain_user
    chmod 000 "$runtime"/*
    serves_busy
    expect_console server.out "${started[@]}" "## Cannot read $runtime/zyk-lgkit.properties: Permission denied"
    local name
    for name in dc.env datacollector datacollector_test; do
        expect_line server.err "## Cannot read $runtime/$name.properties, its settings are not used: "
    done
    [ "$(console server.err | wc -l)" -eq 3 ] || fail "more than one line a file: $(cat server.err)"
}

# Neither the runtime directory nor logs can be made.
case_nothing_writable() {
    as_plain_user
    rm -r data
    mkdir data
    chmod 555 data
    serves_busy
    expect_console server.out "${started[@]}"
    expect_console server.err "## Cannot make the runtime directory $runtime: java.io.IOException: no directory can be made here"
}

case_runtime_directory_is_a_file() {
    options_for station
    rm -r "$runtime"
    echo 'no directory' > "$runtime"
    serves_busy
    expect_console server.out "${started[@]}"
}

case_broken_properties() {
    options_for station
    printf '\0\1\2=\377\n=\n==\nno equals sign\ninternal.memory.limit=many\nnetworkagent.pool.size=-3\n%s\n%s\n' \
        'eventagent.pool.size=0' 'internal.probe.publishing.frequency=0' > "$runtime/datacollector_zz.properties"
    head -c 100000 /dev/urandom > "$runtime/datacollector_zzz.properties"
    mkdir "$runtime/datacollector_zzzz.properties"
    head -c 100000 /dev/urandom > "$runtime/dc.env.properties"
    printf 'garbage' > "$runtime/am.mod"
    start_station "${options[@]}"
    serves
    expect_console server.out "${started[@]}"
}

# Pipes that nobody writes to or reads from: the start waits for none of them, and each is told of once.
case_pipes_for_files() {
    own_tree tree
    options_for station
    local pipes=("$runtime"/{dc.env.properties,datacollector.properties,zyk-lgkit.properties,am.mod}
        "$HOME_AM/etc/am.mod" "$HOME_AM/toolkit/msg/en/zykprobeMessages.cat" "$logs/dc-trace.log")
    mkdir -p "$logs"
    rm -f "${pipes[@]}"
    mkfifo "${pipes[@]}"
    export LC_ALL=en
    serves_busy
    expect_console server.out "${started[@]}" \
        "## Cannot read $runtime/zyk-lgkit.properties: it is no regular file"
    expect_console server.err \
        "## Cannot read $runtime/dc.env.properties, its settings are not used: it is no regular file" \
        "## Cannot read $runtime/datacollector.properties, its settings are not used: it is no regular file"
    expect_line "$logs/dc-msg.log" "MOD file read error: $runtime/am.mod"
    expect_line "$logs/dc-msg.log" 'INFO 1003 '
}

# Both halves make and find one directory, in locales in which the JVM can spell its name and in which it cannot.
case_directory_beyond_ascii() {
    local locale name
    for locale in C C.UTF-8; do
        name=$'d-\xF0\x9F\x98\x80-\xFF-'$locale
        options_for station --data "$PWD/$name"
        rm -r data
        export LC_ALL=$locale
        collecting_station -Xcheck:jni
        [ "$(get '/level?1003')" = 1 ] || fail "the level cannot be changed"
        serves
        expect_output "${started[@]}"
        expect_line "$name/runtime/server.node.station/datacollector.properties" publish.server.host
        [ "$(cat "$name/runtime/server.node.station/am.mod")" = 3 ] || fail "the level is kept elsewhere"
        expect_line "$name/ZYK/logs/node.station/dc-msg.log" 'INFO 1003 '
    done
    [ "$(find . -name 'server.node.station' | wc -l)" -eq 2 ] || fail "there is another directory: $(find . -type d)"
}

# What a start that failed early has left, and nobody who says where logs go.
case_only_the_context_is_there() {
    options_for station
    rm "$runtime"/*
    printf 3 > "$runtime/am.mod"
    mapfile -t options < <(printf '%s\n' "${options[@]}" | grep -v LGKIT_COMMON_DIR)
    serves_busy
    expect_output "${started[@]}"
    expect_line "$runtime/datacollector.properties" publish.server.host
    expect_line "$runtime/ZYK/logs/node.station/dc-msg.log" 'INFO 1080 Using probe level 3'
    [ ! -e C: ] || fail "logs in the working directory"
}

case_broken_logging() {
    options_for station
    head -c 5000 /dev/urandom > "$runtime/zyk-lgkit.properties"
    serves_busy
}

case_no_logging_file() {
    options_for station
    rm "$runtime/zyk-lgkit.properties"
    mkdir elsewhere
    serves_busy -Dam.home="$PWD/elsewhere" -Dnorak61.home="$PWD/elsewhere"
    mapfile -t silent < <(no_logging "$PWD/elsewhere/toolkit" "$PWD/elsewhere")
    expect_output "${started[@]}" "${silent[@]}"
}

case_no_toolkit_libraries() {
    own_tree tree
    rm tree/lib/liblgkit_64.so
    serves_fully
    expect_output "${started[@]}" '## Could not open library liblgkit_64.so, nothing will be logged'
    [ ! -e data/ZYK ] || fail "logs without a toolkit"
}

# ---- users and places

# A user who is not root, another working directory, an install tree that was moved to a path with a blank.
case_moved_tree_plain_user() {
    own_tree 'new home'
    mkdir work
    start_receiver
    options_for station --publish-server "$address"
    run_as_plain_user
    cd work || exit
    serves_busy
    expect_output "${started[@]}"
    cd .. || exit
    stop_receiver
    received HttpEvent.end || fail "nothing was collected"
    expect_line "$logs/dc-msg.log" 'INFO 1003 '
}

# Where another user is to be had, the server runs as that user, who owns the case's directory.
run_as_plain_user() {
    [ "$(id -u)" -eq 0 ] || return 0
    chown -R 65534:65534 .
    chmod -R a+rX .
    runner=(setpriv --reuid=65534 --regid=65534 --clear-groups)
}

# own_tree DIRECTORY: from here on the case uses a copy of the install tree.
own_tree() {
    cp -r "$HOME_AM" "$1"
    HOME_AM=$PWD/$1
}
