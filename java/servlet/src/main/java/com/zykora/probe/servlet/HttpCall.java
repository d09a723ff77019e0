package com.zykora.probe.servlet;

/** What is told of one request. */
final class HttpCall {
    /** Path within the application, "/" at least. */
    final String name;
    /** Context path without its slash; "ROOT" for the application at the server's root. */
    final String application;
    /** The URL as requested, without the query, which may hold what is nobody's business. */
    final String url;
    /** The authenticated user, or null. */
    final String user;

    /** All may be null but {@code url}; the paths are those of the servlet API. */
    HttpCall(String contextPath, String servletPath, String pathInfo, StringBuffer url, String user) {
        String path = orEmpty(servletPath) + orEmpty(pathInfo);
        String context = orEmpty(contextPath);
        this.name = path.isEmpty() ? "/" : path;
        this.application = context.isEmpty() ? "ROOT" : context.substring(1);
        this.url = url.toString();
        this.user = user;
    }

    private static String orEmpty(String text) {
        return text == null ? "" : text;
    }
}
