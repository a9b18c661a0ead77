// An application that loads a plugin which uses camclock, lets it run cameras, and unloads it: no thread may
// be left whose code is gone.
//
//     unload_test PLUGIN
//
// g++ keeps a library loaded that holds certain templates of the standard library, clang++ does not: there, a
// thread that is left ends the process in the next round.

#include <dlfcn.h>

#include <cstdio>
#include <filesystem>
#include <iterator>

namespace {

std::ptrdiff_t Threads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
}

bool Expect(bool holds, const char* what) {
    if (!holds)
        std::fprintf(stderr, "failed: %s\n", what);
    return holds;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    const std::ptrdiff_t threads = Threads();
    for (int round = 0; round < 3; ++round) {
        void* const plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (plugin == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            return 1;
        }
        void (*runCameras)();
        *reinterpret_cast<void**>(&runCameras) = dlsym(plugin, "RunCameras");
        runCameras();
        if (!Expect(Threads() == threads, "every thread has ended with its owner") ||
            !Expect(dlclose(plugin) == 0, "the plugin is closed"))
            return 1;
    }
    return 0;
}
