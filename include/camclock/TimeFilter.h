#pragma once

#include <camclock/Export.h>
#include <camclock/TimePoint.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <limits>
#include <memory>
#include <string>

namespace camclock {

class AsynchronousLog;
class TimeFilterInstance;

/// How far is this camera's clock from the host's? One object per camera: it holds what all streams of the
/// camera share, that is the clock difference `D` and its uncertainty, the settings, the origin T0 of the
/// stable time stamps, the shutdown handler and the timing log.
///
/// Owned by the application, also as a static object; it must outlive every instance that it handed out.
///
/// Threads: the getters, `SetD`, `CheckPollDifference` and `SetStablePtst0` may be called from any
/// thread at any time. The log prefix, the two handlers, `EnableTimeLogging` and `UseICMP` are
/// meant to be set before streams run.
///
///     camclock::TimeFilter camera("Gate 3: ");
///     camera.SetPacketTimeOut(std::chrono::seconds(5));
///     auto stream = camera.CreateNewTimeFilter();
///     stream->DoTimeFiltering(true);
///     stream->DoEstimation(true);
class CAMCLOCK_API TimeFilter {
public:
    /// Starts the worker of the object's asynchronous log; throws `std::system_error` when no thread can be
    /// started. `logPrefix` stands in front of every message that this object writes directly to
    /// "RTSP.TimeFilter".
    explicit TimeFilter(std::string logPrefix);
    TimeFilter();  ///< with an empty prefix

    /// Stops probing, joins every thread; messages still queued in the logs are dropped.
    ~TimeFilter();

    TimeFilter(const TimeFilter&) = delete;
    TimeFilter& operator=(const TimeFilter&) = delete;

    /// A new filter for one stream of this camera. Throws `std::system_error` when no thread can be started.
    std::shared_ptr<TimeFilterInstance> CreateNewTimeFilter();

    void SetLogPrefix(std::string logPrefix);
    std::string GetLogPrefix() const;

    /// Clock difference: what is added to a time of the camera's clock to get the host's.
    std::chrono::milliseconds GetD() const;

    /// Uncertainty of `D`: half the round trip of the measurement it comes
    /// from; 0 until `D` has been measured.
    std::chrono::microseconds GetD_uncert() const;

    /// Sets the clock difference, milliseconds, positive when the camera's clock is behind the host's: from
    /// now on it is added to every time of capture. It lasts until somebody sets another one: the next packet
    /// of a stream that estimates, the next `CheckPollDifference` without a probe, the next probing with one.
    /// The uncertainty and `DIsLocked` stay as they are.
    void SetD(std::chrono::milliseconds D);

    /// Has `D` settled for the session? True once a probing has been accepted, and whenever no probe exists.
    bool DIsLocked();

    /// True from `UseICMP` until the probing thread ends.
    bool IsUsingProbe();

    /// Tells the clock difference to expect, milliseconds with the sign of `D`. Without a probe it becomes
    /// `D` at once, as by `SetD`, and the first such call says so in the log. With one, `D` stays: the
    /// probing thread, which waits for the first such call, takes the value for the day of a measurement and
    /// for `D` when a measurement fails. It keeps the latest value, also for a later `UseICMP`. A stream that
    /// estimates calls this with every packet from its first sender report on.
    void CheckPollDifference(std::chrono::milliseconds expected);

    /// How long a stream may stay without a packet, host's clock; 10 s at first.
    void SetPacketTimeOut(std::chrono::milliseconds timeOut);
    std::chrono::milliseconds GetPacketTimeOut() const;

    /// How long a stream may stay without a sender report, host's clock; 30 s at first.
    void SetRtcpTimeOut(std::chrono::milliseconds timeOut);
    std::chrono::milliseconds GetRtcpTimeOut() const;

    /// A constant that is added to `D` for every `TOC_host`; 0 at first.
    void SetSyncShift(std::chrono::milliseconds syncShift);
    std::chrono::milliseconds GetSyncShift() const;

    /// Whether a stream without sender reports counts as faulty; false at first.
    void RequireRTCP(bool required);
    bool RequireRTCP() const;

    /// Sets the origin of the stable time stamps, camera's clock. An origin set with RTCP sync is final:
    /// every later call is refused and says so in the log.
    void SetStablePtst0(TimePoint t0, bool rtcpSync);

    /// The latest origin (`rtcpSync` true), or the latest one that was set without RTCP sync.
    TimePoint GetStablePtsT0(bool rtcpSync) const;
    bool StablePtsT0Locked() const;

    /// The handler that `ShutDown` calls, on the calling thread; replaces any earlier one, and an empty one
    /// removes it. It may assign another handler or none. It may throw: what it throws comes out of
    /// `ShutDown`, or of the `UpdateTiming` that called that, once the packet has been dealt with like any
    /// other. It must not destroy an instance of this camera: one of them may be the caller.
    void AssignShutdownHandler(std::function<void()> handler);

