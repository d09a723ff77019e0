# shellcheck shell=bash disable=SC2034,SC2154
# A Java half whose classes are missing or throw: in front of the real jar stands a class made for the case. The server
# serves and keeps its exit status every time.

package_of() {
    case $1 in
    BcmBootstrap | PropertyManager) echo com.qel.morvex.norak.toolkit.ai.bcm.bootstrap ;;
    RuntimeBuilder) echo com.qel.morvex.norak.toolkit.ai.runtimebuilder ;;
    CcTools) echo com.qel.morvex.norak.toolkit.ai.bcm.utility ;;
    EntryExitConsumerImpl) echo com.qel.morvex.norak.dc.level3 ;;
    pe_lookup) echo com.zykora.publish ;;
    *) echo com.zykora.probe ;;
    esac
}

# replace CLASS BODY: the class with this body instead of the real one.
replace() {
    mkdir -p source half
    printf 'package %s;\npublic final class %s {\n%s\n}\n' "$(package_of "$1")" "$1" "$2" > "source/$1.java"
    "$JAVA_BIN/javac" -nowarn --release 17 -d half "source/$1.java" || fail "the class of the case is wrong"
    boot_path=$PWD/half:$HOME_AM/java/am-probe.jar
}

# leave_out CLASS...: a Java half without these classes.
leave_out() {
    mkdir -p half
    (cd half && "$JAVA_BIN/jar" xf "$HOME_AM/java/am-probe.jar")
    local class
    for class in "$@"; do
        rm "half/$(package_of "$class" | tr . /)/$class.class"
    done
    boot_path=$PWD/half
}

# with_half VERB [JVM option...]: starts the small server on the changed Java half.
with_half() {
    start_receiver
    options_for station --publish-server "$address"
    options=("${options[@]/#-Xbootclasspath*/-Xbootclasspath/a:$boot_path}")
    "$@"
    stop_receiver
}

serves_without_collector() {
    serves_idle "${options[@]}"
    ! received HttpEvent.begin || fail "events of a collector that could not start"
}

connects_and_serves() {
    collecting_station "$@"
    wait_until "the connection" received InitRecord
    serves
}

bootstrap_natives='public static native void defineNativeMethodsForClassNative(Class<?> type, String name);
    public static native int getCurrentProcessIdNative();
    public static native boolean isProcessAliveNative(int processId);
    public static native String getEnvNative(String name);
    public static native String[] getJavaCommandLineArgs();
    public static native long getCurrentThreadCPUTime();
    public static native int setFileReadWriteNative(String file);
    public static byte[] instrumentClassFromJVMTI(byte[] bytes, String name, ClassLoader loader) { return null; }
    public static byte[] instrumentClassFromJVMPI(byte[] bytes, String name) { return null; }
    public static void disable() { }'

# broken_half VERB CLASS BODY [LINE...]: with that class instead, and what is printed then.
broken_half() {
    replace "$2" "$3"
    with_half "$1"
    expect_console server.out "${@:4}"
}

stays_off='## zykora: Datacollector is disabled. Check value of the NORAK_DC_ENABLED property'
bootstrap_not_found='ERROR 1083 Can not find com.zykora.bcm.bootstrap.BcmBootstrap.class'
not_loaded=('## PropertyMgr::initialize() could not load Environment Variables'
    '## PropertyMgr::initialize() error during initialization'
    '## PropertyMgr::initialize() NORAK will be disabled')

