#include "Check.h"
#include "Measure.h"
#include "logging/AsynchronousLog.h"
#include "logging/OfStreamWrap.h"
#include "logging/Text.h"
#include "plain/PlainLog.h"

#include <camclock/MediaPacket.h>
#include <camclock/SyncPoint.h>
#include <camclock/TimingData.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#if defined(CAMCLOCK_BENCH_SPDLOG)
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/null_sink.h>
#endif

namespace camclock::bench {
namespace {

/// What a timing-log row captures: the packet's record is shared with the stream.
struct Row {
    std::string streamId = "Gate 3, main: ";
    std::shared_ptr<TimingData> packet = std::make_shared<TimingData>(TimingData{
        123'456'789, 90'000, 4'711, 0, 0xCAFE'BABE, 1'700'000'000, 123'456, 1'700'000'000, 90'000, true, {}});
    SyncPoint sync{123'000'000, 0xCAFE'BABE, 3'900'000'000, 0x8000'0000, 0, {}};
    std::int64_t TOR_host_ms = 1'700'000'000'123;
    std::int64_t TOC_cam_ms = 1'699'996'277'100;
    std::int64_t D_ms = 3'723'500;
    std::int64_t D_uncert_us = 1'234;
    std::int64_t D_hat_ms = 3'723'501;
    std::int64_t meanLatency_ms = 30;
    std::int32_t frameType = 3;
};

/// camclock's way to the text: no stream state.
void WriteRow(std::stringstream& out, const Row& row) {
    out.str(std::string());
    TextBuilder text;
    const auto field = [&text](const auto& value) {
        text.Append(value);
        text.Append(", ");
    };
    field(row.streamId), field(row.packet->SSRC), field(row.packet->RTP_ts), field(row.packet->RTPFreq);
    field(row.packet->RTPSeqnum), field(row.packet->LiveTOR_tv_sec), field(row.packet->LiveTOR_tv_usec);
    field(row.packet->LivePts_tv_sec), field(row.packet->LivePts_tv_usec), field(row.TOR_host_ms);
    field(row.frameType), field(row.sync.SyncRTP), field(row.sync.SyncNTPmsw), field(row.sync.SyncNTPlsw);
    field(row.sync.SyncSSRC), field(row.TOC_cam_ms), field(row.D_ms), field(row.D_uncert_us),
        field(row.D_hat_ms);
    field(row.meanLatency_ms);
    text.Append('\n');
    text.WriteTo(out);
}

/// The plain way: field by field into the stream.
void PlainWriteRow(std::stringstream& out, const Row& row) {
    out.str(std::string());
    out << row.streamId << ", " << row.packet->SSRC << ", " << row.packet->RTP_ts << ", "
        << row.packet->RTPFreq << ", " << row.packet->RTPSeqnum << ", " << row.packet->LiveTOR_tv_sec << ", "
        << row.packet->LiveTOR_tv_usec << ", " << row.packet->LivePts_tv_sec << ", "
        << row.packet->LivePts_tv_usec << ", " << row.TOR_host_ms << ", " << row.frameType << ", "
        << row.sync.SyncRTP << ", " << row.sync.SyncNTPmsw << ", " << row.sync.SyncNTPlsw << ", "
        << row.sync.SyncSSRC << ", " << row.TOC_cam_ms << ", " << row.D_ms << ", " << row.D_uncert_us << ", "
        << row.D_hat_ms << ", " << row.meanLatency_ms << ", "
        << "\n";
}

/// Discards the text, so that a poster's figure does not wait for a disk.
class NullSink : public LogWrap {
public:
    void Write(std::stringstream&) override {}
};

template <class Log>
void WaitUntilWritten(Log& log) {
    std::atomic<bool> written{false};
    log.Post([&written](std::stringstream&) { written = true; });
    while (!written)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// ---- what a poster pays
// -----------------------------------------------------------------------------------------

constexpr int kBurst = 256;
constexpr int kBursts = 100;

/// CPU time of the calling thread, in seconds.
double ThreadCpuTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// Bursts of rows, each posted when the last one is written: a recorder's worker keeps up, too. `Burst` posts
/// one and `Drain` waits until it is written. The figure is the poster's CPU time a row.
template <class Burst, class Drain>
void PostBursts(benchmark::State& state, const Burst& burst, const Drain& drain) {
    while (state.KeepRunningBatch(kBurst)) {
        const double before = ThreadCpuTime();
        {
            const CountInstructions count;
            burst();
        }
        state.SetIterationTime(ThreadCpuTime() - before);
        drain();
    }
}

template <class Log, void (*Write)(std::stringstream&, const Row&)>
void PostRow(benchmark::State& state) {
    static Log* log = nullptr;
    if (state.thread_index() == 0)
        log = new Log(new NullSink);
    const std::vector<Row> rows(kBurst);
    PostBursts(
        state,
        [&] {
            for (const Row& row : rows)
                log->Post([row](std::stringstream& out) { Write(out, row); });
        },
        [&] { WaitUntilWritten(*log); });
    if (state.thread_index() == 0)
        delete log;
}
BENCHMARK(PostRow<AsynchronousLog, WriteRow>)
    ->Name("post_row/camclock")
    ->Iterations(kBurst* kBursts)
    ->Threads(1)
    ->Threads(4)
    ->UseManualTime();
BENCHMARK(PostRow<PlainLog, PlainWriteRow>)
    ->Name("post_row/plain")
    ->Iterations(kBurst* kBursts)
    ->Threads(1)
    ->Threads(4)
    ->UseManualTime();

/// One row now and then, the worker asleep and the caches cold: what a packet thread really meets. Wall time,
/// p50.
template <class Log, void (*Write)(std::stringstream&, const Row&)>
void PostToSleeper(benchmark::State& state) {
    Log log(new NullSink);
    const std::vector<Row> rows(kBurst);
    std::size_t next = 0;
    std::vector<double> times_ns;
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::microseconds(500));
        const auto before = std::chrono::steady_clock::now();
        log.Post([row = rows[next]](std::stringstream& out) { Write(out, row); });
        const auto after = std::chrono::steady_clock::now();
        times_ns.push_back(std::chrono::duration<double, std::nano>(after - before).count());
        next = (next + 1) % rows.size();
        state.SetIterationTime(times_ns.back() * 1e-9);
    }
    std::nth_element(times_ns.begin(), times_ns.begin() + static_cast<std::ptrdiff_t>(times_ns.size() / 2),
                     times_ns.end());
    state.counters["p50_ns"] = times_ns[times_ns.size() / 2];
}
BENCHMARK(PostToSleeper<AsynchronousLog, WriteRow>)
    ->Name("post_to_sleeper/camclock")
    ->Iterations(1'000)
    ->UseManualTime();
BENCHMARK(PostToSleeper<PlainLog, PlainWriteRow>)
    ->Name("post_to_sleeper/plain")
    ->Iterations(1'000)
    ->UseManualTime();

#if defined(CAMCLOCK_BENCH_SPDLOG)
void SpdlogRow(spdlog::logger& logger, const Row& row) {
    logger.info("{}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, ",
                row.streamId, row.packet->SSRC, row.packet->RTP_ts, row.packet->RTPFreq,
                row.packet->RTPSeqnum, row.packet->LiveTOR_tv_sec, row.packet->LiveTOR_tv_usec,
                row.packet->LivePts_tv_sec, row.packet->LivePts_tv_usec, row.TOR_host_ms, row.frameType,
                row.sync.SyncRTP, row.sync.SyncNTPmsw, row.sync.SyncNTPlsw, row.sync.SyncSSRC, row.TOC_cam_ms,
                row.D_ms, row.D_uncert_us, row.D_hat_ms, row.meanLatency_ms);
}

struct SpdlogAsync {
    explicit SpdlogAsync(spdlog::sink_ptr sink)
        : pool(std::make_shared<spdlog::details::thread_pool>(8'192, 1))
        , logger(std::make_shared<spdlog::async_logger>("bench", std::move(sink), pool)) {
        logger->set_pattern("%v");
    }
    std::shared_ptr<spdlog::details::thread_pool> pool;
    std::shared_ptr<spdlog::async_logger> logger;
};

void SpdlogPost(benchmark::State& state) {
    static SpdlogAsync* log = nullptr;
    if (state.thread_index() == 0)
        log = new SpdlogAsync(std::make_shared<spdlog::sinks::null_sink_mt>());
    const Row row;
    PostBursts(
        state,
        [&] {
            for (int i = 0; i < kBurst; ++i)
                SpdlogRow(*log->logger, row);
        },
        [&] {
            while (log->pool->queue_size() != 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
    if (state.thread_index() == 0)
        delete log;
}
BENCHMARK(SpdlogPost)
    ->Name("post_row/spdlog_async")
    ->Iterations(kBurst* kBursts)
    ->Threads(1)
    ->Threads(4)
    ->UseManualTime();

void SpdlogPostToSleeper(benchmark::State& state) {
    SpdlogAsync log(std::make_shared<spdlog::sinks::null_sink_mt>());
    const Row row;
    std::vector<double> times_ns;
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::microseconds(500));
        const auto before = std::chrono::steady_clock::now();
        SpdlogRow(*log.logger, row);
        const auto after = std::chrono::steady_clock::now();
        times_ns.push_back(std::chrono::duration<double, std::nano>(after - before).count());
        state.SetIterationTime(times_ns.back() * 1e-9);
    }
    std::nth_element(times_ns.begin(), times_ns.begin() + static_cast<std::ptrdiff_t>(times_ns.size() / 2),
                     times_ns.end());
    state.counters["p50_ns"] = times_ns[times_ns.size() / 2];
}
BENCHMARK(SpdlogPostToSleeper)->Name("post_to_sleeper/spdlog_async")->Iterations(1'000)->UseManualTime();
#endif

// ---- a million rows, posted, formatted and in the file
// ----------------------------------------------------------

constexpr int kMillion = 1'000'000;

std::filesystem::path ScratchFile() {
    return std::filesystem::temp_directory_path() / "camclock_bench_rows.txt";
}

template <class Log, void (*Write)(std::stringstream&, const Row&)>
void MillionRows(benchmark::State& state) {
    const Row row;
    for (auto _ : state) {
        Log log(new OfStreamWrap(new std::ofstream(ScratchFile())));
        for (int i = 0; i < kMillion; ++i)
            log.Post([row](std::stringstream& out) { Write(out, row); });
        WaitUntilWritten(log);
    }
    std::filesystem::remove(ScratchFile());
}
BENCHMARK(MillionRows<AsynchronousLog, WriteRow>)
    ->Name("million_rows/camclock")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(MillionRows<PlainLog, PlainWriteRow>)
    ->Name("million_rows/plain")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

#if defined(CAMCLOCK_BENCH_SPDLOG)
void SpdlogMillionRows(benchmark::State& state) {
    const Row row;
    for (auto _ : state) {
        SpdlogAsync log(std::make_shared<spdlog::sinks::basic_file_sink_mt>(ScratchFile().string(), true));
        for (int i = 0; i < kMillion; ++i)
            SpdlogRow(*log.logger, row);
        log.logger.reset();
        log.pool.reset();  // joins the worker when the queue is written
    }
    std::filesystem::remove(ScratchFile());
}
BENCHMARK(SpdlogMillionRows)
    ->Name("million_rows/spdlog_async")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
#endif

/// Both logs, both ways to write a row, the same file.
template <class Log, void (*Write)(std::stringstream&, const Row&)>
std::string WrittenBy() {
    {
        Log log(new OfStreamWrap(new std::ofstream(ScratchFile())));
        for (int i = 0; i < 1'000; ++i) {
            Row row;
            row.packet->RTPSeqnum = static_cast<std::uint32_t>(i);
            row.D_ms = -i;
            log.Post([row](std::stringstream& out) { Write(out, row); });
        }
        WaitUntilWritten(log);
    }
    std::ifstream file(ScratchFile());
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::filesystem::remove(ScratchFile());
    return text.substr(0, text.rfind('\n'));  // the last line is the stamp of WaitUntilWritten's message
}

std::string LogsAgree() {
    const std::string ours = WrittenBy<AsynchronousLog, WriteRow>();
    return !ours.empty() && ours == WrittenBy<PlainLog, PlainWriteRow>() ? "" : "files";
}
const RegisterCheck logsAgree("million_rows", LogsAgree);

}  // namespace
}  // namespace camclock::bench
