// A host program starting the library's services in their documented order: the process-wide
// option set (defaults, environment, option files, command line), the log, then the exception
// handler, under which the rest runs. It mounts a substitution "data" over a folder and an
// archive, reads a configuration through it and logs what it did into KivLog.txt (or the file the
// option LogFile names), in the current folder.
//
//   HostDemo [-LogAnsi] [-LogStdErr] [-LogFile=name] [-Speed=n]
#include "Kiv.h"

#include <cstdio>
#include <cstring>

namespace
{
Kiv::LogClient * demo;

bool WriteFile(const char * name, const char * text)
{
    Kiv::File file;
    if (!file.Open(name, Kiv::File::MODE_WRITE | Kiv::File::MODE_CREATE).Succeeded())
        return false;
    const unsigned long length = static_cast<unsigned long>(std::strlen(text));
    return file.Write(text, length, 1) == length && file.Close() == 0;
}

// A folder with the shipped configuration and an archive with a patch of it; the archive is
// built through a writable substitution of its own, as a packing tool would.
bool MakeData()
{
    Kiv::File::Md("HostDemoData");
    Kiv::File::Remove("HostDemoData/patch.arc");
    const bool shipped = WriteFile("HostDemoData/game.cfg", "version 1.00\r\n"
                                                            "window { width = 640; height = 480; }\r\n"
                                                            "speed = 1.5;\r\n"
                                                            "title = \"Shipped\";\r\n");
    const bool readme = WriteFile("HostDemoData/readme.txt", "Only in the folder.\r\n");
    Kiv::File::Subst("patch", "HostDemoData/patch.arc", true);
    const bool patched = WriteFile("patch:game.cfg", "version 1.00\r\n"
                                                     "window { width = 1280; height = 720; }\r\n"
                                                     "speed = 2.0;\r\n"
                                                     "title = \"Patched\";\r\n");
    // Removing the substitution closes the archive and writes its index.
    Kiv::File::Subst("patch", nullptr);
    return shipped && readme && patched;
}

bool ReadConfiguration(const Kiv::Options & options)
{
    Kiv::ConfigParser parser;
    if (parser.Parse(Kiv::PString("data"), "game.cfg") != Kiv::ConfigParser::RES_OK)
    {
        demo->Print(Kiv::LogClient::LEVEL_ERR, "data:game.cfg unreadable: %s",
                    static_cast<const char *>(parser.GetLastError()));
        return false;
    }
    const Kiv::ConfigData & config = *static_cast<const Kiv::ConfigParser &>(parser).GetConfig();
    const Kiv::ConfigData & window = config(Kiv::PString("window"));
    demo->Print(Kiv::LogClient::LEVEL_DIAG, "data:game.cfg: window %dx%d, title %s",
                window(Kiv::PString("width")).GetIntData(), window(Kiv::PString("height")).GetIntData(),
                static_cast<const char *>(config(Kiv::PString("title")).GetPStringData()));
    // An option overrides what the configuration says.
    float speed = config(Kiv::PString("speed")).GetFloatData();
    if (options.Get("Speed", speed, speed))
        demo->Print(Kiv::LogClient::LEVEL_DIAG, "speed %.2f from the option Speed", speed);
    else
        demo->Print(Kiv::LogClient::LEVEL_DIAG, "speed %.2f from the configuration", speed);
    Kiv::File readme;
    char line[128] = "";
    if (!readme.Open("data:readme.txt", Kiv::File::MODE_READ).Succeeded())
        return false;
    readme.ReadLine(line, sizeof line);
    line[std::strcspn(line, "\r\n")] = 0;
    demo->Print(Kiv::LogClient::LEVEL_DIAG, "data:readme.txt (through to the folder): %s", line);
    return true;
}
// The host's work, run under the exception handler: a fault ends in a crash report in the log.
int Run(void * data)
{
    const Kiv::Options & options = *static_cast<const Kiv::Options *>(data);
    if (!MakeData())
    {
        demo->Print(Kiv::LogClient::LEVEL_ERR, "cannot write HostDemoData in the current folder");
        return 1;
    }
    // The archive is added last, so it is searched first.
    Kiv::File::Subst("data", "HostDemoData/");
    Kiv::File::Subst("data", "HostDemoData/patch.arc");
    demo->Print(Kiv::LogClient::LEVEL_DIAG, "mounted data: HostDemoData/patch.arc, then HostDemoData/");
    const bool read = ReadConfiguration(options);
    Kiv::File::Subst("data", nullptr);

    Kiv::String logFile;
    options.Get("LogFile", logFile, Kiv::String("KivLog.txt"));
    std::printf("HostDemo: %s; the log is in %s\n", read ? "configuration read" : "configuration not read",
                static_cast<const char *>(logFile));
    return read ? 0 : 1;
}
} // namespace

int main(int argc, char ** argv)
{
    // The host's own client is configured like any other, ahead of the command line.
    Kiv::OS::SetCmdLine(argc, argv);
    Kiv::String extra("+Log=HostDemo:Diag:mono=off ");
    extra += Kiv::OS::GetCmdLine();
    Kiv::Options & options = Kiv::OS::InitOptions("HostDemo", extra);
    Kiv::Log::Init(&options);
    Kiv::ExceptionHandler::Init(&options);
    demo = Kiv::Log::GetClient("HostDemo");
    demo->Print(Kiv::LogClient::LEVEL_DIAG, "%s started as %s with %u options", Kiv::OS::GetAppName(),
                Kiv::OS::GetProcessPath(), options.GetCount());
    return Kiv::ExceptionHandler::Main(Run, &options);
}
