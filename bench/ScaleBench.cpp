// What a whole recorder pays: N cameras fed by real threads, and what logs and probing threads cost that have
// nothing to do. Each figure comes from a process of its own, so that memory is not shared with the last.
//
// One JSON object a line, with CPU share, threads, memory, and the times of UpdateTiming:
//
//     camclock_scale cameras 1 10 100 1000      two streams each at 30 frames/s
//     camclock_scale rows 100 1000              the same with a timing log each: a row for every frame
//     camclock_scale fleet 10000                one stream each at 25 frames/s
//     camclock_scale logs 100 1000 3000         logs with nothing to write
//     camclock_scale probes 1000                probing threads that wait for an expected difference

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
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace camclock::bench {
using sim::SimulatedStream;

namespace {

constexpr auto kRun = std::chrono::seconds(10);

/// What is recorded of each camera.
struct Load {
    std::size_t streams;
    std::chrono::microseconds frameInterval;
    bool timingLog;
};

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

/// Threads of this process, the first included.
std::size_t Threads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

/// One camera: its clock object and its streams.
struct Camera {
    Camera(const Load& load, unsigned number) {
        if (load.timingLog)
            filter.EnableTimeLogging("");
        for (std::size_t s = 0; s < load.streams; ++s) {
            sources.emplace_back(static_cast<unsigned>(load.streams) * number + static_cast<unsigned>(s));
            streams.push_back(filter.CreateNewTimeFilter());
            streams[s]->DoTimeFiltering(true);
            streams[s]->DoEstimation(true);
            streams[s]->UpdateSyncInfo(sources[s].Report());
        }
    }
    TimeFilter filter;
    std::vector<SimulatedStream> sources;
    std::vector<std::shared_ptr<TimeFilterInstance>> streams;
};

/// A receiving thread feeds each stream of its cameras one frame every interval.
void Receive(const Load& load, std::vector<std::unique_ptr<Camera>>& cameras, std::size_t first,
             std::size_t step, std::vector<double>& times_ns) {
    const auto end = std::chrono::steady_clock::now() + kRun;
    for (auto due = std::chrono::steady_clock::now(); due < end; due += load.frameInterval) {
        std::this_thread::sleep_until(due);
        for (std::size_t c = first; c < cameras.size(); c += step) {
            Camera& camera = *cameras[c];
            for (std::size_t s = 0; s < load.streams; ++s) {
                auto frame = camera.sources[s].Frame();
                const auto before = std::chrono::steady_clock::now();
                camera.streams[s]->UpdateTiming(std::move(frame), MediaPacket::kFrameP);
                const auto after = std::chrono::steady_clock::now();
                times_ns.push_back(std::chrono::duration<double, std::nano>(after - before).count());
            }
        }
    }
}

void RunCameras(const char* what, const Load& load, std::size_t count) {
    const double emptyKiB = ResidentKiB();
    std::vector<std::unique_ptr<Camera>> cameras;
    for (std::size_t c = 0; c < count; ++c)
        cameras.push_back(std::make_unique<Camera>(load, static_cast<unsigned>(c)));

    const std::size_t threads = std::min<std::size_t>(count, 8);
    std::vector<std::vector<double>> times(threads);
    const double cpuBefore = CpuTime();
    std::vector<std::thread> receivers;
    for (std::size_t t = 0; t < threads; ++t) {
        times[t].reserve(load.streams * (count / threads + 1) *
                         (static_cast<std::size_t>(kRun / load.frameInterval) + 2));
        receivers.emplace_back(Receive, std::cref(load), std::ref(cameras), t, threads, std::ref(times[t]));
    }
    for (auto& receiver : receivers)
        receiver.join();
    const double cpu = CpuTime() - cpuBefore;

    std::vector<double> all;
    for (const auto& part : times)
        all.insert(all.end(), part.begin(), part.end());
    std::sort(all.begin(), all.end());
    const double ownKiB = static_cast<double>(all.size()) * 16.0 / 1024.0;  // the bench's own samples, twice
    const auto streams = static_cast<double>(load.streams * count);
    std::printf("{\"%s\": %zu, \"cpu_percent\": %.2f, \"threads\": %zu, \"resident_mib\": %.1f, "
                "\"resident_kib_a_stream\": %.1f, \"update_timing_p50_ns\": %.0f, "
                "\"update_timing_p99_ns\": %.0f, \"frames\": %zu}\n",
                what, count, 100.0 * cpu / std::chrono::duration<double>(kRun).count(), Threads() - 1,
                (ResidentKiB() - emptyKiB - ownKiB) / 1024.0, (ResidentKiB() - emptyKiB - ownKiB) / streams,
                all[all.size() / 2], all[all.size() * 99 / 100], all.size());
    std::fflush(stdout);
    std::_Exit(0);  // joining thousands of workers one poll after the other is not what is measured
}

/// Makes `count` of something with `make` and leaves them alone.
template <class Make>
void RunIdle(const char* what, std::size_t count, Make make) {
    const double emptyKiB = ResidentKiB();
    std::vector<decltype(make())> idle;
    for (std::size_t i = 0; i < count; ++i)
        idle.push_back(make());
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double cpuBefore = CpuTime();
    std::this_thread::sleep_for(kRun);
    const double cpu = CpuTime() - cpuBefore;
    const double run = std::chrono::duration<double>(kRun).count();
    std::printf("{\"%s\": %zu, \"cpu_percent\": %.2f, \"us_a_tick\": %.1f, \"threads\": %zu, "
                "\"resident_kib_each\": %.1f}\n",
                what, count, 100.0 * cpu / run, 1e6 * cpu / (100.0 * run), Threads(),
                (ResidentKiB() - emptyKiB) / static_cast<double>(count));
    std::fflush(stdout);
    std::_Exit(0);
}

std::unique_ptr<AsynchronousLog> MakeLog() {
    return std::make_unique<AsynchronousLog>(new Log4CppWrap(log4cpp::Category::getInstance("bench")));
}

std::unique_ptr<TimeFilter> MakeProbedCamera() {
    auto camera = std::make_unique<TimeFilter>();
    camera->UseICMP("127.0.0.1", std::chrono::seconds(10), "", false);
    return camera;
}

/// Ends the process behind the run; returns when there is none of that name.
void Run(const std::string& what, std::size_t count) {
    using std::chrono::microseconds;
    if (what == "cameras")
        RunCameras("cameras", {2, microseconds(33'333), false}, count);
    else if (what == "rows")
        RunCameras("cameras_with_timing_log", {2, microseconds(33'333), true}, count);
    else if (what == "fleet")
        RunCameras("cameras_of_one_stream", {1, microseconds(40'000), false}, count);
    else if (what == "logs")
        RunIdle("idle_logs", count, MakeLog);
    else if (what == "probes")
        RunIdle("idle_probing_threads", count, MakeProbedCamera);
}

int Usage() {
    std::fprintf(stderr, "usage: camclock_scale cameras|rows|fleet|logs|probes COUNT...\n");
    return 2;
}

}  // namespace
}  // namespace camclock::bench

int main(int argc, char** argv) {
    using namespace camclock::bench;
    if (argc < 3)
        return Usage();
    const std::string what = argv[1];
    for (int i = 2; i < argc; ++i) {
        const auto count = static_cast<std::size_t>(std::strtoul(argv[i], nullptr, 10));
        if (count == 0)
            return Usage();
        const pid_t child = fork();
        if (child == 0) {
            log4cpp::Category::getRoot().setPriority(log4cpp::Priority::WARN);
            camclock::Utilities::getInstance().AnchorToSystemClock();
            Run(what, count);
            std::_Exit(Usage());
        }
        int status = 1;
        if (child < 0 || waitpid(child, &status, 0) < 0 || status != 0) {
            std::fprintf(stderr, "camclock_scale: the run with %zu failed\n", count);
            return 1;
        }
    }
    return 0;
}
