// Faults arrive at the process's unhandled-exception filter (MinGW has no __try): the exceptions a
// frame handles itself never reach it. Going on after a fault resumes the faulting thread in a
// small function that jumps back to its innermost Main. A stack overflow is handled on a helper
// thread, as the faulting thread has almost no stack left.
#include "ExceptionHandler.h"
#include "HandlerPlatform.h"

#include <cstdio>
#include <cstring>
#include <windows.h>

#include <dbghelp.h>

namespace Kiv
{
namespace
{
struct Recovery
{
    void * jump[5]; // for __builtin_setjmp
    Recovery * outer;
    void * exceptionList; // the head of the frame handlers' chain (32-bit only)
};
thread_local Recovery * innermost = nullptr;
LPTOP_LEVEL_EXCEPTION_FILTER previousFilter = nullptr;
// The thread whose fault is being handled: a helper thread handles a stack overflow.
DWORD faultingThread = 0;

void * ExceptionListHead()
{
#if defined(__i386__)
    void * head;
    __asm__ volatile("movl %%fs:0, %0" : "=r"(head));
    return head;
#else
    return nullptr;
#endif
}

#if defined(__i386__)
#define RESUME_CONVENTION __attribute__((fastcall))
#else
#define RESUME_CONVENTION
#endif

// Where a thread resumes after a fault it goes on from: the frames of the faulting code are left
// behind as they are, and the chain of frame handlers is cut back to the Main's.
[[noreturn]] RESUME_CONVENTION void Resume(Recovery * recovery)
{
#if defined(__i386__)
    __asm__ volatile("movl %0, %%fs:0" : : "r"(recovery->exceptionList) : "memory");
#endif
    __builtin_longjmp(recovery->jump, 1);
}

void ResumeAt(CONTEXT & context, Recovery * recovery)
{
#if defined(__x86_64__)
    context.Rsp = (context.Rsp & ~DWORD64(15)) - 40; // aligned as at a call, with its shadow space
    context.Rcx = reinterpret_cast<DWORD64>(recovery);
    context.Rip = reinterpret_cast<DWORD64>(&Resume);
#else
    context.Esp &= ~DWORD(15);
    context.Ecx = reinterpret_cast<DWORD>(recovery);
    context.Eip = reinterpret_cast<DWORD>(&Resume);
#endif
}

struct FilterJob
{
    EXCEPTION_POINTERS * pointers;
    int result;
};

DWORD WINAPI FilterOnHelper(void * job)
{
    auto & filter = *static_cast<FilterJob *>(job);
    filter.result = ExceptionHandler::FilterException(filter.pointers);
    return 0;
}

int Filter(EXCEPTION_POINTERS * pointers)
{
    FilterJob job{pointers, ExceptionHandler::CONTINUE_SEARCH};
    if (pointers->ExceptionRecord->ExceptionCode != EXCEPTION_STACK_OVERFLOW)
        return ExceptionHandler::FilterException(pointers);
    if (HANDLE helper = CreateThread(nullptr, 1 << 20, FilterOnHelper, &job, 0, nullptr))
    {
        WaitForSingleObject(helper, INFINITE);
        CloseHandle(helper);
    }
    return job.result;
}

LONG WINAPI TopFilter(EXCEPTION_POINTERS * pointers)
{
    faultingThread = GetCurrentThreadId();
    const int result = Filter(pointers);
    if (result != ExceptionHandler::CONTINUE_SEARCH && innermost)
    {
        ResumeAt(*pointers->ContextRecord, innermost);
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    return previousFilter ? previousFilter(pointers) : EXCEPTION_CONTINUE_SEARCH;
}

// The window: a list of the report's lines and the two buttons, in dialog units.
enum
{
    LIST = 1002,
    CONTINUE = 1003,
    TERMINATE = 1004,
    GRIP = 15
};

struct DialogState
{
    Exception * exception;
    POINT minimum;     // the window's size at creation
    SIZE buttonOffset; // of the first button's corner from the lower right corner
    int widest;        // the widest line of the list, in pixels
};
DialogState state;

// Appends a WORD-aligned template piece.
class Template
{
public:
    void Words(const void * data, size_t bytes)
    {
        std::memcpy(reinterpret_cast<char *>(buffer) + used, data, bytes);
        used += (bytes + 1) & ~size_t(1);
    }
    void Word(WORD value) { Words(&value, sizeof value); }
    void Text(const wchar_t * text) { Words(text, (wcslen(text) + 1) * sizeof(wchar_t)); }
    void AlignToDword() { used = (used + 3) & ~size_t(3); }
    void Item(DWORD style, short x, short y, short cx, short cy, WORD id, WORD classAtom,
              const wchar_t * text)
    {
        AlignToDword();
        DLGITEMTEMPLATE item = {style | WS_CHILD | WS_VISIBLE, 0, x, y, cx, cy, id};
        Words(&item, sizeof item);
        Word(0xFFFF);
        Word(classAtom);
        Text(text);
        Word(0);
    }
    const DLGTEMPLATE * Get() const { return reinterpret_cast<const DLGTEMPLATE *>(buffer); }

private:
    DWORD buffer[256] = {};
    size_t used = 0;
};

const DLGTEMPLATE * DialogTemplate()
{
    static Template dialog;
    static bool built = false;
    if (built)
        return dialog.Get();
    DLGTEMPLATE head = {WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_THICKFRAME | DS_MODALFRAME | DS_SETFONT |
                            DS_CENTER,
                        0,
                        3,
                        0,
                        0,
                        320,
                        200};
    dialog.Words(&head, sizeof head);
    dialog.Word(0); // no menu
    dialog.Word(0); // the dialog class
    dialog.Text(L"Fatal Error");
    dialog.Word(8);
    dialog.Text(L"MS Shell Dlg");
    dialog.Item(WS_BORDER | WS_VSCROLL | WS_HSCROLL | LBS_NOINTEGRALHEIGHT | LBS_NOSEL, 7, 7, 306, 162, LIST,
                0x0083, L"");
    dialog.Item(WS_TABSTOP | BS_DEFPUSHBUTTON, 199, 177, 55, 16, CONTINUE, 0x0080, L"Continue");
    dialog.Item(WS_TABSTOP | BS_PUSHBUTTON, 258, 177, 55, 16, TERMINATE, 0x0080, L"Terminate");
    built = true;
    return dialog.Get();
}

RECT ChildRect(HWND dialog, int id)
{
    RECT r;
    GetWindowRect(GetDlgItem(dialog, id), &r);
    MapWindowPoints(nullptr, dialog, reinterpret_cast<POINT *>(&r), 2);
    return r;
}

void Remember(HWND dialog)
{
    RECT window, client;
    GetWindowRect(dialog, &window);
    GetClientRect(dialog, &client);
    state.minimum = {window.right - window.left, window.bottom - window.top};
    const RECT button = ChildRect(dialog, CONTINUE);
    state.buttonOffset = {client.right - button.left, client.bottom - button.top};
    state.widest = 0;
}

// The list keeps its margins and the buttons keep their distance from the lower right corner.
void Layout(HWND dialog, int width, int height)
{
    const RECT list = ChildRect(dialog, LIST);
    const RECT first = ChildRect(dialog, CONTINUE);
    const RECT second = ChildRect(dialog, TERMINATE);
    const int x = width - state.buttonOffset.cx, y = height - state.buttonOffset.cy;
    MoveWindow(GetDlgItem(dialog, LIST), list.left, list.top, width - 2 * list.left, y - list.top - list.top,
               TRUE);
    MoveWindow(GetDlgItem(dialog, CONTINUE), x, y, first.right - first.left, first.bottom - first.top, TRUE);
    MoveWindow(GetDlgItem(dialog, TERMINATE), x + second.left - first.left, y, second.right - second.left,
               second.bottom - second.top, TRUE);
    InvalidateRect(dialog, nullptr, TRUE);
}

RECT GripRect(HWND dialog)
{
    RECT client;
    GetClientRect(dialog, &client);
    return {client.right - GRIP, client.bottom - GRIP, client.right, client.bottom};
}

INT_PTR CALLBACK DialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
    case WM_INITDIALOG:
        Remember(dialog);
        ExceptionHandler::InitExceptionDialog(dialog, *state.exception);
        return TRUE;
    case WM_GETMINMAXINFO:
        reinterpret_cast<MINMAXINFO *>(lParam)->ptMinTrackSize = state.minimum;
        return TRUE;
    case WM_SIZE:
        Layout(dialog, LOWORD(lParam), HIWORD(lParam));
        return TRUE;
    case WM_PAINT:
    {
        PAINTSTRUCT paint;
        HDC dc = BeginPaint(dialog, &paint);
        RECT grip = GripRect(dialog);
        DrawFrameControl(dc, &grip, DFC_SCROLL, DFCS_SCROLLSIZEGRIP);
        EndPaint(dialog, &paint);
        return TRUE;
    }
    case WM_NCHITTEST:
    {
        POINT at = {short(LOWORD(lParam)), short(HIWORD(lParam))};
        ScreenToClient(dialog, &at);
        RECT grip = GripRect(dialog);
        if (!PtInRect(&grip, at))
            return FALSE;
        SetWindowLongPtrA(dialog, DWLP_MSGRESULT, HTBOTTOMRIGHT);
        return TRUE;
    }
    case WM_COMMAND:
        if (LOWORD(wParam) == CONTINUE || LOWORD(wParam) == TERMINATE || LOWORD(wParam) == IDCANCEL)
            EndDialog(dialog, LOWORD(wParam) == CONTINUE ? 0 : 1);
        return TRUE;
    case WM_CLOSE:
        EndDialog(dialog, 1);
        return TRUE;
    default:
        return FALSE;
    }
}
} // namespace

