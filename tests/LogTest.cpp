#include "Log.h"
#include "BuildVersion.h"
#include "Options.h"
#include "TestSupport.h"
#include "Time.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using Kiv::Log;
using Kiv::LogClient;
using Kiv::Options;
using TestSupport::TempDir;

namespace
{
// Opens the log from an option string and closes it when the test ends, whatever happens.
class OpenLog
{
public:
    explicit OpenLog(const std::string & optionText)
    {
        options.ProcessRaw(optionText.c_str());
        Log::Init(&options);
    }
    ~OpenLog() { Log::Done(); }
    OpenLog(const OpenLog &) = delete;
    OpenLog & operator=(const OpenLog &) = delete;

    Options options;
};

// The log file as 8-bit text: a UTF-16 file must carry its mark and only ASCII code units.
std::string ReadLog(const std::string & fileName, bool wide = true)
{
    const std::vector<unsigned char> bytes = TestSupport::ReadBytes(fileName);
    if (!wide)
        return {bytes.begin(), bytes.end()};
    EXPECT_GE(bytes.size(), 2u);
    EXPECT_EQ(bytes[0], 0xFF);
    EXPECT_EQ(bytes[1], 0xFE);
    EXPECT_EQ(bytes.size() % 2, 0u);
    std::string text;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2)
    {
        EXPECT_EQ(bytes[i + 1], 0) << "at byte " << i;
        text += static_cast<char>(bytes[i]);
    }
    return text;
}

// Headers with their thread id masked: "! 0000ABCD Err " becomes "! ######## Err ".
std::string MaskThreads(std::string text)
{
    for (size_t at = 0; (at = text.find(' ', at)) != std::string::npos; ++at)
    {
        const bool header = at >= 1 && std::string(" !?+-").find(text[at - 1]) != std::string::npos &&
                            at + 9 < text.size() && text[at + 9] == ' ' &&
                            text.find_first_not_of("0123456789ABCDEF", at + 1) == at + 9;
        if (header)
            text.replace(at + 1, 8, 8, '#');
    }
    return text;
}

std::string Banner()
{
    return std::string("Kiv v") + Kiv::BuildVersion::GetKivBuildString() + " Build " +
           Kiv::BuildVersion::GetKivBuildVersionString() + "." +
           Kiv::BuildVersion::GetKivBuildChangeNumString() + " on " + __DATE__ + " at ";
}
} // namespace

TEST(Log, FileHeaderAndClientSettings)
{
    TempDir dir;
    const std::string file = dir / "run.txt";
    {
        OpenLog log("-LogFile=" + file + " -LogFlush=on " +
                    "+Log=File:Diag:newlines=off:mono=off "
                    "+Log=Quiet:None:mono=off,Plain:displaymodulename=off:mono=off");
        LogClient * client = Log::GetClient("FILE");
        EXPECT_EQ(client, Log::GetClient("file"));
        EXPECT_EQ(client->GetLevel(), LogClient::LEVEL_DIAG);
        EXPECT_TRUE(client->IsOn(LogClient::LEVEL_DIAG));
        EXPECT_FALSE(client->IsOn(LogClient::LEVEL_PROG));
        EXPECT_FALSE(Log::GetClient("Quiet")->IsOn(LogClient::LEVEL_ERR));
        Log::SetStartTime(Kiv::Time::GetSeconds() - 75.5);
        client->SetMessageLevel(LogClient::LEVEL_DIAG);
        client->OutputString("a%d", 1);
        client->Print(LogClient::LEVEL_PROG, "dropped");
        client->Print(LogClient::LEVEL_ERR, "b");
        LogClient * plain = Log::GetClient("Plain");
        plain->Print(LogClient::LEVEL_ERR, "%s", "no header");
        // A long message is not cut.
        plain->Print(LogClient::LEVEL_ERR, "%s", std::string(5000, 'x').c_str());
        // The default threshold is Warn.
        EXPECT_FALSE(Log::GetClient("Fresh")->IsOn(LogClient::LEVEL_DIAG));
        EXPECT_TRUE(Log::GetClient("Fresh")->IsOn(LogClient::LEVEL_WARN));
    }
    const std::string text = ReadLog(file);
    ASSERT_EQ(text.rfind(Banner(), 0), 0u) << text;
    const size_t begin = text.find(".\r\n\r\nBegin:\r\n");
    ASSERT_NE(begin, std::string::npos);
    EXPECT_EQ(MaskThreads(text.substr(begin + 13)), "+ ######## Diag   1:15.5 File            : a1"
                                                    "! ######## Err    1:15.5 File            : b"
                                                    "no header\r\n" +
                                                        std::string(5000, 'x') + "\r\nEnd.\r\n");
    // Done returns clients to their defaults.
    EXPECT_EQ(Log::GetClient("File")->GetLevel(), LogClient::LEVEL_WARN);
}

