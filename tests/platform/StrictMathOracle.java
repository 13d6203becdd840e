import java.io.BufferedOutputStream;
import java.io.IOException;
import java.io.OutputStream;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import java.util.function.DoubleBinaryOperator;

/**
 * Writes arguments and results of java.lang.StrictMath, an independent build of FDLIBM, for another
 * program to compare. Usage: StrictMathOracle COUNT SEED; COUNT is the number of arguments per
 * function.
 *
 * The output is little endian and has one block per function: its name (16 bytes, padded with
 * zeros), the number of records (8 bytes) and the records (x, y and the result, 8 bytes each; y is
 * 0 if the function has one argument).
 */
public final class StrictMathOracle {
    private static final double[] SPECIAL = {
        0.0, Double.MIN_VALUE, 2 * Double.MIN_VALUE, Math.nextDown(Double.MIN_NORMAL),
        Double.MIN_NORMAL, Math.nextUp(Double.MIN_NORMAL), 0x1p-1000, 0x1p-70, 0x1p-54, 0x1p-29,
        0x1p-28, 0x1p-27, 0.25, 1.0 / 3, 0.34657359027997264, 0.41421356237309503, 0.4375, 0.5,
        0.6744, 0.6875, 0.7, Math.PI / 4, 0.84375, Math.nextDown(1.0), 1.0, Math.nextUp(1.0),
        1.0397207708399179, 1.1875, 1.25, 1.5, Math.PI / 2, 2.0, 2.4375, 2.5, Math.E, 3.0, Math.PI,
        3 * Math.PI / 4, 4.0, 4.71238898038469, 5.0, 6.0, 2 * Math.PI, 10.0, 19.0, 20.0, 22.0,
        28.0, 100.0, 308.25471555991674, 709.0, 709.782712893384, 709.7827128933841, 710.0,
        710.4758600739439, 710.475860073944, 744.0, 745.1332191019411, 745.1332191019412, 1000.0,
        1023.0, 1024.0, 1074.0, 1075.0, 0x1p20 * Math.PI / 2, 1e10, 0x1p31 - 1, 0x1p31,
        0x1p31 + 1, 0x1p32 + 1, 0x1p33 + 1, 0x1p51 + 0.5, 0x1p52 - 0.5, 0x1p52, 0x1p52 + 1,
        0x1p53 - 1, 0x1p53, 0x1p53 + 2, 0x1p62, 0x1p63, 0x1p64, 0x1p66, 1e22, 1e100, 1e300,
        0x1p1023, Double.MAX_VALUE, Double.POSITIVE_INFINITY, Double.NaN,
    };

    private final Random random;
    private final int count;
    private final OutputStream out;

    private StrictMathOracle(int count, long seed, OutputStream out) {
        this.count = count;
        this.random = new Random(seed);
        this.out = out;
    }

    public static void main(String[] arguments) throws IOException {
        try (OutputStream out = new BufferedOutputStream(System.out, 1 << 16)) {
            new StrictMathOracle(Integer.parseInt(arguments[0]), Long.parseLong(arguments[1]), out)
                .writeAll();
        }
    }

    private void writeAll() throws IOException {
        unary("exp", (x, y) -> StrictMath.exp(x));
        unary("expm1", (x, y) -> StrictMath.expm1(x));
        unary("log", (x, y) -> StrictMath.log(x));
        unary("log10", (x, y) -> StrictMath.log10(x));
        unary("log1p", (x, y) -> StrictMath.log1p(x));
        unary("cbrt", (x, y) -> StrictMath.cbrt(x));
        unary("sqrt", (x, y) -> StrictMath.sqrt(x));
        unary("sin", (x, y) -> StrictMath.sin(x));
        unary("cos", (x, y) -> StrictMath.cos(x));
        unary("tan", (x, y) -> StrictMath.tan(x));
        unary("asin", (x, y) -> StrictMath.asin(x));
        unary("acos", (x, y) -> StrictMath.acos(x));
        unary("atan", (x, y) -> StrictMath.atan(x));
        unary("sinh", (x, y) -> StrictMath.sinh(x));
        unary("cosh", (x, y) -> StrictMath.cosh(x));
        unary("tanh", (x, y) -> StrictMath.tanh(x));
        unary("rint", (x, y) -> StrictMath.rint(x));
        unary("floor", (x, y) -> StrictMath.floor(x));
        unary("ilogb", (x, y) -> StrictMath.getExponent(x));
        binary("pow", StrictMath::pow);
        binary("atan2", StrictMath::atan2);
        binary("fmod", (x, y) -> x % y);
        binary("nextafter", (x, y) -> StrictMath.nextAfter(x, y));
        binary("scalbn", (x, y) -> StrictMath.scalb(x, (int) y));
    }

