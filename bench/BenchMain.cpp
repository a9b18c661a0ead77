#include "Check.h"

#include <log4cpp/Category.hh>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

namespace camclock::bench {
namespace {

std::vector<std::pair<const char*, Check>>& Checks() {
    static std::vector<std::pair<const char*, Check>> checks;
    return checks;
}

int RunChecks() {
    int failed = 0;
    for (const auto& [name, check] : Checks()) {
        const std::string difference = check();
        std::printf("%s %s%s%s\n", difference.empty() ? "same   " : "DIFFERS", name,
                    difference.empty() ? "" : ": ", difference.c_str());
        failed += difference.empty() ? 0 : 1;
    }
    std::printf("%d passed, %d failed\n", static_cast<int>(Checks().size()) - failed, failed);
    return failed == 0 ? 0 : 1;
}

}  // namespace

RegisterCheck::RegisterCheck(const char* name, Check check) {
    Checks().emplace_back(name, check);
}

}  // namespace camclock::bench

int main(int argc, char** argv) {
    // A recorder in service has its log categories closed; a bench that wants messages opens its own.
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::WARN);
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--check")
            return camclock::bench::RunChecks();
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
