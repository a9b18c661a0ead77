#include "Check.h"
#include "Measure.h"
#include "plain/PlainMedian.h"
#include "timing/LatencyWindow.h"
#include "util/MedianFilter.h"

#include <benchmark/benchmark.h>

#include <array>
#include <random>
#include <vector>

#if defined(CAMCLOCK_BENCH_GSL)
#include <gsl/gsl_filter.h>
#include <gsl/gsl_movstat.h>
#endif

namespace camclock::bench {
namespace {

constexpr int kWindow = 51;
constexpr int kIterations = 100'000;

/// Latencies of a busy network in microseconds.
std::vector<double> Latencies(std::size_t count) {
    std::mt19937 random(1);
    std::vector<double> latencies(count);
    for (double& latency : latencies)
        latency = 500.0 + static_cast<double>(random() % 5'000);
    return latencies;
}

// ---- the estimator's job: one new sample, one median
// --------------------------------------------------------------

void EstimatorMedian(benchmark::State& state) {
    const auto latencies = Latencies(4'096);
    LatencyWindow window;
    std::size_t i = 0;
    Measure(state, [&] {
        window.Append(latencies[i++ % latencies.size()]);
        benchmark::DoNotOptimize(window.Median());
    });
}
BENCHMARK(EstimatorMedian)->Name("estimator_median/camclock")->Iterations(kIterations);

void PlainEstimatorMedian(benchmark::State& state) {
    const auto latencies = Latencies(4'096);
    std::vector<double> window;
    std::array<double, kWindow> filtered{};
    std::size_t i = 0;
    Measure(state, [&] {
        window.push_back(latencies[i++ % latencies.size()]);
        if (window.size() > kWindow)
            window.erase(window.begin());
        const int n = static_cast<int>(window.size());
        PlainMedianFilter(window.data(), filtered.data(), n, n);
        benchmark::DoNotOptimize(filtered[window.size() / 2]);
    });
}
BENCHMARK(PlainEstimatorMedian)->Name("estimator_median/plain")->Iterations(kIterations);

std::string EstimatorsAgree() {
    const auto latencies = Latencies(2'000);
    LatencyWindow window;
    std::vector<double> samples;
    for (std::size_t i = 0; i < latencies.size(); ++i) {
        window.Append(latencies[i]);
        samples.push_back(latencies[i]);
        if (samples.size() > kWindow)
            samples.erase(samples.begin());
        std::array<double, kWindow> plain{};
        std::array<double, kWindow> ours{};
        const int n = static_cast<int>(samples.size());
        PlainMedianFilter(samples.data(), plain.data(), n, n);
        MedianFilter(samples.data(), ours.data(), n, n);
        if (ours != plain || window.Median() != plain[samples.size() / 2])
            return "sample " + std::to_string(i);
    }
    return {};
}
const RegisterCheck estimatorsAgree("estimator_median", EstimatorsAgree);

// ---- the whole filter
// -----------------------------------------------------------------------------------------------

template <int (*Filter)(const double*, double*, int, int)>
void WholeFilter(benchmark::State& state) {
    const auto latencies = Latencies(kWindow);
    std::array<double, kWindow> filtered{};
    Measure(state, [&] {
        Filter(latencies.data(), filtered.data(), kWindow, kWindow);
        benchmark::DoNotOptimize(filtered.data());
        benchmark::ClobberMemory();
    });
}
BENCHMARK(WholeFilter<MedianFilter>)->Name("median_filter_51/camclock")->Iterations(kIterations);
BENCHMARK(WholeFilter<PlainMedianFilter>)->Name("median_filter_51/plain")->Iterations(kIterations);

#if defined(CAMCLOCK_BENCH_GSL)
void GslFilter(benchmark::State& state) {
    const auto latencies = Latencies(kWindow);
    gsl_vector* const in = gsl_vector_alloc(kWindow);
    gsl_vector* const out = gsl_vector_alloc(kWindow);
    for (std::size_t i = 0; i < kWindow; ++i)
        gsl_vector_set(in, i, latencies[i]);
    gsl_filter_median_workspace* const workspace = gsl_filter_median_alloc(kWindow);
    Measure(state, [&] {
        gsl_filter_median(GSL_FILTER_END_PADVALUE, in, out, workspace);
        benchmark::ClobberMemory();
    });
    gsl_filter_median_free(workspace);
    gsl_vector_free(in);
    gsl_vector_free(out);
}
BENCHMARK(GslFilter)->Name("median_filter_51/gsl_filter_median")->Iterations(kIterations);

/// A long series through a moving median of 51; the time is that of one sample.
void GslMovingMedian(benchmark::State& state) {
    constexpr std::size_t kSamples = 4'096;
    const auto latencies = Latencies(kSamples);
    gsl_vector* const in = gsl_vector_alloc(kSamples);
    gsl_vector* const out = gsl_vector_alloc(kSamples);
    for (std::size_t i = 0; i < kSamples; ++i)
        gsl_vector_set(in, i, latencies[i]);
    gsl_movstat_workspace* const workspace = gsl_movstat_alloc(kWindow);
    while (state.KeepRunningBatch(kSamples)) {
        gsl_movstat_median(GSL_MOVSTAT_END_PADVALUE, in, out, workspace);
        benchmark::ClobberMemory();
    }
    gsl_movstat_free(workspace);
    gsl_vector_free(in);
    gsl_vector_free(out);
}
BENCHMARK(GslMovingMedian)->Name("estimator_median/gsl_movstat")->Iterations(kIterations);

std::string GslAgrees() {
    // Both replicate the end values, but GSL's filter reads the value past the end differently for short
    // series; inside the series the results are the same.
    const auto latencies = Latencies(512);
    std::vector<double> ours(latencies.size());
    MedianFilter(latencies.data(), ours.data(), static_cast<int>(ours.size()), kWindow);
    gsl_vector* const in = gsl_vector_alloc(latencies.size());
    gsl_vector* const out = gsl_vector_alloc(latencies.size());
    for (std::size_t i = 0; i < latencies.size(); ++i)
        gsl_vector_set(in, i, latencies[i]);
    gsl_filter_median_workspace* const workspace = gsl_filter_median_alloc(kWindow);
    gsl_filter_median(GSL_FILTER_END_PADVALUE, in, out, workspace);
    std::string difference;
    for (std::size_t i = 0; i < latencies.size(); ++i) {
        if (gsl_vector_get(out, i) != ours[i])
            difference = "element " + std::to_string(i);
    }
    gsl_filter_median_free(workspace);
    gsl_vector_free(in);
    gsl_vector_free(out);
    return difference;
}
const RegisterCheck gslAgrees("median_filter against GSL", GslAgrees);
#endif

}  // namespace
}  // namespace camclock::bench
