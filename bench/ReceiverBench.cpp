#include "Measure.h"

#include "receiver/StreamSession.h"
#include "sim/RtpCamera.h"

#include <camclock/Receiver.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

namespace {

// What this thread has asked the heap for: the receiver must not do so in steady state.
thread_local std::uint64_t allocations = 0;

}  // namespace

// Not inlined: the compiler would see malloc meet delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace camclock::bench {
namespace {

using sim::Datagram;
using sim::RtpCamera;

constexpr std::size_t kPackets = 200'000;

RtpCamera::Settings Device(std::uint32_t packetsOfFrame) {
    RtpCamera::Settings settings;
    settings.packetsOfFrame = packetsOfFrame;
    settings.packetsOfKeyFrame = packetsOfFrame;
    return settings;
}

/// The datagrams of a camera over a network, packet after packet, reports among them.
std::vector<Datagram> Datagrams(std::uint32_t packetsOfFrame) {
    RtpCamera camera(Device(packetsOfFrame));
    std::vector<Datagram> datagrams;
    datagrams.reserve(kPackets);
    while (datagrams.size() < kPackets)
        datagrams.push_back(camera.Next());
    return datagrams;
}

/// Everything on: both estimators, the bound, the sink. A frame in a hundred packets shows what a packet
/// costs, one in every packet what a frame costs.
void Feed(benchmark::State& state, std::uint32_t packetsOfFrame) {
    const std::vector<Datagram> datagrams = Datagrams(packetsOfFrame);
    receiver::Settings settings;
    settings.cameraDelay = {std::chrono::milliseconds(20), std::chrono::milliseconds(40)};
    receiver::Camera camera("bench", settings);
    receiver::Format format;
    format.codec = receiver::Codec::kH264;
    format.payloadType = 96;
    std::uint64_t frames = 0;
    const auto stream = camera.AddStream("video", format, [&frames](const receiver::Frame&) { ++frames; });
    std::size_t i = 0;
    const auto next = [&] {
        const Datagram& datagram = datagrams[i++];
        if (datagram.rtcp)
            stream->FeedRtcp(datagram.bytes.data(), datagram.bytes.size(), datagram.arrived_host);
        else
            stream->FeedRtp(datagram.bytes.data(), datagram.bytes.size(), datagram.arrived_host);
    };
    while (i < kPackets / 2)
        next();
    const std::uint64_t before = allocations;
    Measure(state, next);
    state.counters["allocations"] = benchmark::Counter(static_cast<double>(allocations - before) /
                                                       static_cast<double>(state.iterations()));
    state.counters["bytes"] = sizeof(receiver::StreamSession);  // of a stream, besides its last 256 frames
    benchmark::DoNotOptimize(frames);
}

void FeedPackets(benchmark::State& state) {
    Feed(state, 100);
}
BENCHMARK(FeedPackets)->Name("receiver_packet/camclock")->Iterations(kPackets / 2);

void FeedFrames(benchmark::State& state) {
    Feed(state, 1);
}
BENCHMARK(FeedFrames)->Name("receiver_frame/camclock")->Iterations(kPackets / 2);

}  // namespace
}  // namespace camclock::bench
