// A program that asks for no library. As a loader, which no variable of the real one reaches, it
// does with a "program" what that is called.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

int main(int argc, char* argv[])
{
    const char* what = argc > 1 ? argv[1] : "ends";
    const auto is = [what](const char* name) { return std::strcmp(what, name) == 0; };
    if (is("babbles")) {
        for (int i = 0; i < 500'000; ++i)
            std::puts("\tlibx.so.1 => /app/libx.so.1 (0x00007f0000000000)");
    }
    std::printf("\tlibx.so.1 => not found\nprocess %d\n", static_cast<int>(getpid()));
    std::fflush(stdout);
    if (is("crashes"))
        std::abort();
    if (is("hangs"))
        pause();
    return 0;
}
