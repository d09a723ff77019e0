package com.zykora.probe;

import java.util.Properties;
import org.junit.jupiter.api.extension.AfterEachCallback;
import org.junit.jupiter.api.extension.BeforeEachCallback;
import org.junit.jupiter.api.extension.ExtensionContext;

/** Gives a test class system properties of its own. */
public final class RestoredProperties implements BeforeEachCallback, AfterEachCallback {
    private Properties saved;

    @Override
    public void beforeEach(ExtensionContext context) {
        saved = (Properties) System.getProperties().clone();
    }

    @Override
    public void afterEach(ExtensionContext context) {
        System.setProperties(saved);
    }
}
