/**
 * Loads the library (argument 1), which must not change how Java computes. Then loads a native
 * library (argument 2) that prints the library's results in this process. Argument 2 may be built
 * with -ffast-math; its load then changes the floating-point mode of this thread.
 */
public final class FloatingPointTest {
    private static native void printResults();

    /** Sums, products and StrictMath on values that rounding and flushing to zero would change. */
    private static long fingerprint() {
        long hash = 0;
        for (double x : new double[] {Double.MIN_VALUE, Double.MIN_NORMAL, 0.1, 1, 1e300}) {
            for (double y : new double[] {-Double.MIN_VALUE, 0.3, 3, 1e-300}) {
                double[] results = {x + y, x - y, x * y, x / y, StrictMath.sin(x),
                    StrictMath.exp(y), StrictMath.pow(y, 0.7), StrictMath.cbrt(x)};
                for (double result : results) {
                    hash = hash * 31 + Double.doubleToLongBits(result);
                }
            }
        }
        return hash;
    }

    public static void main(String[] arguments) {
        long before = fingerprint();
        System.load(arguments[0]);
        if (fingerprint() != before) {
            System.err.println("FloatingPointTest: the load changed how Java computes");
            System.exit(1);
        }
        System.load(arguments[1]);
        printResults();
    }
}
