#include "Options.h"
#include "File.h"
#include "OS.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

using Kiv::Options;
using Kiv::String;
using TestSupport::TempDir;

namespace
{
std::string Value(const Options & options, const char * name)
{
    String value;
    if (!options.Get(name, value))
        return "<absent>";
    return value != nullptr ? static_cast<const char *>(value) : "";
}

void SetEnv(const char * name, const char * value)
{
#if defined(_WIN32)
    _putenv_s(name, value != nullptr ? value : "");
#else
    if (value != nullptr)
        setenv(name, value, 1);
    else
        unsetenv(name);
#endif
}

// UTF-16 little-endian with its mark, as a wide editor saves an option file.
void WriteUtf16(const std::string & fileName, const std::string & text)
{
    std::vector<unsigned char> bytes = {0xFF, 0xFE};
    for (char c : text)
    {
        bytes.push_back(static_cast<unsigned char>(c));
        bytes.push_back(0);
    }
    TestSupport::WriteBytes(fileName, bytes);
}
} // namespace

TEST(Options, SyntaxQuirks)
{
    Options options;
    options.ProcessRaw("-FrameRate=85 -FrameRate=60 +Render=OpenGL +Render=Soft -a=x y -b=z "
                       "-q='x -y' -d=\"mixed' -LogFlush- -ShowFPS /Slash = spaced out\t\r\n-LOG=1 "
                       "+Fresh=one -e= -f -g+-h");
    EXPECT_EQ(Value(options, "FrameRate"), "60");
    EXPECT_EQ(Value(options, "render"), "OpenGL,Soft");
    EXPECT_EQ(Value(options, "a"), "x y");
    EXPECT_EQ(Value(options, "b"), "z");
    EXPECT_EQ(Value(options, "q"), "x -y");
    EXPECT_EQ(Value(options, "d"), "mixed");
    EXPECT_EQ(Value(options, "LogFlush"), "-");
    EXPECT_EQ(Value(options, "ShowFPS"), "");
    EXPECT_EQ(Value(options, "slash"), "spaced out");
    EXPECT_EQ(Value(options, "log"), "1");
    EXPECT_EQ(Value(options, "fresh"), "one");
    // A value starts after the blanks that follow "=", even at the next option's prefix.
    EXPECT_EQ(Value(options, "e"), "-f");
    EXPECT_EQ(Value(options, "g"), "+");
    EXPECT_EQ(Value(options, "h"), "");
    EXPECT_EQ(Value(options, "missing"), "<absent>");

    // Malformed text yields odd names but always ends: an unclosed quote runs to the end.
    options.ProcessRaw("= -- -'x -k='open ended");
    EXPECT_EQ(Value(options, "k"), "open ended");
    options.ProcessRaw("+Fresh +Fresh=two");
    EXPECT_EQ(Value(options, "fresh"), "one,,two");
}

