package sample;

import java.lang.management.ManagementFactory;
import java.lang.management.MemoryUsage;

/**
 * Stands in for the game's client: says how it was started, builds a tower for a few seconds, and
 * ends with the exit code of -Dtessellan.exit (0 when that is not given).
 */
public final class SampleGame {
    private static final int TOWER_HEIGHT = 6;
    private static final long BLOCK_MILLIS = 800;

    public static void main(String[] args) throws InterruptedException {
        System.out.println("Sample game " + SampleGame.class.getPackage().getImplementationVersion());
        printStart(args);
        buildTower();
        int exitCode = Integer.getInteger("tessellan.exit", 0);
        System.out.println("Leaving with exit code " + exitCode);
        System.exit(exitCode);
    }

    /** One argument per line and nothing left out, so that the order can be checked by eye. */
    private static void printStart(String[] args) {
        for (int i = 0; i < args.length; ++i) {
            System.out.println("Argument " + (i + 1) + ": " + args[i]);
        }
        MemoryUsage heap = ManagementFactory.getMemoryMXBean().getHeapMemoryUsage();
        System.out.println("Initial heap: " + megabytes(heap.getInit()));
        System.out.println("Maximum heap: " + megabytes(heap.getMax()));
        System.out.println("JVM options: "
                + String.join(" ", ManagementFactory.getRuntimeMXBean().getInputArguments()));
        System.out.println("Java: " + System.getProperty("java.home"));
        System.out.println("Working directory: " + System.getProperty("user.dir"));
    }

    private static void buildTower() throws InterruptedException {
        for (int height = 1; height <= TOWER_HEIGHT; ++height) {
            Thread.sleep(BLOCK_MILLIS);
            System.out.println("Tower: " + "#".repeat(height) + ".".repeat(TOWER_HEIGHT - height));
        }
    }

    private static String megabytes(long bytes) {
        return bytes / (1024 * 1024) + " MB";
    }
}