namespace HandlerPlatform
{
int RunGuarded(int (*function)(void *), void * data)
{
    static const LPTOP_LEVEL_EXCEPTION_FILTER installed = previousFilter =
        SetUnhandledExceptionFilter(TopFilter);
    (void)installed;
    Recovery recovery;
    recovery.outer = innermost;
    recovery.exceptionList = ExceptionListHead();
    innermost = &recovery;
    int result = ExceptionHandler::Failed;
    if (__builtin_setjmp(recovery.jump) == 0)
        result = ExceptionHandler::MainTryCatch(function, data);
    innermost = recovery.outer;
    return result;
}

// Windows Error Reporting decides for itself about faults left to the system.
void SetSystemCoreDumps(bool) {}

// "CoreOptions" is the MINIDUMP_TYPE of the dump: 0 for the threads' stacks alone, 2
// (MiniDumpWithFullMemory) for the whole memory, and so on.
void WriteDump(const char * name, void * record, int options)
{
    char file[MAX_PATH + 8];
    std::snprintf(file, sizeof file, "%s.dmp", name);
    HANDLE dump = CreateFileA(file, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (dump == INVALID_HANDLE_VALUE)
        return;
    MINIDUMP_EXCEPTION_INFORMATION fault = {faultingThread, static_cast<EXCEPTION_POINTERS *>(record), FALSE};
    MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), dump, MINIDUMP_TYPE(options), &fault,
                      nullptr, nullptr);
    CloseHandle(dump);
}

