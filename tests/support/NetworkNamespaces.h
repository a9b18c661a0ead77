#pragma once

#include <memory>
#include <string>
#include <vector>

namespace camclock::test {

/// A network of two hosts that exists only in this process: two network namespaces without names, joined by a
/// pair of virtual Ethernet devices. While it lives, the thread that made it is in the first one, and so are
/// the threads that it starts; the kernel removes both when it ends, or when the process does.
///
/// Needs the rights of root and the program `ip` (iproute2). Linux only.
class TwoNamespaces {
public:
    static constexpr const char* kHostDevice = "camhost";      // 10.77.0.1, in the thread's namespace
    static constexpr const char* kCameraDevice = "camremote";  // in the other one
    static constexpr const char* kHostMac = "02:00:00:00:77:01";
    static constexpr const char* kCameraMac = "02:00:00:00:77:02";

    enum class Camera {
        kPlainKernel,  ///< 10.77.0.2 and 10.77.0.9 are addresses of the kernel, which answers
        kNobody,       ///< frames for these two addresses arrive, and the kernel ignores them
    };

    /// Null where this is not allowed; `whyNot` then says what is missing.
    static std::unique_ptr<TwoNamespaces> Make(Camera camera, std::string& whyNot);

    ~TwoNamespaces();

    TwoNamespaces(const TwoNamespaces&) = delete;
    TwoNamespaces& operator=(const TwoNamespaces&) = delete;

    /// Puts the calling thread into the camera's namespace, for good.
    void EnterCamera() const;

private:
    TwoNamespaces() = default;

    bool _Run(const std::vector<std::string>& command, std::string& whyNot) const;

    int before_ = -1;  // descriptors of namespaces
    int host_ = -1;
    int camera_ = -1;
};

}  // namespace camclock::test
