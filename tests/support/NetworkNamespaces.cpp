#include "support/NetworkNamespaces.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace camclock::test {
namespace {

int OpenOwnNamespace() {
    return open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
}

/// A new namespace, made by a thread that ends again: its descriptor, or -1 and `errno`.
int NewNamespace() {
    int descriptor = -1;
    int error = 0;
    std::thread([&] {
        if (unshare(CLONE_NEWNET) == 0)
            descriptor = OpenOwnNamespace();
        error = errno;
    }).join();
    errno = error;
    return descriptor;
}

/// The kernel switches a device's queue on some time after its far end is up, and drops what is sent before.
/// Waits until this thread's device is running.
bool WaitUntilRunning(const std::string& device) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    device.copy(request.ifr_name, IFNAMSIZ - 1);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    bool running = false;
    while (!running && std::chrono::steady_clock::now() < deadline) {
        running = ioctl(descriptor, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_RUNNING) != 0;
        std::this_thread::yield();
    }
    close(descriptor);
    return running;
}

}  // namespace

std::unique_ptr<TwoNamespaces> TwoNamespaces::Make(Camera camera, std::string& whyNot) {
    std::unique_ptr<TwoNamespaces> network(new TwoNamespaces);
    network->before_ = OpenOwnNamespace();
    network->host_ = NewNamespace();
    network->camera_ = NewNamespace();
    if (network->camera_ < 0 || setns(network->host_, CLONE_NEWNET) != 0) {
        whyNot = std::string("a network namespace cannot be made (") + std::strerror(errno) +
                 "): run the tests as root";
        return nullptr;
    }
    const auto run = [&](const std::string& command) {
        std::vector<std::string> words{"ip"};
        for (std::size_t begin = 0; begin < command.size();) {
            const std::size_t end = std::min(command.find(' ', begin), command.size());
            words.push_back(command.substr(begin, end - begin));
            begin = end + 1;
        }
        return network->_Run(words, whyNot);
    };
    const std::string host(kHostDevice);
    const std::string remote(kCameraDevice);
    const std::string other = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(network->camera_);
    // Devices of equal index would start a second later: the kernel does not see that they belong together.
    bool ready = run("link set lo up") &&
                 run("link add " + host + " index 77 address " + kHostMac + " type veth peer name " + remote +
                     " index 78 address " + kCameraMac + " netns " + other) &&
                 run("addr add 10.77.0.1/24 dev " + host) && run("link set " + host + " up");
    // No look-up of the link address is ever needed, so the first request is as fast as the others.
    for (const char* const address : {"10.77.0.2", "10.77.0.9"})
        ready = ready && run(std::string("neigh add ") + address + " lladdr " + kCameraMac + " dev " + host +
                             " nud permanent");
    setns(network->camera_, CLONE_NEWNET);
    if (camera == Camera::kPlainKernel) {
        for (const char* const address : {"10.77.0.2", "10.77.0.9"})
            ready = ready && run(std::string("addr add ") + address + "/24 dev " + remote);
        ready = ready && run(std::string("neigh add 10.77.0.1 lladdr ") + kHostMac + " dev " + remote +
                             " nud permanent");
    }
    // The second "up" changes nothing, but waits for the lock under which the kernel starts the queue.
    ready = ready && run("link set " + remote + " up") && WaitUntilRunning(remote) &&
            run("link set " + remote + " up");
    setns(network->host_, CLONE_NEWNET);
    ready = ready && WaitUntilRunning(host) && run("link set " + host + " up");
    return ready ? std::move(network) : nullptr;
}

TwoNamespaces::~TwoNamespaces() {
    if (before_ >= 0)
        setns(before_, CLONE_NEWNET);
    for (const int descriptor : {before_, host_, camera_}) {
        if (descriptor >= 0)
            close(descriptor);
    }
}

void TwoNamespaces::EnterCamera() const {
    setns(camera_, CLONE_NEWNET);
}

bool TwoNamespaces::_Run(const std::vector<std::string>& command, std::string& whyNot) const {
    std::vector<char*> arguments;
    std::string text;
    for (const std::string& word : command) {
        arguments.push_back(
            const_cast<char*>(word.c_str()));  // NOLINT(cppcoreguidelines-pro-type-const-cast)
        text += word + " ";
    }
    arguments.push_back(nullptr);
    pid_t child = -1;
    int status = posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ);
    if (status == 0)
        waitpid(child, &status, 0);
    if (status != 0)
        whyNot = "this command failed: " + text;
    return status == 0;
}

}  // namespace camclock::test
