// Faults arrive as signals, handled on an alternate stack so that a stack overflow is reported
// too. Going on after a fault jumps back to the innermost Main of the faulting thread; a fault
// left to the system gets the handler that was there before, or the default action.
#include "ExceptionHandler.h"
#include "HandlerPlatform.h"

#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kiv
{
namespace
{
const int faultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};
constexpr int signalCount = sizeof faultSignals / sizeof faultSignals[0];
struct sigaction previous[signalCount];
// Room for the report, the callbacks, the log and the window, well past a stack overflow.
constexpr size_t altStackSize = 256 * 1024;

struct Recovery
{
    sigjmp_buf jump;
    Recovery * outer;
};
thread_local Recovery * innermost = nullptr;

// This thread's alternate signal stack, made on its first Main and kept until the thread ends.
class AltStack
{
public:
    AltStack()
    {
        stack_t current{};
        if (sigaltstack(nullptr, &current) != 0 || !(current.ss_flags & SS_DISABLE))
            return; // the thread has one already
        void * memory =
            mmap(nullptr, altStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            return;
        stack_t mine{};
        mine.ss_sp = memory;
        mine.ss_size = altStackSize;
        if (sigaltstack(&mine, nullptr) == 0)
            base = memory;
        else
            munmap(memory, altStackSize);
    }
    ~AltStack()
    {
        if (!base)
            return;
        stack_t off{};
        off.ss_flags = SS_DISABLE;
        sigaltstack(&off, nullptr);
        munmap(base, altStackSize);
    }
    AltStack(const AltStack &) = delete;
    AltStack & operator=(const AltStack &) = delete;

private:
    void * base = nullptr;
};

int IndexOf(int signal)
{
    for (int i = 0; i < signalCount; ++i)
        if (faultSignals[i] == signal)
            return i;
    return -1;
}

// Hands the signal to whoever had it before: the faulting instruction runs again and faults into
// that handler (or the default action); a signal sent by a program is sent again.
void LeaveToSystem(int signal, const siginfo_t * info)
{
    const int index = IndexOf(signal);
    sigaction(signal, &previous[index], nullptr);
    if (info->si_code <= 0)
        raise(signal);
}

// Emulators of 32-bit x86 do not always hand the handler the 16-byte stack alignment that the
// compiler's SSE code expects, so the handler aligns it for itself.
#if defined(__i386__)
__attribute__((force_align_arg_pointer))
#endif
void OnFault(int signal, siginfo_t * info, void * context)
{
    const int savedErrno = errno;
    auto record = HardwareException::SignalRecord::FromSignal(signal, info, context);
    const int result = ExceptionHandler::FilterException(&record);
    Recovery * recovery = innermost;
    if (result != ExceptionHandler::CONTINUE_SEARCH && recovery)
    {
        // The jump leaves the handler without the system's return, which would unblock the signal.
        sigset_t faults;
        sigemptyset(&faults);
        for (int each : faultSignals)
            sigaddset(&faults, each);
        pthread_sigmask(SIG_UNBLOCK, &faults, nullptr);
        siglongjmp(recovery->jump, 1);
    }
    LeaveToSystem(signal, info);
    errno = savedErrno;
}

void InstallHandlers()
{
    struct sigaction action = {};
    action.sa_sigaction = OnFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int i = 0; i < signalCount; ++i)
        sigaction(faultSignals[i], &action, &previous[i]);
}

// Installed once for the process and kept: a fault outside every Main is still reported, and a
// Main costs no system calls.
void PrepareThread()
{
    static const bool installed = (InstallHandlers(), true);
    thread_local AltStack altStack;
    (void)installed;
    (void)altStack;
}

// The kernel names a core file after its pattern; when that is a plain file name, the core of a
// dump is found and renamed after the report.
char corePattern[64] = "";

void ReadCorePattern()
{
    const int file = open("/proc/sys/kernel/core_pattern", O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return;
    const ssize_t got = read(file, corePattern, sizeof corePattern - 1);
    close(file);
    corePattern[got > 0 ? got : 0] = '\0';
    corePattern[std::strcspn(corePattern, "\n")] = '\0';
    if (std::strpbrk(corePattern, "|%/"))
        corePattern[0] = '\0';
}

// The length of the folder part of a path, its last separator included.
size_t FolderLength(const char * path)
{
    const char * slash = std::strrchr(path, '/');
    return slash ? size_t(slash + 1 - path) : 0;
}

void RenameCore(const char * name, pid_t child)
{
    char core[400], target[300];
    std::snprintf(target, sizeof target, "%s.core", name);
    const int folder = int(FolderLength(name));
    std::snprintf(core, sizeof core, "%.*s%s.%d", folder, name, corePattern, int(child));
    if (rename(core, target) != 0)
    {
        std::snprintf(core, sizeof core, "%.*s%s", folder, name, corePattern);
        rename(core, target);
    }
}

// Only the kind of display matters here: the message box itself comes from SDL 2, loaded when the
// window is needed, so the library needs SDL neither to build nor to run.
struct MessageBoxButton
{
    uint32_t flags;
    int id;
    const char * text;
};
struct MessageBoxData
{
    uint32_t flags;
    void * window;
    const char * title;
    const char * message;
    int buttonCount;
    const MessageBoxButton * buttons;
    const void * colours;
};
constexpr uint32_t messageBoxError = 0x10, returnKeyDefault = 1, escapeKeyDefault = 2;

int AskWithSdl(const char * report, int & stage)
{
    void * sdl = dlopen("libSDL2-2.0.so.0", RTLD_NOW | RTLD_LOCAL);
    if (!sdl)
        return -1;
    using Show = int (*)(const MessageBoxData *, int *);
    auto show = reinterpret_cast<Show>(dlsym(sdl, "SDL_ShowMessageBox"));
    const MessageBoxButton buttons[] = {{escapeKeyDefault, 1, "Terminate"},
                                        {returnKeyDefault, 0, "Continue"}};
    const MessageBoxData data = {messageBoxError, nullptr, "Fatal Error", report, 2, buttons, nullptr};
    int answer = 1;
    stage = 1;
    if (!show || show(&data, &answer) != 0)
        answer = -1;
    dlclose(sdl);
    return answer;
}
} // namespace

namespace HandlerPlatform
{
int RunGuarded(int (*function)(void *), void * data)
{
    PrepareThread();
    Recovery recovery;
    recovery.outer = innermost;
    innermost = &recovery;
    int result = ExceptionHandler::Failed;
    if (sigsetjmp(recovery.jump, 0) == 0)
        result = ExceptionHandler::MainTryCatch(function, data);
    innermost = recovery.outer;
    return result;
}

void SetSystemCoreDumps(bool enabled)
{
    rlimit limit{};
    if (getrlimit(RLIMIT_CORE, &limit) != 0)
        return;
    limit.rlim_cur = enabled ? limit.rlim_max : 0;
    setrlimit(RLIMIT_CORE, &limit);
    ReadCorePattern();
}

// A child forked at the fault ends with a core dump of its copy of the process, while the process
// itself goes on as the user decides.
void WriteDump(const char * name, void *, int)
{
    const pid_t child = _Fork();
    if (child == 0)
    {
        rlimit limit{};
        getrlimit(RLIMIT_CORE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_CORE, &limit);
        char folder[260];
        std::snprintf(folder, sizeof folder, "%.*s", int(FolderLength(name)), name);
        if (folder[0] && chdir(folder) != 0)
            _exit(1);
        signal(SIGABRT, SIG_DFL);
        sigset_t abort;
        sigemptyset(&abort);
        sigaddset(&abort, SIGABRT);
        pthread_sigmask(SIG_UNBLOCK, &abort, nullptr);
        kill(getpid(), SIGABRT);
        _exit(1);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR)
    {
    }
    if (child > 0 && corePattern[0])
        RenameCore(name, child);
}

void WriteTextFile(const char * name, const char * text)
{
    const int file = open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0)
        return;
    for (size_t left = std::strlen(text); left > 0;)
    {
        const ssize_t written = write(file, text, left);
        if (written <= 0)
            break;
        text += written;
        left -= size_t(written);
    }
    close(file);
}

// A person is asked in a message box when there is a display and a terminal behind the program;
// otherwise the report goes to standard error and the program ends.
int ShowWindow(Exception & exception, const char * report, int & stage)
{
    ExceptionHandler::InitExceptionDialog(nullptr, exception);
    const bool display = getenv("DISPLAY") || getenv("WAYLAND_DISPLAY");
    if (display && isatty(0))
    {
        const int answer = AskWithSdl(report, stage);
        if (answer >= 0 || stage != 0)
            return answer;
    }
    std::fprintf(stderr, "Fatal Error\n%s\n", report);
    return 1;
}

void AddListLine(void *, void *, const char *) {}

unsigned long ProcessId()
{
    return static_cast<unsigned long>(getpid());
}
} // namespace HandlerPlatform
} // namespace Kiv
