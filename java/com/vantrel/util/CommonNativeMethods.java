package com.vantrel.util;

/**
 * The Java interface of the common native library: the wall clock of the native components, so
 * that times taken on both sides can be compared.
 *
 * <p>The library must be loaded before the first call, by {@link System#loadLibrary} with the name
 * {@code vncommon} or by {@link System#load} with its path, in the class loader of this class.
 */
public final class CommonNativeMethods {
    private CommonNativeMethods() {}

    /**
     * The wall-clock time in seconds since 1970-01-01 UTC, with microseconds.
     *
     * <p>Compat: the result is in seconds despite the name, which compiled callers use.
     */
    public static native double getMicroTime();
}