TEST(Options, TypedReads)
{
    Options options;
    options.ProcessRaw(
        "-Bare -Minus=- -Plus=+ -Off=OFF -True=true -Other=maybe -Num=42x -Neg=-1 "
        "-Big=99999999999 -F=2.5 -V=1,,3 -C=0.5,0.25 -R=3 -Q= , ,1,2,3 -Words=a b; c;;d ; -Empty=");
    const auto Bool = [&](const char * name, bool fallback)
    {
        bool value = !fallback;
        const bool present = options.Get(name, value, fallback);
        return std::string(present ? "present " : "absent ") + (value ? "true" : "false");
    };
    EXPECT_EQ(Bool("Bare", false), "present true");
    EXPECT_EQ(Bool("Bare", true), "present false");
    EXPECT_EQ(Bool("Minus", true), "present false");
    EXPECT_EQ(Bool("Plus", false), "present true");
    EXPECT_EQ(Bool("Off", true), "present false");
    EXPECT_EQ(Bool("True", false), "present true");
    EXPECT_EQ(Bool("Other", false), "present true");
    EXPECT_EQ(Bool("Other", true), "present false");
    EXPECT_EQ(Bool("Absent", true), "absent true");

    int number = 7;
    EXPECT_TRUE(options.Get("Num", number, 0));
    EXPECT_EQ(number, 42);
    EXPECT_FALSE(options.Get("Absent", number, 5));
    EXPECT_EQ(number, 5);
    EXPECT_TRUE(options.Get("Empty", number, 5));
    EXPECT_EQ(number, 0);
    EXPECT_TRUE(options.Get("Big", number, 0));
    EXPECT_EQ(number, 2147483647);
    unsigned long wide = 0;
    EXPECT_TRUE(options.Get("Neg", wide, 0ul));
    EXPECT_EQ(wide, 0xFFFFFFFFul);
    float real = 0;
    EXPECT_TRUE(options.Get("F", real, 1.0f));
    EXPECT_EQ(real, 2.5f);
    Kiv::Vector3 vector;
    EXPECT_TRUE(options.Get("V", vector, Kiv::Vector3(7, 8, 9)));
    EXPECT_EQ(vector, Kiv::Vector3(1, 8, 3));
    Kiv::Color color;
    EXPECT_TRUE(options.Get("C", color, Kiv::Color(1, 1, 1, 1)));
    EXPECT_EQ(color, Kiv::Color(0.5f, 0.25f, 1, 1));
    Kiv::Range<int> range(1, 9);
    EXPECT_TRUE(options.Get("R", range));
    EXPECT_EQ(range, Kiv::Range<int>(3, 9));
    Kiv::Quaternion turn;
    EXPECT_TRUE(options.Get("Q", turn, Kiv::Quaternion(5, 6, 7, 8)));
    EXPECT_EQ(turn.x, 5);
    EXPECT_EQ(turn.y, 6);
    EXPECT_EQ(turn.z, 1);
    EXPECT_EQ(turn.w, 2);
    Kiv::DynamicArray<String, 41> words;
    words.Add("stale");
    EXPECT_TRUE(options.Get("Words", words, ";"));
    ASSERT_EQ(words.GetCount(), 3);
    EXPECT_STREQ(words[0], "a b");
    EXPECT_STREQ(words[2], "d");
    Kiv::PString pooled;
    EXPECT_TRUE(options.Get("Other", pooled, Kiv::PString("none")));
    EXPECT_EQ(pooled, Kiv::PString("maybe"));
}

TEST(Options, GetNextWalksElements)
{
    Options options;
    options.ProcessRaw("-List=a , b,,c  ;d -Nums=1;2;x -Lead=,a");
    String element;
    EXPECT_FALSE(options.GetNext("List", element));
    options.SetSeparators("Absent", ",");
    options.SetSeparators("list", ",;");
    std::string walked;
    while (options.GetNext("LIST", element))
        walked += std::string("[") + static_cast<const char *>(element) + "]";
    EXPECT_EQ(walked, "[a][b][c][d]");
    EXPECT_FALSE(options.GetNext("List", element));

    options.SetSeparators("Nums", ";");
    int sum = 0;
    for (int number = 0; options.GetNext("Nums", number);)
        sum += number * 10 + 1;
    EXPECT_EQ(sum, 10 + 1 + 20 + 1 + 1);
    // An element of zero length ends the walk at once.
    options.SetSeparators("Lead", ",");
    EXPECT_FALSE(options.GetNext("Lead", element));

    // A value replaced mid-walk by a shorter one ends the walk instead of reading past it.
    options.SetSeparators("List", ",");
    EXPECT_TRUE(options.GetNext("List", element));
    options.ProcessRaw("-List=");
    EXPECT_FALSE(options.GetNext("List", element));
}

TEST(Options, DumpAndFileAndManyNames)
{
    Options options;
    options.ProcessRaw("-Zeta=1 -ALPHA=two words");
    testing::internal::CaptureStdout();
    options.Dump();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[zeta] = [1]\n[alpha] = [two words]\n");

    // Thousands of names stay reachable as the lookup table grows.
    std::string many;
    for (int i = 0; i < 3000; ++i)
        many += " -Name" + std::to_string(i) + "=" + std::to_string(i * 3);
    options.ProcessRaw(many.c_str());
    EXPECT_EQ(options.GetCount(), 3002u);
    for (int i = 0; i < 3000; i += 7)
        ASSERT_EQ(Value(options, ("NAME" + std::to_string(i)).c_str()), std::to_string(i * 3));

    TempDir dir;
    options.ProcessFile((dir / "missing.txt").c_str());
    TestSupport::WriteText(dir / "empty.txt", "");
    options.ProcessFile((dir / "empty.txt").c_str());
    EXPECT_EQ(options.GetCount(), 3002u);
}

