// Usage: exchange <directory> <directory>
// Lets two directories of one file system take each other's name in one step, which no tool of
// Debian 12 does. `install` calls it: whoever looks, at any moment, finds a whole launcher.

#include <cstdio>

#include <fcntl.h>

int main(int argc, char* argv[])
{
    if (argc != 3)
        return 2;
    if (renameat2(AT_FDCWD, argv[1], AT_FDCWD, argv[2], RENAME_EXCHANGE) == 0)
        return 0;
    std::perror("exchange");
    return 1;
}
