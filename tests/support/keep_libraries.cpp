// Linked into every test, this stands before the C library's. Qt closes Mesa's driver with its last
// context; what the driver's globals still hold would then look lost, in a library without a name.
extern "C" int dlclose(void* /*library*/) noexcept
{
    return 0;
}

// Mesa's GLX library on Debian 13 forgets the list of configurations of a screen that it closes.
extern "C" const char* __lsan_default_suppressions() // NOLINT(bugprone-reserved-identifier)
{
    return "leak:libGLX_mesa.so\n";
}
