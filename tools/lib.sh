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
