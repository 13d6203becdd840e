package com.vantrel.util;

/**
 * The Java side of the common native library: one clock, shared with the native components so
 * that stamps taken on both sides can be compared.
 *
 * <p>The library must be loaded before the first call, by {@link System#loadLibrary} with the name
 * {@code vncommon} or by {@link System#load} with its path, in the class loader of this class.
 */
public final class CommonNativeMethods {
    private CommonNativeMethods() {}

    /**
     * The wall-clock time in seconds since 1970-01-01 UTC, with microseconds; in seconds despite
     * the name, which compiled callers use.
     */
    public static native double getMicroTime();
}
