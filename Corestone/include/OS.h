// Kiv::OS: what the library knows of the process it runs in (the application's name, the program's
// path and command line) and the process-wide option set filled from them at start-up.
#pragma once

#include "KivApi.h"

namespace Kiv
{
class Options;

class KIV_API OS
{
public:
    // The built-in default option string. It is writable, so a host may replace it before start-up.
    static char * GetDefaultOptions();

    static void SetAppName(const char * name);
    static const char * GetAppName();
    // The program's full path, and its file name without directory and extension.
    static const char * GetProcessPath();
    static const char * GetProcessName();
    // Records the program's arguments; the command line is those after the program, each
    // followed by a blank.
    static void SetCmdLine(int argc, char ** const argv);
    static const char * GetCmdLine();

    // The process-wide option set.
    static Options & GetOptions();
    // Fills it in start-up order: the default option string, then the standard sources for the
    // application, then the extra option string. Answers the set.
    static Options & InitOptions(const char * appName, const char * extra);
};
} // namespace Kiv
