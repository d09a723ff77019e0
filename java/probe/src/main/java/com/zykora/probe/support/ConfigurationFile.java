package com.zykora.probe.support;

import java.io.ByteArrayOutputStream;
import java.io.File;
import java.io.FileInputStream;
import java.io.IOException;
import java.io.InputStream;

/**
 * How the Java half opens the files of its configuration. A name may lead to something that is no file: a pipe would
 * keep the server's start waiting for its other end, a device has no end. So only regular files are opened, and no
 * more is read than a configuration can sensibly hold.
 *
 * <p>This runs before the application does and on its start-up time, hence the plain old file classes.
 */
public final class ConfigurationFile {
    private static final int MAX_BYTES = 1 << 20;
    private static final int BLOCK = 8192;

    private ConfigurationFile() {
    }

    /**
     * The file's bytes.
     *
     * @throws IOException if it is missing, cannot be read, is no regular file or is longer than 1 MiB
     */
    public static byte[] read(File file) throws IOException {
        if (file.exists() && !file.isFile()) {
            throw new IOException("it is no regular file");
        }
        ByteArrayOutputStream content = new ByteArrayOutputStream();
        byte[] block = new byte[BLOCK];
        try (InputStream in = new FileInputStream(file)) {
            for (int got = in.read(block); got >= 0; got = in.read(block)) {
                content.write(block, 0, got);
                if (content.size() > MAX_BYTES) {
                    throw new IOException("longer than " + MAX_BYTES + " bytes");
                }
            }
        }
        return content.toByteArray();
    }
}
