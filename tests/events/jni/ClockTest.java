import com.vantrel.util.CommonNativeMethods;
import java.net.URL;
import java.net.URLClassLoader;

/** Loads the library (argument 1) and checks the clock; argument 2 is the jar. */
public final class ClockTest {
    public static void main(String[] arguments) throws Exception {
        try {
            CommonNativeMethods.getMicroTime();
            fail("the call worked before the library was loaded");
        } catch (UnsatisfiedLinkError expected) {
            System.load(arguments[0]);
        }
        checkClock();
        checkThreads();
        checkSecondClassLoader(arguments[0], arguments[1]);
        System.out.println("ok");
    }

    private static void checkClock() {
        double before = System.currentTimeMillis() / 1000.0 - 0.002;
        double now = CommonNativeMethods.getMicroTime();
        double after = System.currentTimeMillis() / 1000.0 + 0.002;
        if (now < before || now > after) {
            fail(now + " is not between " + before + " and " + after);
        }
    }

    private static void checkThreads() throws InterruptedException {
        Thread[] threads = new Thread[8];
        for (int i = 0; i < threads.length; ++i) {
            threads[i] = new Thread(() -> {
                for (int n = 0; n < 10000; ++n) {
                    checkClock();
                }
            });
            threads[i].start();
        }
        for (Thread thread : threads) {
            thread.join();
        }
    }

    /** A virtual machine binds a library to one class loader; a second one gets an error. */
    private static void checkSecondClassLoader(String library, String jar) throws Exception {
        URL[] path = {new java.io.File(jar).toURI().toURL()};
        try (URLClassLoader loader = new URLClassLoader(path, null)) {
            Class<?> other = loader.loadClass("com.vantrel.util.CommonNativeMethods");
            try {
                other.getMethod("getMicroTime").invoke(null);
                fail("a class of another loader was linked");
            } catch (java.lang.reflect.InvocationTargetException expected) {
                if (!(expected.getCause() instanceof UnsatisfiedLinkError)) {
                    throw expected;
                }
            }
        }
        checkClock();
    }

    private static void fail(String what) {
        System.err.println("ClockTest: " + what);
        System.exit(1);
    }
}
