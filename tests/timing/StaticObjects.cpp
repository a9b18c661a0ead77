// An application whose cameras have static storage: they are destroyed after main, while their threads and
// its own still run, and after whatever was made on first use. Its test is that it ends, and in time.

#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>
#include <camclock/Utilities.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

namespace {

using std::chrono::seconds;

/// A camera with a thread that asks whether it is alive, and so reads the clock, until the very end.
class Recorder {
public:
    Recorder() { stream_->EnableTimeOutCheck(true); }

    ~Recorder() {
        // Whatever is destroyed before this object is gone by now.
        const int before = checks_;
        while (supervision_.joinable() && checks_ < before + 10)
            std::this_thread::yield();
        running_ = false;
        if (supervision_.joinable())
            supervision_.join();
    }

    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    void Start() {
        // With an interval of 0 and a log of its results, probing reads the clock in every cycle, whether it
        // has the rights for it or not, until eleven failures.
        camera_.UseICMP("127.0.0.1", seconds(0), "", true);
        camera_.CheckPollDifference(std::chrono::milliseconds(0));
        supervision_ = std::thread([this] {
            while (running_) {
                stream_->PacketArrivalIsOk();
                ++checks_;
            }
        });
        while (checks_ == 0)
            std::this_thread::yield();
    }

private:
    camclock::TimeFilter camera_{"static: "};
    std::shared_ptr<camclock::TimeFilterInstance> stream_ = camera_.CreateNewTimeFilter();
    std::atomic<bool> running_{true};
    std::atomic<int> checks_{0};
    std::thread supervision_;
};

Recorder madeBeforeMain;
std::unique_ptr<Recorder> madeInMain;  // destroyed after all that its making makes

}  // namespace

int main() {
    madeInMain = std::make_unique<Recorder>();
    madeBeforeMain.Start();
    madeInMain->Start();
    return 0;
}
