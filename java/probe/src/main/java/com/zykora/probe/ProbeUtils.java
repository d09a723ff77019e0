package com.zykora.probe;

/** Birth and death of the native managers. {@link ProbeService} calls these; nobody else should. */
public final class ProbeUtils {
    private ProbeUtils() {
    }

    /** Creates the managers; nothing runs yet. True also if they exist already. */
    public static native boolean customServiceStart();

    /** Stops the probe, which waits 10 seconds if it runs, and destroys the managers for good. */
    public static native void customServiceShutDown();

    /** A line that tells when the library was built. */
    public static native String getBuildTime();

    /**
     * A token of correlation: 4 bytes, the most significant first, unique over all restarts and collectors whose regions
     * differ. Null when memory is out.
     */
    public static native byte[] getNativeGpsToken();

    /**
     * The password of a file that {@link #genPasswordFile} wrote, at most 49 bytes of it. Null for a file that cannot be
     * read or was changed, and for a wrong {@code permit}, the word that callers have to know.
     */
    public static native String getPassword(String permit, String file);

    /** The user id of the same file, at most 49 bytes of it; null as above. */
    public static native String getUser(String permit, String file);

    /**
     * Writes a user id and a password to a file, scrambled. To be run at a console: the password is printed to standard
     * output. What goes wrong stands in the log.
     *
     * @param uid without a colon
     * @param password 1000 bytes at most
     */
    public static native void genPasswordFile(String uid, String password, String file);
}
