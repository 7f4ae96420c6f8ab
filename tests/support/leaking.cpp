// Loses what it was given. The test is that the run fails, or none would for a leak.
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    for (int i = 0; i < 100; ++i)
        argv[0] = static_cast<char*>(std::malloc(static_cast<std::size_t>(argc) + 100));
    argv[0] = nullptr;
    std::puts("lost");
}
