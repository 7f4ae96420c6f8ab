// Linked into a test program, this stands before the C library's file operations. Each operation
// that touches a staged update is one point, counted from 1. FAULT_AT=<n> lets the n-th fail, and
// KILL_AT=<n> kills the process right before it. FAULT_TMPFILE=1 plays a file system without
// unnamed files, and FAULT_EXEC=1 lets no program start. With FAULT_DIR=<directory> operations on
// what lies below it are points as well. FAULT_LINK=<ending> plays somebody who puts a link to
// TMPDIR's "victim" where a file of that ending is about to be made. FAULT_LOG=<file> receives a
// line for each point that was passed.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int maxDescriptors = 1024;
std::atomic<bool> watched[maxDescriptors];
std::atomic<int> passed = 0;
const pid_t self = getpid();

int number(const char* variable)
{
    const char* value = std::getenv(variable);
    return value ? std::atoi(value) : 0;
}

template <typename Function>
Function original(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// `path` as seen from the open directory.
bool isBelowDirectory(int directory, const char* path)
{
    const char* watchedDirectory = std::getenv("FAULT_DIR");
    if (!watchedDirectory)
        return false;
    std::string absolute = path;
    if (absolute[0] != '/' && directory != AT_FDCWD) {
        char start[4096];
        const std::string link = "/proc/self/fd/" + std::to_string(directory);
        const ssize_t size = readlink(link.c_str(), start, sizeof start);
        absolute = std::string(start, size < 0 ? 0 : static_cast<size_t>(size)) + '/' + absolute;
    }
    return absolute.starts_with(std::string(watchedDirectory) + '/');
}

bool concernsUpdate(const char* path)
{
    const size_t length = std::strlen(path);
    return (length > 4 && std::strcmp(path + length - 4, ".new") == 0) ||
           std::strstr(path, "tessellan_launcher_update.sh") || isBelowDirectory(AT_FDCWD, path);
}

bool isWatched(int descriptor)
{
    return descriptor >= 0 && descriptor < maxDescriptors && watched[descriptor];
}

void logPoint(int point, const char* operation)
{
    const char* path = std::getenv("FAULT_LOG");
    if (!path)
        return;
    static const auto realOpen = original<int (*)(const char*, int, ...)>("open64");
    static const auto realWrite = original<ssize_t (*)(int, const void*, size_t)>("write");
    static const auto realClose = original<int (*)(int)>("close");
    const int log = realOpen(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    char line[64];
    const int size = std::snprintf(line, sizeof line, "%d %s\n", point, operation);
    (void)!realWrite(log, line, static_cast<size_t>(size));
    realClose(log);
}

// True when the operation is to fail.
bool reached(const char* operation, int error)
{
    if (getpid() != self)
        return false; // a child on its way to become the script's shell
    const int point = ++passed;
    logPoint(point, operation);
    if (point == number("KILL_AT"))
        raise(SIGKILL);
    if (point != number("FAULT_AT"))
        return false;
    errno = error;
    return true;
}

void plantLink(const char* path)
{
    const char* ending = std::getenv("FAULT_LINK");
    if (!ending || !std::string(path).ends_with(ending))
        return;
    static const auto realSymlink = original<int (*)(const char*, const char*)>("symlink");
    const std::string victim = std::string(std::getenv("TMPDIR")) + "/victim";
    realSymlink(victim.c_str(), path);
}

int openFile(const char* name, const char* path, int flags, mode_t mode)
{
    const auto real = original<int (*)(const char*, int, ...)>(name);
    const bool unnamed = (flags & O_TMPFILE) == O_TMPFILE;
    // Reading a file is no step of an update; a directory is opened to change its mode.
    const bool reads = (flags & O_ACCMODE) == O_RDONLY && !(flags & O_DIRECTORY);
    if (reads || (!unnamed && !concernsUpdate(path)))
        return real(path, flags, mode);
    const char* operation = unnamed               ? "open unnamed"
                            : flags & O_DIRECTORY ? "open directory"
                                                  : "open";
    if (reached(operation, EACCES))
        return -1;
    if (unnamed && number("FAULT_TMPFILE")) {
        errno = EOPNOTSUPP;
        return -1;
    }
    if (flags & O_CREAT)
        plantLink(path);
    const int descriptor = real(path, flags, mode);
    if (descriptor >= 0 && descriptor < maxDescriptors)
        watched[descriptor] = !(flags & O_DIRECTORY) || unnamed;
    return descriptor;
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return openFile("open", path, flags, mode);
}

int open64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return openFile("open64", path, flags, mode);
}

// open() without a mode, as libraries with fortified sources call it.
int openFortified(const char* path, int flags) __asm__("__open_2");
int openFortified(const char* path, int flags)
{
    return openFile("open", path, flags, 0);
}

ssize_t write(int descriptor, const void* data, size_t size)
{
    static const auto real = original<ssize_t (*)(int, const void*, size_t)>("write");
    return isWatched(descriptor) && reached("write", ENOSPC) ? -1 : real(descriptor, data, size);
}

int close(int descriptor)
{
    static const auto real = original<int (*)(int)>("close");
    if (!isWatched(descriptor))
        return real(descriptor);
    watched[descriptor] = false;
    const bool fails = reached("close", EIO);
    const int result = real(descriptor);
    if (!fails)
        return result;
    errno = EIO;
    return -1;
}

int unlink(const char* path) noexcept
{
    static const auto real = original<int (*)(const char*)>("unlink");
    return concernsUpdate(path) && reached("unlink", EPERM) ? -1 : real(path);
}

int linkat(int fromDirectory, const char* from, int toDirectory, const char* to, int flags) noexcept
{
    static const auto real = original<int (*)(int, const char*, int, const char*, int)>("linkat");
    if (concernsUpdate(to) && reached("linkat", EIO))
        return -1;
    plantLink(to);
    return real(fromDirectory, from, toDirectory, to, flags);
}

int chmod(const char* path, mode_t mode) noexcept
{
    static const auto real = original<int (*)(const char*, mode_t)>("chmod");
    return concernsUpdate(path) && reached("chmod", EPERM) ? -1 : real(path, mode);
}

int fchmod(int descriptor, mode_t mode) noexcept
{
    static const auto real = original<int (*)(int, mode_t)>("fchmod");
    return isWatched(descriptor) && reached("fchmod", EPERM) ? -1 : real(descriptor, mode);
}

int openat(int directory, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    static const auto real = original<int (*)(int, const char*, int, ...)>("openat");
    if (isBelowDirectory(directory, path) && reached("openat", EACCES))
        return -1;
    const int descriptor = real(directory, path, flags, mode);
    if (descriptor >= 0 && descriptor < maxDescriptors && (flags & O_CREAT))
        watched[descriptor] = isBelowDirectory(directory, path);
    return descriptor;
}

int fstatat(int directory, const char* path, struct stat* info, int flags) noexcept
{
    static const auto real = original<int (*)(int, const char*, struct stat*, int)>("fstatat");
    return isBelowDirectory(directory, path) && reached("fstatat", EIO)
               ? -1
               : real(directory, path, info, flags);
}

// A directory's too: whoever syncs one of them has put a name there.
static bool isSyncPoint(int descriptor)
{
    struct stat info = {};
    return isWatched(descriptor) || (fstat(descriptor, &info) == 0 && S_ISDIR(info.st_mode));
}

int fsync(int descriptor)
{
    static const auto real = original<int (*)(int)>("fsync");
    return isSyncPoint(descriptor) && reached("fsync", EIO) ? -1 : real(descriptor);
}

int fdatasync(int descriptor)
{
    static const auto real = original<int (*)(int)>("fdatasync");
    return isSyncPoint(descriptor) && reached("fdatasync", EIO) ? -1 : real(descriptor);
}

int mkdirat(int directory, const char* path, mode_t mode) noexcept
{
    static const auto real = original<int (*)(int, const char*, mode_t)>("mkdirat");
    return isBelowDirectory(directory, path) && reached("mkdirat", ENOSPC)
               ? -1
               : real(directory, path, mode);
}

int symlinkat(const char* target, int directory, const char* path) noexcept
{
    static const auto real = original<int (*)(const char*, int, const char*)>("symlinkat");
    return isBelowDirectory(directory, path) && reached("symlinkat", EPERM)
               ? -1
               : real(target, directory, path);
}

int fchmodat(int directory, const char* path, mode_t mode, int flags) noexcept
{
    static const auto real = original<int (*)(int, const char*, mode_t, int)>("fchmodat");
    return isBelowDirectory(directory, path) && reached("fchmodat", EPERM)
               ? -1
               : real(directory, path, mode, flags);
}

int unlinkat(int directory, const char* path, int flags) noexcept
{
    static const auto real = original<int (*)(int, const char*, int)>("unlinkat");
    return isBelowDirectory(directory, path) && reached("unlinkat", EPERM)
               ? -1
               : real(directory, path, flags);
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept
{
    static const auto real = original<int (*)(int, const char*, int, const char*)>("renameat");
    return isBelowDirectory(toDirectory, to) && reached("renameat", EIO)
               ? -1
               : real(fromDirectory, from, toDirectory, to);
}

int mkdir(const char* path, mode_t mode) noexcept
{
    static const auto real = original<int (*)(const char*, mode_t)>("mkdir");
    return concernsUpdate(path) && reached("mkdir", ENOSPC) ? -1 : real(path, mode);
}

int symlink(const char* target, const char* path) noexcept
{
    static const auto real = original<int (*)(const char*, const char*)>("symlink");
    return concernsUpdate(path) && reached("symlink", EPERM) ? -1 : real(target, path);
}

int rename(const char* from, const char* to) noexcept
{
    static const auto real = original<int (*)(const char*, const char*)>("rename");
    return concernsUpdate(to) && reached("rename", EIO) ? -1 : real(from, to);
}

pid_t fork() noexcept
{
    static const auto real = original<pid_t (*)()>("fork");
    return reached("fork", EAGAIN) ? -1 : real();
}

int execv(const char* path, char* const arguments[]) noexcept
{
    static const auto real = original<int (*)(const char*, char* const[])>("execv");
    if (!number("FAULT_EXEC"))
        return real(path, arguments);
    errno = EACCES;
    return -1;
}

int execve(const char* path, char* const arguments[], char* const environment[]) noexcept
{
    static const auto real = original<int (*)(const char*, char* const[], char* const[])>("execve");
    if (!number("FAULT_EXEC"))
        return real(path, arguments, environment);
    errno = EACCES;
    return -1;
}

} // extern "C"
