package com.qel.morvex.norak.toolkit.ai.runtimebuilder;

import com.zykora.probe.support.ConfigurationFile;
import com.zykora.probe.support.OperatorNotes;
import com.zykora.probe.support.ServerSettings;
import java.io.File;
import java.io.FilenameFilter;
import java.io.IOException;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.Arrays;
import java.util.Collection;
import java.util.HashSet;

/**
 * Finds the runtime directory of this server and, on the server's first start, makes it from the samples that
 * were installed in {@code <am.home>/etc}. A directory that holds anything belongs to the operator and is left
 * as it is, unless the mark of an unfinished making stands in it: then what is missing is added. What the agent
 * itself leaves there when it starts without settings does not count. The native half calls this once, before any
 * other Java code of the collector runs.
 */
public final class RuntimeBuilder {
    private static final FilenameFilter SAMPLES = new FilenameFilter() {
        @Override
        public boolean accept(File directory, String name) {
            return name.endsWith(".properties");
        }
    };

    /** Stands in a directory from before its first file is there until all are. */
    private static final String UNFINISHED = ".unfinished";

    /** What the native half writes: the monitoring context and, where nothing else is said, logs. */
    private static final Collection<String> WRITTEN_BY_THE_AGENT = Arrays.asList("am.mod", "ZYK");

    private static volatile String runtimeDir;

    private RuntimeBuilder() {
    }

    /** The process's whole command line, JVM options included. */
    public static native String[] getJavaCommandLineArgs();

    /**
     * Decides on the runtime directory and makes it if it is missing or holds nothing of the operator's.
     *
     * @param directory the directory that the agent's options name; null or empty stands for
     *     {@code <norak61.home>/runtime/<platform>.<node>.<server>}
     * @return true if the directory stands and holds something
     */
    public static boolean buildRuntime(String directory) {
        String wanted = directory == null || directory.isEmpty() ? defaultDirectory() : directory;
        runtimeDir = wanted;
        if (wanted == null) {
            return false;
        }
        try {
            return isFinished(new File(wanted)) || copySamples(new File(wanted));
        } catch (IOException | RuntimeException e) {
            OperatorNotes.once("Cannot make the runtime directory " + wanted + ": " + e);
            return false;
        }
    }

    /** The directory decided on, as it was spelt; null before that, or if it is unknown. */
    public static String getRuntimeDirName() {
        return runtimeDir;
    }

    private static String defaultDirectory() {
        String norakHome = ServerSettings.norakHome();
        String platform = ServerSettings.platform();
        if (norakHome == null || platform == null) {
            return null;
        }
        return norakHome + "/runtime/" + platform + "." + ServerSettings.nodeName() + "."
                + ServerSettings.serverName();
    }

    private static boolean copySamples(File target) throws IOException {
        File[] samples = samples();
        if (samples.length == 0) {
            return false;
        }
        if (!target.mkdirs() && !target.isDirectory()) {
            throw new IOException("no directory can be made here");
        }
        Path mark = new File(target, UNFINISHED).toPath();
        createUnlessThere(mark);
        for (File sample : samples) {
            if (sample.exists() && !sample.isFile()) {
                OperatorNotes.once("The sample " + sample + " is not used: it is no regular file");
                continue;
            }
            copyUnlessThere(sample, new File(target, sample.getName()));
        }
        Files.deleteIfExists(mark);
        return true;
    }

    private static File[] samples() {
        String home = ServerSettings.home();
        File[] files = home == null ? null : new File(home, "etc").listFiles(SAMPLES);
        return files == null ? new File[0] : files;
    }

    private static void createUnlessThere(Path file) throws IOException {
        try {
            Files.createFile(file);
        } catch (FileAlreadyExistsException another) {
            // As good as ours.
        }
    }

    /** A file appears under its name when it is whole. */
    private static void copyUnlessThere(File sample, File target) throws IOException {
        if (target.exists()) {
            return;
        }
        byte[] content = ConfigurationFile.read(sample);
        Path part = new File(target.getPath() + "." + Long.toHexString(System.nanoTime()) + ".part").toPath();
        try {
            Files.write(part, content, StandardOpenOption.CREATE_NEW);
            Files.move(part, target.toPath());
        } catch (FileAlreadyExistsException another) {
            // A server started at the same moment was faster: its file is as good as ours.
        } finally {
            Files.deleteIfExists(part);
        }
    }

    private static boolean isFinished(File directory) {
        String[] all = directory.list();
        if (all == null) {
            return false;
        }
        Collection<String> names = new HashSet<String>(Arrays.asList(all));
        names.removeAll(WRITTEN_BY_THE_AGENT);
        return !names.isEmpty() && !names.contains(UNFINISHED);
    }
}
