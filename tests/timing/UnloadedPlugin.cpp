// A plugin of an application's that uses camclock, and is unloaded again: see UnloadTest.cpp.

#include <camclock/TimeFilter.h>
#include <camclock/TimeFilterInstance.h>

#include <chrono>
#include <memory>

extern "C" void RunCameras() {
    camclock::TimeFilter camera("plugin: ");
    const auto stream = camera.CreateNewTimeFilter();
    camera.EnableTimeLogging("");
    camera.UseICMP("127.0.0.1", std::chrono::seconds(1), "", false);
    stream->UpdateTiming(std::make_shared<camclock::TimingData>(), camclock::MediaPacket::kFrameI);
}
