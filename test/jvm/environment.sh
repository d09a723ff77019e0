# shellcheck shell=bash disable=SC2034,SC2154
# What the cases are given: install tree, tools, the compiled test server and a directory for this run.

root=$(cd ../.. && pwd)
HOME_AM=$(cd "$root" && cd "${AM_INSTALL:-build/install}" && pwd) || exit 2
SHOP=$root/demo-app/target
TOOLS=$root/tools
JAVA_BIN=$(dirname "$(readlink -f "$(command -v javac)")")
# Readable for all: some servers run as another user.
work=$(mktemp -d "${TMPDIR:-/tmp}/am-jvm.XXXXXX")
chmod 755 "$work"
APP=$work/classes
"$JAVA_BIN/javac" --release 17 -cp "$HOME_AM/java/am-probe.jar" -sourcepath "$root/test/java" -d "$APP" app/amtest/*.java || exit 2
unset AM_DC_ENABLED AM_HEAPDUMP AM_INIT_DEBUG AM_DATA_DIR LGKIT_COMMON_DIR QUALDIR NLSPATH JAVA_TOOL_OPTIONS
