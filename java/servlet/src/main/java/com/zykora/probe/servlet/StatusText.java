package com.zykora.probe.servlet;

import java.util.HashMap;
import java.util.Map;

/** Error statuses in words; the servlet API knows only the numbers. */
final class StatusText {
    private static final Map<Integer, String> PHRASES = new HashMap<Integer, String>();

    static {
        PHRASES.put(400, "Bad Request");
        PHRASES.put(401, "Unauthorized");
        PHRASES.put(403, "Forbidden");
        PHRASES.put(404, "Not Found");
        PHRASES.put(405, "Method Not Allowed");
        PHRASES.put(406, "Not Acceptable");
        PHRASES.put(408, "Request Timeout");
        PHRASES.put(409, "Conflict");
        PHRASES.put(410, "Gone");
        PHRASES.put(412, "Precondition Failed");
        PHRASES.put(413, "Content Too Large");
        PHRASES.put(414, "URI Too Long");
        PHRASES.put(415, "Unsupported Media Type");
        PHRASES.put(422, "Unprocessable Content");
        PHRASES.put(429, "Too Many Requests");
        PHRASES.put(500, "Internal Server Error");
        PHRASES.put(501, "Not Implemented");
        PHRASES.put(502, "Bad Gateway");
        PHRASES.put(503, "Service Unavailable");
        PHRASES.put(504, "Gateway Timeout");
    }

    private StatusText() {
    }

    /** "404 Not Found"; the bare number for a status without a known phrase. */
    static String of(int status) {
        String phrase = PHRASES.get(status);
        return phrase == null ? Integer.toString(status) : status + " " + phrase;
    }
}