    private void unary(String name, DoubleBinaryOperator function) throws IOException {
        List<double[]> pairs = new ArrayList<>();
        for (double x : SPECIAL) {
            pairs.add(new double[] {x, 0});
            pairs.add(new double[] {-x, 0});
        }
        for (int exponent = -1074; exponent <= 1023; exponent++) {
            double power = Math.scalb(1.0, exponent);
            for (double x : new double[] {Math.nextDown(power), power, Math.nextUp(power)}) {
                pairs.add(new double[] {x, 0});
                pairs.add(new double[] {-x, 0});
            }
        }
        block(name, function, pairs, () -> new double[] {argument(), 0});
    }

    private void binary(String name, DoubleBinaryOperator function) throws IOException {
        List<double[]> pairs = new ArrayList<>();
        for (double x : SPECIAL) {
            for (double y : SPECIAL) {
                pairs.add(new double[] {x, y});
                pairs.add(new double[] {-x, y});
                pairs.add(new double[] {x, -y});
                pairs.add(new double[] {-x, -y});
            }
        }
        block(name, function, pairs, this::argumentPair);
    }

    private interface PairSource {
        double[] next();
    }

    private void block(String name, DoubleBinaryOperator function, List<double[]> fixed,
                       PairSource source) throws IOException {
        ByteBuffer header = ByteBuffer.allocate(24).order(ByteOrder.LITTLE_ENDIAN);
        header.put(name.getBytes("US-ASCII")).putLong(16, (long) fixed.size() + count);
        out.write(header.array());
        for (double[] pair : fixed) {
            record(function, pair);
        }
        for (int i = 0; i < count; i++) {
            record(function, source.next());
        }
    }

    private final ByteBuffer buffer = ByteBuffer.allocate(24).order(ByteOrder.LITTLE_ENDIAN);

    private void record(DoubleBinaryOperator function, double[] pair) throws IOException {
        buffer.putDouble(0, pair[0]).putDouble(8, pair[1]);
        buffer.putDouble(16, function.applyAsDouble(pair[0], pair[1]));
        out.write(buffer.array());
    }

    /** Random bits, ranges in which functions change their method, integers, multiples of pi/2. */
    private double argument() {
        switch (random.nextInt(10)) {
            case 0: return Double.longBitsToDouble(random.nextLong());
            case 1: return uniform(1);
            case 2: return uniform(10);
            case 3: return uniform(800);
            case 4: return signed(Math.scalb(1 + random.nextDouble(), random.nextInt(80) - 40));
            case 5: return signed(random.nextInt(1 << 21)) / 4;
            case 6: return neighbour(SPECIAL[random.nextInt(SPECIAL.length)]);
            case 7: return neighbour(random.nextInt(1 << 22) * (Math.PI / 2));
            case 8: return neighbour((random.nextLong() >>> 11) * (Math.PI / 2));
            default: return 1 + Math.scalb(uniform(1), -random.nextInt(50));
        }
    }

    /** Independent arguments, and pairs that are hard cases for powers and remainders. */
    private double[] argumentPair() {
        double x = argument();
        switch (random.nextInt(8)) {
            case 0: return new double[] {x, neighbour(x)};
            case 1: return new double[] {x, x * uniform(4)};
            case 2: return new double[] {x, Math.rint(uniform(100))};
            case 3: // a base near 1 and a large exponent
                return new double[] {signed(1 + Math.scalb(uniform(1), -random.nextInt(52))),
                                     Math.rint(Math.scalb(uniform(1), random.nextInt(64)))};
            case 4: // a result near overflow or underflow
                return new double[] {x, uniform(1) < 0 ? 709.78 / Math.log(Math.abs(x))
                                                       : -745.13 / Math.log(Math.abs(x))};
            case 5: // an odd exponent above 2^31
                return new double[] {x, signed((random.nextLong() >>> (11 + random.nextInt(22))) | 1)};
            case 6: return new double[] {uniform(1000), uniform(20)};
            default: return new double[] {x, argument()};
        }
    }

    private double uniform(double bound) {
        return (2 * random.nextDouble() - 1) * bound;
    }

    private double signed(double x) {
        return random.nextBoolean() ? x : -x;
    }

    /** A double at most 16 units in the last place from x, with a random sign. */
    private double neighbour(double x) {
        return signed(Double.longBitsToDouble(Double.doubleToRawLongBits(x) + random.nextInt(33) - 16));
    }
}
