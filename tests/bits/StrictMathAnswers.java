import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.PrintWriter;

/**
 * Answers lines "FUNCTION X [Y]" on standard input with the result of java.lang.StrictMath, an
 * independent build of FDLIBM. Doubles are sixteen hexadecimal digits; every NaN is "nan".
 */
public final class StrictMathAnswers {
    private static final double LN2 = 0x1.62e42fefa39efp-1;

    private StrictMathAnswers() {}

    public static void main(String[] arguments) throws IOException {
        BufferedReader in = new BufferedReader(new InputStreamReader(System.in));
        PrintWriter out = new PrintWriter(System.out);
        for (String line = in.readLine(); line != null; line = in.readLine()) {
            String[] words = line.split(" ");
            double x = fromHex(words[1]);
            double y = words.length > 2 ? fromHex(words[2]) : 0;
            double result = answer(words[0], x, y);
            out.println(Double.isNaN(result)
                ? "nan" : String.format("%016x", Double.doubleToRawLongBits(result)));
        }
        out.flush();
    }

    private static double fromHex(String digits) {
        return Double.longBitsToDouble(Long.parseUnsignedLong(digits, 16));
    }

    private static double answer(String function, double x, double y) {
        switch (function) {
            case "pow": return StrictMath.pow(x, y);
            case "exp": return StrictMath.exp(x);
            case "log": return StrictMath.log(x);
            case "log10": return StrictMath.log10(x);
            case "cbrt": return StrictMath.cbrt(x);
            case "sin": return StrictMath.sin(x);
            case "cos": return StrictMath.cos(x);
            case "tan": return StrictMath.tan(x);
            case "asin": return StrictMath.asin(x);
            case "acos": return StrictMath.acos(x);
            case "atan": return StrictMath.atan(x);
            case "atan2": return StrictMath.atan2(x, y);
            case "sinh": return StrictMath.sinh(x);
            case "cosh": return StrictMath.cosh(x);
            case "tanh": return StrictMath.tanh(x);
            case "asinh": return asinh(x);
            case "acosh": return acosh(x);
            case "atanh": return atanh(x);
            case "fmod": return x % y;
            default: throw new IllegalArgumentException(function);
        }
    }

    // StrictMath lacks the inverse hyperbolic functions. These are FDLIBM's methods for them, built
    // on StrictMath's logarithms. FDLIBM's limits compare the upper half of the argument.
    private static final int TWO = 0x40000000;
    private static final int LARGE = 0x41b00000; // 2^28
    private static final int SMALL = 0x3e300000; // 2^-28

    private static int upperHalf(double x) {
        return (int) (Double.doubleToRawLongBits(Math.abs(x)) >>> 32);
    }

    private static double asinh(double x) {
        double a = Math.abs(x);
        if (Double.isNaN(x) || Double.isInfinite(x) || upperHalf(x) < SMALL) {
            return x;
        }
        double result;
        if (upperHalf(x) > LARGE) {
            result = StrictMath.log(a) + LN2;
        } else if (upperHalf(x) > TWO) {
            result = StrictMath.log(2 * a + 1 / (Math.sqrt(x * x + 1) + a));
        } else {
            result = StrictMath.log1p(a + x * x / (1 + Math.sqrt(1 + x * x)));
        }
        return Math.copySign(result, x);
    }

    private static double acosh(double x) {
        if (!(x >= 1)) {
            return Double.NaN;
        }
        if (upperHalf(x) >= LARGE) {
            return StrictMath.log(x) + LN2;
        }
        if (upperHalf(x) > TWO) {
            return StrictMath.log(2 * x - 1 / (x + Math.sqrt(x * x - 1)));
        }
        double t = x - 1;
        return StrictMath.log1p(t + Math.sqrt(2 * t + t * t));
    }

    private static double atanh(double x) {
        double a = Math.abs(x);
        if (!(a <= 1)) {
            return Double.NaN;
        }
        if (upperHalf(x) < SMALL) {
            return x;
        }
        double result;
        if (a < 0.5) {
            double t = a + a;
            result = 0.5 * StrictMath.log1p(t + t * a / (1 - a));
        } else {
            result = 0.5 * StrictMath.log1p((a + a) / (1 - a));
        }
        return Math.copySign(result, x);
    }
}
