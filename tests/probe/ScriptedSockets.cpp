#include "ScriptedSockets.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace camclock::test {

ScriptedSockets& ScriptedSockets::Now() {
    static ScriptedSockets script;
    return script;
}

std::recursive_mutex& ScriptedSockets::Lock() {
    static std::recursive_mutex lock;
    return lock;
}

}  // namespace camclock::test

namespace camclock::sockets {

namespace {

using test::Bytes;
using test::ScriptedSockets;

constexpr Handle kSocket = 7;

struct Script {
    std::lock_guard<std::recursive_mutex> guard{ScriptedSockets::Lock()};
    ScriptedSockets* operator->() const { return &ScriptedSockets::Now(); }
};

}  // namespace

bool StartUp() {
    const Script script;
    ++script->startUps;
    return script->startsUp;
}

void CleanUp() {
    const Script script;
    ++script->cleanUps;
}

bool ParseAddress(const std::string& text, std::array<std::uint8_t, 4>& ip) {
    const Script script;
    const auto found = script->addresses.find(text);
    if (found == script->addresses.end())
        return false;
    ip = found->second;
    return true;
}

bool LookUpHost(const std::string& name, Address& address) {
    const Script script;
    const auto found = script->names.find(name);
    if (found == script->names.end())
        return false;
    address.ip = found->second;
    address.family = script->familyOfNames;
    return true;
}

Handle OpenRawIcmp() {
    const Script script;
    if (!script->opens)
        return kNoSocket;
    ++script->opened;
    return kSocket;
}

Transfer SendTo(Handle, const void* data, std::size_t length, const Address& to) {
    const Script script;
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    const Bytes request(bytes, bytes + length);
    script->sent.push_back({request, to});
    if (script->sendError != 0)
        return {-1, script->sendError};
    if (script->answer) {
        for (ScriptedSockets::Incoming& incoming : script->answer(request))
            script->inbox.push_back(std::move(incoming));
    }
    return {static_cast<std::int32_t>(length), 0};
}

int WaitReadable(Handle, std::uint32_t timeout_ms) {
    const Script script;
    script->waits_ms.push_back(timeout_ms);
    if (script->waitFails)
        return -1;
    return script->inbox.empty() ? 0 : 1;
}

Transfer ReceiveFrom(Handle, void* buffer, std::size_t size, Address& from) {
    const Script script;
    if (script->inbox.empty())
        return {-1, 10022};
    const ScriptedSockets::Incoming incoming = script->inbox.front();
    script->inbox.pop_front();
    if (incoming.error != 0)
        return {-1, incoming.error};
    from = {kInternetFamily, 0, incoming.from, {}};
    std::memcpy(buffer, incoming.bytes.data(), (std::min)(size, incoming.bytes.size()));
    if (incoming.bytes.size() > size)
        return {-1, test::kTooLargeError};
    return {static_cast<std::int32_t>(incoming.bytes.size()), 0};
}

bool IsTooLarge(int error) {
    return error == test::kTooLargeError;
}

bool ShutDown(Handle) {
    const Script script;
    return script->shutsDown;
}

int Close(Handle) {
    const Script script;
    if (script->closeError == 0) {
        ++script->closed;
        script->inbox.clear();
    }
    return script->closeError;
}

}  // namespace camclock::sockets