    /// Asks the application to end this camera's session: calls the handler and does nothing
    /// else. Called by an instance after 1,000 stable time stamps in a row that could not be
    /// kept, and again with every further one.
    ///
    /// The camera goes on as before until the application acts. Its origin T0, which is final, is what the
    /// time stamps do not go with any more: make a new `TimeFilter` and new instances for the new session.
    void ShutDown();

    /// A hook for the application's own tests: `TestStuff` calls it, if there is one.
    void SetTestStuff(std::function<void()> testFunc);
    void TestStuff();

    /// Starts a timing log: `timinglog<N>.txt` in `directory` (the working directory when empty), where N is
    /// the first number for which no such file can be read. An earlier log is closed and loses what it still
    /// had queued. A file that cannot be written is not reported: its rows are lost. Throws
    /// `std::system_error` when no thread can be started. Call it before streams run.
    void EnableTimeLogging(std::string directory);
    bool IsTimeLogging();

    /// The timing log; only while `IsTimeLogging()`.
    AsynchronousLog& TimeLog();

    /// Starts measuring `D` with ICMP timestamps (RFC 792): a thread asks `url`, which is the
    /// camera's address or host name and no URL of a stream, every `pollInterval`, from the first
    /// `CheckPollDifference` on. A result with an uncertainty under 30 ms becomes `D` and `D_uncert`;
    /// any other lets `D` fall back to the expected difference and is followed by the next try 10 ms
    /// later. Eleven such failures in a row end the thread; ten, when `CheckPollDifference` was
    /// called before without a probe. The count goes on from one `UseICMP` to the next: behind a
    /// thread that has given up it is past the mark, and the next thread tries until a result is
    /// accepted or `CloseTimeProbing` is called.
    ///
    /// An interval of 0 or less measures every 10 ms, one beyond the reach of the clock (292 years) once.
    ///
    /// With `createLog` every result is written to `probelog.txt` in `logPath` (the working directory when
    /// empty); a file that cannot be written is not reported.
    ///
    /// Needs administrative rights (on Linux CAP_NET_RAW); without them every try fails. Call it once a
    /// session: a second call before `CloseTimeProbing` ends the process. Throws `std::system_error` when no
    /// thread can be started; the object is then still in probing use, without measurements.
    void UseICMP(std::string url, std::chrono::seconds pollInterval, std::string logPath, bool createLog);

    /// Stops measuring `D` and joins the probing thread, which takes 1.5 s and 10 ms at most unless a
    /// look-up of the host's name takes longer, however many other cameras are being probed; does
    /// nothing but log when there is none. `D` and its lock stay. Throws `std::system_error` when the
    /// probing thread itself calls it.
    void CloseTimeProbing();

private:
    struct State;

    void _RunTimeProbe();
    void _ProbeForDifference(std::int64_t now_ns, std::int64_t expected_ms);
    std::ofstream& _ProbeLog();

    static bool _InfoEnabled();
    void _LogInfo(const std::string& message) const;

    // Destroyed from the last to the first: the application's callables go before the logs that may still
    // print, and every worker is joined before the file it writes.
    std::atomic<std::int64_t> D_{0};
    std::atomic<std::int64_t> D_uncert_{0};
    std::atomic<std::uint32_t> probeFailures_{0};
    std::atomic<bool> dLocked_{false};
    std::atomic<std::int64_t> expectedD_{(std::numeric_limits<std::int64_t>::min)()};
    std::atomic<bool> probing_{false};     // cleared to end the probing thread
    std::atomic<bool> usingProbe_{false};  // is there a probe? Packet threads ask this and never touch it
    std::unique_ptr<State> state_;         // thread, probe, files and locks
    std::unique_ptr<AsynchronousLog> timeLog_;
    std::atomic<TimePoint> stablePtsT0_{TimePoint{}};
    std::atomic<TimePoint> stablePtsT0NoRtcp_{TimePoint{}};
    std::atomic<bool> stablePtsT0Locked_{false};
    std::atomic<bool> requireRtcp_{false};
    std::unique_ptr<AsynchronousLog> log_;
    std::shared_ptr<std::function<void()>> shutdownHandler_;  // shared with a call that is under way
    std::shared_ptr<std::function<void()>> testFunc_;
    std::atomic<std::int64_t> packetTimeOut_ms_{10'000};
    std::atomic<std::int64_t> rtcpTimeOut_ms_{30'000};
    std::atomic<std::int64_t> syncShift_ms_{0};
    std::string logPrefix_;
};

}  // namespace camclock
