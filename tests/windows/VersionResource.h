#pragma once

#include <windows.h>

#include <camclock/Version.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace camclock::test {

/// The loaded DLL of that name carries the version of the headers as its resource, and its own name.
inline void ExpectVersionResource(const std::string& dll) {
    const HMODULE module = GetModuleHandleA(dll.c_str());
    ASSERT_NE(module, nullptr);
    char path[MAX_PATH];
    ASSERT_NE(GetModuleFileNameA(module, path, MAX_PATH), 0U);
    DWORD ignored = 0;
    std::vector<char> block(GetFileVersionInfoSizeA(path, &ignored));
    ASSERT_FALSE(block.empty());
    ASSERT_TRUE(GetFileVersionInfoA(path, 0, static_cast<DWORD>(block.size()), block.data()));

    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueA(block.data(), "\\", reinterpret_cast<void**>(&fixed), &length));
    EXPECT_EQ(HIWORD(fixed->dwFileVersionMS), CAMCLOCK_VERSION_MAJOR);
    EXPECT_EQ(LOWORD(fixed->dwFileVersionMS), CAMCLOCK_VERSION_MINOR);
    EXPECT_EQ(HIWORD(fixed->dwFileVersionLS), CAMCLOCK_VERSION_PATCH);

    char* text = nullptr;
    ASSERT_TRUE(VerQueryValueA(block.data(), "\\StringFileInfo\\040904b0\\ProductVersion",
                               reinterpret_cast<void**>(&text), &length));
    EXPECT_STREQ(text, CAMCLOCK_VERSION_STRING);
    ASSERT_TRUE(VerQueryValueA(block.data(), "\\StringFileInfo\\040904b0\\OriginalFilename",
                               reinterpret_cast<void**>(&text), &length));
    EXPECT_EQ(text, dll);
}

}  // namespace camclock::test
