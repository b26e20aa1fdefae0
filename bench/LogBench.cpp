// Lines per second into a log file against spdlog's synchronous file sinks (basic_logger_st and
// basic_logger_mt, spdlog's default pattern with its date and time): one thread, two threads on
// one logger, and the cost of a message below the threshold. The log writes its default UTF-16
// file with the line header on and LogFlush off; the 8-bit case is "-LogAnsi".
#include "Log.h"
#include "Options.h"

#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <cstdio>
#include <memory>
#include <string>

namespace
{
constexpr int linesPerRun = 1 << 19;

std::string Scratch(const char * name)
{
    return std::string(P_tmpdir) + "/corestone-bench-" + name;
}

// A fresh log file for each case; the client "Bench" writes Diag lines into the file only.
Kiv::LogClient * OpenKivLog(const char * extra)
{
    Kiv::Log::Done();
    Kiv::Options options;
    options.ProcessRaw(
        ("-LogFile='" + Scratch("kiv.txt") + "' -LogFlush- +Log=Bench:Diag:mono=off " + extra).c_str());
    Kiv::Log::Init(&options);
    return Kiv::Log::GetClient("Bench");
}

void KivLines(benchmark::State & state, const char * extra)
{
    static Kiv::LogClient * client;
    if (state.thread_index() == 0)
        client = OpenKivLog(extra);
    int i = 0;
    for (auto _ : state)
        client->Print(Kiv::LogClient::LEVEL_DIAG, "frame %d: %s moved to %.2f", ++i, "player", 1.5);
    state.SetItemsProcessed(state.iterations());
}

template <class Sink>
void SpdlogLines(benchmark::State & state)
{
    static std::shared_ptr<spdlog::logger> logger;
    if (state.thread_index() == 0)
    {
        spdlog::drop_all();
        logger =
            std::make_shared<spdlog::logger>("bench", std::make_shared<Sink>(Scratch("spdlog.txt"), true));
    }
    int i = 0;
    for (auto _ : state)
        logger->info("frame {}: {} moved to {:.2f}", ++i, "player", 1.5);
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0)
        logger->flush();
}

void KivFilteredOut(benchmark::State & state)
{
    Kiv::LogClient * client = OpenKivLog("");
    int i = 0;
    for (auto _ : state)
    {
        if (client->IsOn(Kiv::LogClient::LEVEL_PROG))
            client->Print(Kiv::LogClient::LEVEL_PROG, "frame %d", ++i);
        benchmark::ClobberMemory();
    }
}

void SpdlogFilteredOut(benchmark::State & state)
{
    spdlog::logger logger("filtered",
                          std::make_shared<spdlog::sinks::basic_file_sink_st>(Scratch("spdlog.txt"), true));
    int i = 0;
    for (auto _ : state)
    {
        logger.debug("frame {}", ++i);
        benchmark::ClobberMemory();
    }
}

const bool registered = []
{
    benchmark::RegisterBenchmark("Log/file-one-thread:Kiv", KivLines, "")->Iterations(linesPerRun);
    benchmark::RegisterBenchmark("Log/file-one-thread:spdlog", SpdlogLines<spdlog::sinks::basic_file_sink_st>)
        ->Iterations(linesPerRun);
    benchmark::RegisterBenchmark("Log/file-one-thread-8-bit:Kiv", KivLines, "-LogAnsi")
        ->Iterations(linesPerRun);
    benchmark::RegisterBenchmark("Log/file-one-thread-8-bit:spdlog",
                                 SpdlogLines<spdlog::sinks::basic_file_sink_st>)
        ->Iterations(linesPerRun);
    benchmark::RegisterBenchmark("Log/file-two-threads:Kiv", KivLines, "")
        ->Threads(2)
        ->UseRealTime()
        ->Iterations(linesPerRun / 2);
    benchmark::RegisterBenchmark("Log/file-two-threads:spdlog",
                                 SpdlogLines<spdlog::sinks::basic_file_sink_mt>)
        ->Threads(2)
        ->UseRealTime()
        ->Iterations(linesPerRun / 2);
    benchmark::RegisterBenchmark("Log/filtered-out:Kiv", KivFilteredOut);
    benchmark::RegisterBenchmark("Log/filtered-out:spdlog", SpdlogFilteredOut);
    return true;
}();
} // namespace