TEST(Log, NoLogLeavesTheBannerAlone)
{
    TempDir dir;
    const std::string file = dir / "quiet.txt";
    {
        OpenLog log("-LogFile=" + file + " -NoLog -LogAnsi +Log=Any:Prog:mono=off");
        EXPECT_TRUE(Log::IsDisabled());
        LogClient * client = Log::GetClient("Any");
        EXPECT_FALSE(client->IsOn(LogClient::LEVEL_ERR));
        client->Print(LogClient::LEVEL_ERR, "never");
    }
    const std::string text = ReadLog(file, false);
    EXPECT_EQ(text.rfind(Banner(), 0), 0u);
    EXPECT_EQ(text.substr(text.size() - 20), ".\r\n\r\nLog Disabled.\r\n");
    EXPECT_EQ(text.find("never"), std::string::npos);
    EXPECT_FALSE(Log::IsDisabled());
}

// A file that cannot be opened, or none at all, still leaves the debugger and the stream working;
// with both stream switches, standard error wins.
TEST(Log, WithoutAFileOtherOutputsWork)
{
    TempDir dir;
    for (const std::string & fileOption :
         {"-LogFile=" + dir.Path() + "/no/such/dir/log.txt", std::string("-LogFile=''")})
    {
        testing::internal::CaptureStderr();
        {
            OpenLog log(fileOption + " -LogStdOut -LogStdErr -LogDisplayModuleName- +Log=Side:Err:mono=off");
            EXPECT_EQ(Log::GetLogToFile(), stderr);
            EXPECT_FALSE(Log::IsDisabled());
            Log::GetClient("Side")->Print(LogClient::LEVEL_ERR, "to %s", "stream");
            Log::GetClient("Mono")->SetOutputs(LogClient::OUTPUT_MONO);
            Log::GetClient("Mono")->Print(LogClient::LEVEL_ERR, "to debugger");
        }
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_NE(err.find("to stream\r\n"), std::string::npos) << err;
#if !defined(_WIN32) // there the debugger's output is no stream
        EXPECT_NE(err.find("to debugger\r\n"), std::string::npos) << err;
#endif
        EXPECT_EQ(Log::GetLogToFile(), nullptr);
    }
}

TEST(Log, ShutdownClosesQuietlyOrNot)
{
    TempDir dir;
    for (bool quiet : {false, true})
    {
        const std::string file = dir / (quiet ? "quiet.txt" : "loud.txt");
        {
            OpenLog log("-LogFile=" + file + " -LogAnsi +Log=Crash:mono=off");
            Log::GetClient("Crash")->Print(LogClient::LEVEL_ERR, "fault");
            Log::Shutdown(quiet);
            Log::GetClient("Crash")->Print(LogClient::LEVEL_ERR, "after");
        }
        const std::string text = ReadLog(file, false);
        EXPECT_NE(text.find("fault"), std::string::npos);
        EXPECT_EQ(text.find("after"), std::string::npos);
        EXPECT_EQ(text.find("End."), std::string::npos);
        EXPECT_EQ(text.find("Shutdown.\r\n") != std::string::npos, !quiet) << text;
    }
}

// Threads write at once through many clients, some shared: every line arrives whole, once, and
// each thread's lines in the order it wrote them.
TEST(Log, ConcurrentLinesStayWhole)
{
    TempDir dir;
    const std::string file = dir / "busy.txt";
    constexpr int threadCount = 8;
    constexpr int clientCount = 5;
    constexpr int linesEach = 1500;
    {
        std::string settings = "-LogFile=" + file + " -LogFlush-";
        for (int c = 0; c < clientCount; ++c)
            settings += " +Log=Client" + std::to_string(c) + ":Diag:mono=off";
        OpenLog log(settings);
        std::vector<std::thread> threads;
        std::atomic<int> ready{0};
        for (int t = 0; t < threadCount; ++t)
            threads.emplace_back(
                [t, &ready]
                {
                    // All start together, so their lines meet in the file.
                    for (ready.fetch_add(1); ready.load() < threadCount;)
                        std::this_thread::yield();
                    LogClient * client = Log::GetClient(("Client" + std::to_string(t % clientCount)).c_str());
                    for (int i = 0; i < linesEach; ++i)
                        client->Print(LogClient::LEVEL_DIAG, "thread %d line %d %s", t, i,
                                      i % 100 == 0 ? std::string(300, 'p').c_str() : "");
                });
        for (std::thread & thread : threads)
            thread.join();
    }
    std::istringstream text(ReadLog(file));
    std::map<int, int> next;
    std::string line;
    int counted = 0;
    while (std::getline(text, line))
    {
        if (line.rfind("+ ", 0) != 0)
            continue;
        unsigned id = 0;
        int minutes = 0, seconds = 0, tenths = 0, client = 0, thread = 0, number = 0, used = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "+ %8X Diag %d:%2d.%1d Client%d : thread %d line %d%n", &id,
                              &minutes, &seconds, &tenths, &client, &thread, &number, &used),
                  7)
            << line;
        const std::string rest = line.substr(static_cast<size_t>(used));
        ASSERT_TRUE(rest == " \r" || rest == " " + std::string(300, 'p') + "\r") << line;
        EXPECT_EQ(client, thread % clientCount);
        ASSERT_EQ(number, next[thread]++) << line;
        ++counted;
    }
    EXPECT_EQ(counted, threadCount * linesEach);
}
