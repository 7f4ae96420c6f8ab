import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;

/**
 * Says how it was started, and ends with the exit code of -Dexit (0 when that is not given).
 */
public final class TestGame {
    public static void main(String[] args) throws Exception {
        byte[] commandLine = Files.readAllBytes(Path.of("/proc/self/cmdline"));
        StringBuilder said = new StringBuilder();
        for (String part : new String(commandLine, StandardCharsets.UTF_8).split("\0")) {
            said.append("started with ").append(part).append('\n');
        }
        for (String arg : args) {
            said.append("told ").append(arg).append('\n');
        }
        said.append("in ").append(System.getProperty("user.dir")).append('\n');
        // In one write, so that no line is torn.
        new FileOutputStream(FileDescriptor.out).write(said.toString().getBytes(StandardCharsets.UTF_8));
        System.exit(Integer.getInteger("exit", 0));
    }
}