void WriteTextFile(const char * name, const char * text)
{
    HANDLE file = CreateFileA(name, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return;
    DWORD written = 0;
    WriteFile(file, text, DWORD(std::strlen(text)), &written, nullptr);
    CloseHandle(file);
}

int ShowWindow(Exception & exception, const char *, int & stage)
{
    state.exception = &exception;
    const INT_PTR answer =
        DialogBoxIndirectParamA(GetModuleHandleA(nullptr), DialogTemplate(), nullptr, DialogProc, 0);
    stage = answer == -1 ? 0 : 1;
    return answer == 0 || answer == 1 ? int(answer) : -1;
}

// Each line widens the list's scrolling extent to the widest line, with room for the scroll bar.
void AddListLine(void * dialog, void * list, const char * line)
{
    HWND box = list ? static_cast<HWND>(list) : GetDlgItem(static_cast<HWND>(dialog), LIST);
    SendMessageA(box, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(line));
    HDC dc = GetDC(box);
    HGDIOBJ font = SelectObject(dc, reinterpret_cast<HGDIOBJ>(SendMessageA(box, WM_GETFONT, 0, 0)));
    SIZE extent = {0, 0};
    GetTextExtentPoint32A(dc, line, int(std::strlen(line)), &extent);
    SelectObject(dc, font);
    ReleaseDC(box, dc);
    if (extent.cx > state.widest)
    {
        state.widest = extent.cx;
        SendMessageA(box, LB_SETHORIZONTALEXTENT, state.widest + 3 * GetSystemMetrics(SM_CXVSCROLL), 0);
    }
}

unsigned long ProcessId()
{
    return GetCurrentProcessId();
}
} // namespace HandlerPlatform
} // namespace Kiv
