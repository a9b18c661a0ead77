// What a whole recorder pays: N cameras with two streams each at 30 frames/s, fed by real threads, and what
// logs cost that have nothing to write. Each figure comes from a process of its own, so that memory is not
// shared with the last.
//
//     camclock_scale cameras 1 10 100 1000      one JSON object a line: CPU share, memory a stream, p99 of
//     UpdateTiming camclock_scale logs 100 1000 3000         ... CPU a poll and memory of an idle log

#include "logging/AsynchronousLog.h"
#include "logging/Log4CppWrap.h"
#include "sim/SimulatedStream.h"

#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>
#include <camclock/Utilities.h>

#include <log4cpp/Category.hh>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace camclock::bench {
using sim::SimulatedStream;

namespace {

constexpr auto kRun = std::chrono::seconds(10);
constexpr auto kFrameInterval = std::chrono::microseconds(33'333);

/// CPU time of this process in seconds.
double CpuTime() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Resident memory of this process in KiB.
double ResidentKiB() {
    long pages = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024.0;
}

/// One camera: its clock object and two streams.
struct Camera {
    explicit Camera(unsigned seed)
        : sources{SimulatedStream(2 * seed), SimulatedStream(2 * seed + 1)} {
        for (std::size_t s = 0; s < 2; ++s) {
            streams[s] = filter.CreateNewTimeFilter();
            streams[s]->DoTimeFiltering(true);
            streams[s]->DoEstimation(true);
            streams[s]->UpdateSyncInfo(sources[s].Report());
        }
    }
    TimeFilter filter;
    SimulatedStream sources[2];
    std::shared_ptr<TimeFilterInstance> streams[2];
};

/// A receiving thread feeds its cameras one frame each, every thirtieth of a second.
void Receive(std::vector<std::unique_ptr<Camera>>& cameras, std::size_t first, std::size_t step,
             std::vector<double>& times_ns) {
    const auto end = std::chrono::steady_clock::now() + kRun;
    for (auto due = std::chrono::steady_clock::now(); due < end; due += kFrameInterval) {
        std::this_thread::sleep_until(due);
        for (std::size_t c = first; c < cameras.size(); c += step) {
            for (std::size_t s = 0; s < 2; ++s) {
                auto frame = cameras[c]->sources[s].Frame();
                const auto before = std::chrono::steady_clock::now();
                cameras[c]->streams[s]->UpdateTiming(std::move(frame), MediaPacket::kFrameP);
                const auto after = std::chrono::steady_clock::now();
                times_ns.push_back(std::chrono::duration<double, std::nano>(after - before).count());
            }
        }
    }
}

void RunCameras(std::size_t count) {
    const double emptyKiB = ResidentKiB();
    std::vector<std::unique_ptr<Camera>> cameras;
    for (std::size_t c = 0; c < count; ++c)
        cameras.push_back(std::make_unique<Camera>(static_cast<unsigned>(c)));

    const std::size_t threads = std::min<std::size_t>(count, 8);
    std::vector<std::vector<double>> times(threads);
    const double cpuBefore = CpuTime();
    std::vector<std::thread> receivers;
    for (std::size_t t = 0; t < threads; ++t) {
        times[t].reserve(2 * 310 * (count / threads + 1));
        receivers.emplace_back(Receive, std::ref(cameras), t, threads, std::ref(times[t]));
    }
    for (auto& receiver : receivers)
        receiver.join();
    const double cpu = CpuTime() - cpuBefore;

    std::vector<double> all;
    for (const auto& part : times)
        all.insert(all.end(), part.begin(), part.end());
    std::sort(all.begin(), all.end());
    const double ownKiB = static_cast<double>(all.size()) * 16.0 / 1024.0;  // the bench's own samples, twice
    const auto streams = static_cast<double>(2 * count);
    std::printf("{\"cameras\": %zu, \"cpu_percent\": %.2f, \"resident_kib_a_stream\": %.1f, "
                "\"update_timing_p50_ns\": %.0f, \"update_timing_p99_ns\": %.0f, \"frames\": %zu}\n",
                count, 100.0 * cpu / std::chrono::duration<double>(kRun).count(),
                (ResidentKiB() - emptyKiB - ownKiB) / streams, all[all.size() / 2],
                all[all.size() * 99 / 100], all.size());
    std::fflush(stdout);
    std::_Exit(0);  // joining thousands of workers one poll after the other is not what is measured
}

void RunIdleLogs(std::size_t count) {
    const double emptyKiB = ResidentKiB();
    std::vector<std::unique_ptr<AsynchronousLog>> logs;
    for (std::size_t i = 0; i < count; ++i)
        logs.push_back(
            std::make_unique<AsynchronousLog>(new Log4CppWrap(log4cpp::Category::getInstance("bench"))));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double cpuBefore = CpuTime();
    std::this_thread::sleep_for(kRun);
    const double cpu = CpuTime() - cpuBefore;
    const double run = std::chrono::duration<double>(kRun).count();
    const double polls = static_cast<double>(count) * run * 100.0;
    std::printf(
        "{\"idle_logs\": %zu, \"cpu_percent\": %.2f, \"us_a_poll\": %.2f, \"resident_kib_a_log\": %.1f}\n",
        count, 100.0 * cpu / run, 1e6 * cpu / polls, (ResidentKiB() - emptyKiB) / static_cast<double>(count));
    std::fflush(stdout);
    std::_Exit(0);
}

int Usage() {
    std::fprintf(stderr, "usage: camclock_scale cameras|logs COUNT...\n");
    return 2;
}

}  // namespace
}  // namespace camclock::bench

int main(int argc, char** argv) {
    using namespace camclock::bench;
    if (argc < 3)
        return Usage();
    const std::string what = argv[1];
    if (what != "cameras" && what != "logs")
        return Usage();
    for (int i = 2; i < argc; ++i) {
        const auto count = static_cast<std::size_t>(std::strtoul(argv[i], nullptr, 10));
        if (count == 0)
            return Usage();
        const pid_t child = fork();
        if (child == 0) {
            log4cpp::Category::getRoot().setPriority(log4cpp::Priority::WARN);
            camclock::Utilities::getInstance().AnchorToSystemClock();
            what == "cameras" ? RunCameras(count) : RunIdleLogs(count);
        }
        int status = 1;
        if (child < 0 || waitpid(child, &status, 0) < 0 || status != 0) {
            std::fprintf(stderr, "camclock_scale: the run with %zu failed\n", count);
            return 1;
        }
    }
    return 0;
}
