package com.qel.morvex.norak.dc.eventagent;

/**
 * The natives through which a portal server reports its pages, and figures that it has counted itself. What
 * {@link NativeEventAgentImpl} says of its own natives holds here too: pairs on one thread, null as empty, nothing thrown.
 */
public final class PortalNativeEventAgentImpl {
    private PortalNativeEventAgentImpl() {
    }

    // Figures: numbers of calls, and their mean times in milliseconds

    public static native void sendLoginDataNative(int count, long avgTime);

    public static native void sendAccessControlDataNative(int count, long avgTime);

    public static native void sendGatewayServletDataNative(int count, long avgTime);

    public static native void sendModelBuildingDataNative(int count, long avgTime);

    public static native void sendPageLoadingDataNative(int count, long avgTime);

    /** Five kinds of access to the credential vault. */
    public static native void sendCredentialVaultDataNative(int count1, long avgTime1, int count2, long avgTime2,
            int count3, long avgTime3, int count4, long avgTime4, int count5, long avgTime5);

    /** Four kinds of access to contents. */
    public static native void sendContentAccessDataNative(int count1, long avgTime1, int count2, long avgTime2,
            int count3, long avgTime3, int count4, long avgTime4);

    // Pages, and the portlets on them

    public static native void startPortalPageRequestNative(String requestName, String appName, String url,
            String userid);

    /** @param requestName not reported */
    public static native void endPortalPageRequestNative(String requestName);

    public static native void startPortletRequestNative(String requestName, String className, String url,
            String userid);

    /** @param requestName not reported */
    public static native void endPortletRequestNative(String requestName);

    // The phases of a page's request: methodId is a key that pushMonitoredMethodToNative gave a name to, 0 for none

    public static native void startPortalAuthorizationRequestNative(byte methodId);

    public static native void endPortalAuthorizationRequestNative();

    public static native void startPortalAuthenticationRequestNative(byte methodId);

    public static native void endPortalAuthenticationRequestNative();

    public static native void startPortalModelBuildingRequestNative(byte methodId);

    public static native void endPortalModelBuildingRequestNative();

    public static native void startPortalPageLoadingRequestNative(byte methodId);

    public static native void endPortalPageLoadingRequestNative();

    public static native void startPortalPageRenderingRequestNative(byte methodId);

    public static native void endPortalPageRenderingRequestNative();

    public static native void startPortalActionRequestNative(byte methodId);

    public static native void endPortalActionRequestNative();

    // A request's way through the gateway

    public static native void startGatewayServletRequestNative();

    /** Tells of the page that {@link #processPortalPageNameNative} named last on this thread. */
    public static native void endGatewayServletRequestNative();

    /** The same for servers that know the page only at the end. */
    public static native void end502GatewayServletRequestNative(String pageName);

    /** Number of requests that are open on the thread. */
    public static native int getServletDepthNative();

    /** Names the page that the thread works on; 65,535 bytes are kept. */
    public static native void processPortalPageNameNative(String pageName);

    /**
     * Gives a key of the phases its name, for all later connections. Names are kept for the life of the process, the
     * first 10,000 of them.
     *
     * @param methodId -128 to 127 but 0, which gives nothing a name
     */
    public static native void pushMonitoredMethodToNative(byte methodId, String methodName);
}