// Every source adds its own word to one "+" list, so the list shows which sources were read and
// in which order. The program is named like a tool build ("_7c"), in a directory of its own.
TEST(Options, StandardSourcesInOrder)
{
    TempDir dir;
    const std::string programDir = dir / "bin";
    ASSERT_TRUE(Kiv::File::Md(programDir.c_str()));
    Kiv::File::Path saved;
    ASSERT_TRUE(Kiv::File::GetCwd(saved));
    ASSERT_TRUE(Kiv::File::Cd(dir.Path().c_str()));
    TestSupport::WriteText(dir / "GameOptions.txt", "+Order=cwdApp\r\n-FromFile='quoted value'");
    WriteUtf16(dir / "toolOptions.txt", "+Order=cwdProgram");
    WriteUtf16(programDir + "/GameOptions.txt", "+Order=dirApp");
    TestSupport::WriteText(programDir + "/toolOptions.txt", "\n+Order=dirProgram\n");
    SetEnv("Options", "+Order=env");
    SetEnv("GameOptions", "+Order=envApp");
    SetEnv("toolOptions", "+Order=envProgram -Override=env");

    std::string program = programDir + "/tool_7c.exe";
    char * argv[] = {program.data(), const_cast<char *>("-Override=cmd"), const_cast<char *>("+Order=cmd")};
    Options options;
    options.Init("Game", 3, argv);
    EXPECT_EQ(Value(options, "Order"), "env,envApp,envProgram,cwdApp,cwdProgram,dirApp,dirProgram,cmd");
    EXPECT_EQ(Value(options, "Override"), "cmd");
    EXPECT_EQ(Value(options, "FromFile"), "quoted value");

    // The program in the current directory, named like the application: each source once.
    program = dir / "game.exe";
    char * same[] = {program.data()};
    Options once;
    once.Init("Game", 1, same);
    EXPECT_EQ(Value(once, "Order"), "env,envApp,cwdApp");

    SetEnv("Options", nullptr);
    SetEnv("GameOptions", nullptr);
    SetEnv("toolOptions", nullptr);
    ASSERT_TRUE(Kiv::File::Cd(saved));
}

TEST(Options, ProcessSetStartsFromTheDefaults)
{
    const char expected[] =
        " +InputKeyboard=Default,Win32,DirectX +InputMouse=Default,Win32,DirectX "
        "+InputJoystick=Default,DirectX,Win32 +Input=Win32,DirectX +Render=OpenGL,DirectX -FrameRate=85 "
        "+Network=Native -Sound=DirectX,DirectX7,OpenAL,FMod -Movie=DirectShow -ShowRenderAPI -ShowFPS "
        "-Disable3dfxSplash -aAllocIgnore=FastDynamicArray;FastDynamicArrayObj;Str;Bitmap;HashTable "
        "+Log=File:Err -StencilBits=8 -LogFlush-";
    EXPECT_STREQ(Kiv::OS::GetDefaultOptions(), expected);

    Options & options = Kiv::OS::InitOptions("OptionsTestHost", "+Render=Soft -FrameRate=30");
    EXPECT_EQ(&options, &Kiv::OS::GetOptions());
    EXPECT_EQ(Value(options, "Render"), "OpenGL,DirectX,Soft");
    EXPECT_EQ(Value(options, "FrameRate"), "30");
    EXPECT_EQ(Value(options, "LogFlush"), "-");
    EXPECT_STREQ(Kiv::OS::GetAppName(), "OptionsTestHost");
    EXPECT_NE(std::strstr(Kiv::OS::GetProcessPath(), "OptionsTest"), nullptr);
    EXPECT_STREQ(Kiv::OS::GetProcessName(), "OptionsTest");
}
