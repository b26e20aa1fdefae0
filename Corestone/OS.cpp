#include "OS.h"

#include "File.h"
#include "OSPlatform.h"
#include "Options.h"
#include "String.h"

namespace Kiv
{
namespace
{
char defaultOptions[] = " +InputKeyboard=Default,Win32,DirectX +InputMouse=Default,Win32,DirectX "
                        "+InputJoystick=Default,DirectX,Win32 +Input=Win32,DirectX +Render=OpenGL,DirectX "
                        "-FrameRate=85 +Network=Native -Sound=DirectX,DirectX7,OpenAL,FMod -Movie=DirectShow "
                        "-ShowRenderAPI -ShowFPS -Disable3dfxSplash "
                        "-aAllocIgnore=FastDynamicArray;FastDynamicArrayObj;Str;Bitmap;HashTable "
                        "+Log=File:Err -StencilBits=8 -LogFlush-";

// What start-up records of the process; the host writes it on its first thread before others read.
struct ProcessFacts
{
    ProcessFacts()
    {
        if (!ReadProcessPath(path.Buffer()))
            path = "";
        name.GetFileName(path);
        name.SetExt(nullptr);
    }

    String appName{""};
    String commandLine{""};
    File::Path path;
    File::Path name;
};

ProcessFacts & Facts()
{
    static ProcessFacts facts;
    return facts;
}
} // namespace

char * OS::GetDefaultOptions()
{
    return defaultOptions;
}

void OS::SetAppName(const char * name)
{
    Facts().appName = name != nullptr ? name : "";
}

const char * OS::GetAppName()
{
    return Facts().appName;
}

const char * OS::GetProcessPath()
{
    return Facts().path;
}

const char * OS::GetProcessName()
{
    return Facts().name;
}

void OS::SetCmdLine(int argc, char ** const argv)
{
    String line("");
    for (int i = 1; i < argc && argv != nullptr; ++i)
    {
        if (argv[i] == nullptr)
            continue;
        line += argv[i];
        line += " ";
    }
    Facts().commandLine = line;
}

const char * OS::GetCmdLine()
{
    return Facts().commandLine;
}

Options & OS::GetOptions()
{
    static Options options;
    return options;
}

Options & OS::InitOptions(const char * appName, const char * extra)
{
    SetAppName(appName);
    Options & options = GetOptions();
    options.ProcessRaw(GetDefaultOptions());
    options.Init(appName, extra);
    return options;
}
} // namespace Kiv
