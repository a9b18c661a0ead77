// The program's measurement of one host, over real sockets between network namespaces.
#include "apps/camclock/sources/HostProbe.h"

#include "support/NetworkNamespaces.h"
#include "support/ScriptedCamera.h"
#include <camclock/Receiver.h>

#include <gtest/gtest.h>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cmath>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace camclock::app {
namespace {

using test::Bytes;
using test::ScriptedCamera;
using test::TwoNamespaces;

class HostProbeTest : public testing::Test {
protected:
    void SetUpNetwork(TwoNamespaces::Camera camera) {
        std::string whyNot;
        network_ = TwoNamespaces::Make(camera, whyNot);
        if (!network_)
            GTEST_SKIP() << whyNot;
        receiver::Now();
    }

    static ProbeOutcome Run(const std::string& host, int timeout_ms) {
        return HostProbe(host).Run({2, timeout_ms, 0});
    }

    std::unique_ptr<TwoNamespaces> network_;
};

class KernelProbe : public HostProbeTest {
protected:
    void SetUp() override { SetUpNetwork(TwoNamespaces::Camera::kPlainKernel); }
};

class SilentProbe : public HostProbeTest {
protected:
    void SetUp() override { SetUpNetwork(TwoNamespaces::Camera::kNobody); }
};

TEST_F(KernelProbe, AnsweredMeasuresWithinTheBound) {
    const ProbeOutcome outcome = Run("10.77.0.2", 20'000);
    ASSERT_FALSE(outcome.failure);
    EXPECT_LE(std::fabs(outcome.result.difference), BoundToTrust_ms(outcome.result));
}

TEST_F(KernelProbe, UnknownHostIsNamed) {
    const ProbeOutcome outcome = Run("not a name", 10);
    ASSERT_TRUE(outcome.failure);
    EXPECT_EQ(outcome.failure->code, ExitCode::kNotReachable);
    EXPECT_EQ(outcome.failure->what, "not a name: no IPv4 address is known for this host");
}

TEST_F(KernelProbe, UnreachableHostIsNamed) {
    const ProbeOutcome outcome = Run("10.99.0.1", 10);
    ASSERT_TRUE(outcome.failure);
    EXPECT_EQ(outcome.failure->code, ExitCode::kNotReachable);
    EXPECT_EQ(outcome.failure->what, "10.99.0.1: no request could be sent (Network is unreachable)");
}

TEST_F(KernelProbe, MissingRightIsNamed) {
    std::thread([] {  // capabilities belong to a thread
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        const __user_cap_data_struct none[2]{};
        ASSERT_EQ(syscall(SYS_capset, &header, &none), 0);
        const ProbeOutcome outcome = Run("10.77.0.2", 10);
        ASSERT_TRUE(outcome.failure);
        EXPECT_EQ(outcome.failure->code, ExitCode::kNoRight);
    })
        .join();
}

TEST_F(SilentProbe, SilenceIsNamed) {
    const ProbeOutcome outcome = Run("10.77.0.2", 10);
    ASSERT_TRUE(outcome.failure);
    EXPECT_EQ(outcome.failure->code, ExitCode::kNoReply);
    EXPECT_EQ(outcome.failure->what, "10.77.0.2: no answer to 2 ICMP time-stamp requests within 10 ms each");
}

TEST_F(SilentProbe, HostileAnswersAreNamed) {
    const ScriptedCamera camera(*network_, [](const Bytes& request) {
        return std::vector<Bytes>{test::ReplyWithOptions(request, 0)};
    });
    const ProbeOutcome outcome = Run("10.77.0.2", 20'000);
    ASSERT_TRUE(outcome.failure);
    EXPECT_EQ(outcome.failure->code, ExitCode::kBadReply);
    EXPECT_EQ(outcome.failure->what,
              "10.77.0.2: what it answers is no usable ICMP time stamp (Wrong size packet read: 44)");
}

}  // namespace
}  // namespace camclock::app
