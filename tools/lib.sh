# Shared by the scripts: one line a step, its output only if it fails.

# The newest JDK beside the one on the PATH, if there is one; else the same.
newest_java() {
    local candidate best=java best_version=0 version
    for candidate in java /usr/lib/jvm/*/bin/java; do
        version=$("$candidate" -version 2>&1 | sed -n '1s/.*version "\([0-9]*\).*/\1/p') || continue
        if [ "${version:-0}" -gt "$best_version" ]; then
            best=$candidate
            best_version=$version
        fi
    done
    echo "$best"
}

step() {
    local name=$1 log
    shift
    log=$(mktemp)
    printf '%s ... ' "$name"
    local from=$SECONDS
    if "$@" >"$log" 2>&1; then
        echo "done ($((SECONDS - from)) s)"
        rm -f "$log"
    else
        echo "FAILED: $*"
        tail -n "${STEP_LINES:-60}" "$log"
        rm -f "$log"
        return 1
    fi
}

# unit_tests PRESET: without what passed; the first faults stand once more behind the summary.
unit_tests() {
    local status=0 output
    output=$(ctest --preset "$1") || status=$?
    grep -vE '^ *Start +[0-9]|  Passed +[0-9.]+ sec$' <<< "$output"
    [ "$status" -eq 0 ] || grep -m 3 -A 8 -E ': Failure$|ERROR: |WARNING: |FATAL: ' <<< "$output" | cut -c 1-200
    return "$status"
}