case_bootstrap_throws() {
    broken_half serves_without_collector BcmBootstrap "$bootstrap_natives
        public static void staticInit() { throw new IllegalStateException(\"on purpose\"); }" \
        "${started[@]}" "$stays_off"
    expect_console server.err
}

case_bootstrap_cannot_be_initialised() {
    broken_half serves_without_collector BcmBootstrap "$bootstrap_natives
        static { if (true) throw new IllegalStateException(\"on purpose\"); }
        public static void staticInit() { }" \
        "${started[@]}"
    expect_line "$logs/dc-msg.log" "$bootstrap_not_found"
}

case_bootstrap_without_natives() {
    broken_half serves_without_collector BcmBootstrap 'public static void staticInit() { }' \
        "${started[@]}" 'zykora: ExceptionOccurred' 'zykora: RegisterNatives rc=-1'
}

case_bootstrap_missing() {
    leave_out BcmBootstrap
    with_half serves_without_collector
    expect_console server.out "${started[@]}"
    expect_line "$logs/dc-msg.log" "$bootstrap_not_found"
}

# An instrumenter by the name of the loader: it replaces a class, throws, gives nothing or rubbish for it, loads others.
instruments='{
        if (name.startsWith("java") || name.startsWith("com.zykora") || name.indexOf(47) >= 0) System.exit(9);
        switch (loader == null || loader.getName() == null ? "" : loader.getName()) {
            case "throws": throw new StackOverflowError("on purpose");
            case "empty": return new byte[0];
            case "rubbish": return new byte[] {1, 2, 3, 4, 5};
            case "loads":
                try { Class.forName("amtest.Shift", true, ClassLoader.getSystemClassLoader()); }
                catch (ClassNotFoundException e) { System.exit(8); }
                return null;
            case "replaces":
                for (int i = 0; i + 8 < bytes.length; i++)
                    if (new String(bytes, i, 8).equals("original"))
                        System.arraycopy("replaced".getBytes(), 0, bytes, i, 8);
                return bytes;
            default: return null;
        }
    }'

loads_classes() {
    local status=0
    "$JAVA" "${options[@]}" -Xmx256m -cp "$APP" amtest.Hooked 5000 > server.out 2> server.err || status=$?
    [ "$status" -eq 0 ] || fail "exit status $status: $(tail -n 3 server.err)"
    grep -qx 'told replaced original original original original original' server.out || fail "$(grep told server.out)"
    [ "$(grep -c 'StackOverflowError: on purpose' server.err)" -eq 1 ] || fail "what was thrown is not told once"
}

case_classes_pass_the_instrumenter() {
    replace BcmBootstrap "${bootstrap_natives/\{ return null; \}/$instruments}
        public static void staticInit() { }"
    with_half loads_classes
}

# A faulty instrumentation configuration switches the hook off, and nothing else.
case_hook_stays_off() {
    echo 'com.qel.morvex.kvor.jvmpi.proxy=wrong' > kvor.properties
    export DSRVKVOR_PROPS=$PWD/kvor.properties
    replace BcmBootstrap "${bootstrap_natives/\{ return null; \}/{ System.exit(9); return null; \}}
        public static void staticInit() { }"
    with_half serves_without_collector
}

case_property_manager_throws() {
    broken_half serves_without_collector PropertyManager '
        public static String[] getEnvVariables(String file) { throw new AssertionError("on purpose"); }
        public static String[] defineSysProps(String directory) { return null; }
        public static String[] defineProps(String directory, String mask, String name) { return null; }' \
        "$reading_environment" \
        '## PropertyMgr::initialize() Error calling static method - getEnvVariables' '## loadEnvProperties failed.' \
        "${not_loaded[@]}"
}

case_property_manager_of_another_version() {
    broken_half serves_without_collector PropertyManager 'public static String[] defineSysProps(String directory) { return null; }' \
        '## PropertyMgr::initialize() Error getting static method id - getEnvVariables' \
        '## loadEnvProperties failed.' "${not_loaded[@]}"
}

# Settings that cannot be had are defaults; here the reader on the Java side finds none either.
case_settings_throw() {
    broken_half serves_busy PropertyManager '
        public static String[] getEnvVariables(String file) { return new String[] {null, "", "=", "A"}; }
        public static String[] defineSysProps(String directory) { throw new IllegalStateException("on purpose"); }
        public static String[] defineProps(String d, String m, String n) { throw new StackOverflowError(); }
        public static java.util.Map<String, String> collectorProperties() { return new java.util.HashMap<>(); }' \
        "${started[@]}"
}

case_runtime_builder_throws() {
    broken_half serves_without_collector RuntimeBuilder '
        public static boolean buildRuntime(String directory) { throw new OutOfMemoryError("on purpose"); }
        public static String getRuntimeDirName() { throw new IllegalStateException("on purpose"); }' \
        "${started[@]}"
}

case_runtime_builder_renames() {
    replace RuntimeBuilder 'private static final String NAME = System.getProperty("user.dir") + "/renamed";
        public static boolean buildRuntime(String directory) { return new java.io.File(NAME).mkdirs(); }
        public static String getRuntimeDirName() { return NAME; }'
    with_half connects_and_serves -Dnetworkagent.ps.reconnect.frequency=1000
    received HttpEvent.end || fail "nothing was collected"
    expect_output \
        '## PropertyMgr::initialize() A RuntimeBuilder helper class has changed the runtime directory name' \
        "## PropertyMgr::initialize() originally specified parameter=$runtime, new value used=$PWD/renamed" \
        "${started[@]}"
    [ -f renamed/am.mod ] || fail "the new directory is not used"
}

case_lookup_throws() {
    broken_half serves_busy pe_lookup 'public static String hostName_ = null;
        public static int port_ = -5;
        public static int sendBuffSize_;
        private static int calls;
        public static int initialize() {
            if (calls++ % 2 == 0) throw new IllegalStateException("on purpose");
            return 1;
        }' \
        "${started[@]}"
}

# A thread that is stuck in the Java half keeps no process that has ended.
case_lookup_hangs() {
    replace pe_lookup 'public static int initialize() {
            try { new java.io.FileOutputStream("asked").close(); } catch (java.io.IOException e) { }
            while (true) java.util.concurrent.locks.LockSupport.park();
        }'
    with_half collecting_station
    wait_until "the question" test -e asked
    end_soon
    expect_output "${started[@]}"
}

case_life_cycle_breaks() {
    broken_half serves_without_collector ProbeSystem 'static void describeServer(java.util.Map<String, String> files) {
            throw new IllegalStateException("on purpose");
        }' \
        "${started[@]}"
    expect_console server.err \
        '## The data collector could not be started: java.lang.IllegalStateException: on purpose'
}

# Helpers that are only asked: the collector does without them.
case_helpers_missing() {
    leave_out CcTools EntryExitConsumerImpl pe_lookup
    with_half serves_busy
    expect_console server.out "${started[@]}"
}
