// Compiled into every program of the address-sanitizer build that links GLib.
//
// GLib allocates a table when it is loaded and never frees it, on purpose; the leak checker is told to pass
// over what the dynamic loader's own calls allocate, and nothing else. It sees the loader only when it
// unwinds call by call.

extern "C" {

// The sanitizers' runtime looks for these very names.
const char* __asan_default_options();       // NOLINT(bugprone-reserved-identifier)
const char* __lsan_default_options();       // NOLINT(bugprone-reserved-identifier)
const char* __lsan_default_suppressions();  // NOLINT(bugprone-reserved-identifier)

const char* __asan_default_options() {  // NOLINT(bugprone-reserved-identifier)
    return "fast_unwind_on_malloc=0";
}

const char* __lsan_default_options() {  // NOLINT(bugprone-reserved-identifier)
    return "print_suppressions=0";      // standard error holds what the program says
}

const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
    return "leak:ld-linux\n";
}
}
