// Paths made full and cut to their file title, file modes read from the file
// system, and the file name of a loaded module. On POSIX systems full paths
// are made by text alone; on Windows the runtime makes them, with drive
// letters.
#if defined(_WIN32)
#  include <windows.h>
#else
#  include <unistd.h>
#endif
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "support/read_database.h"
#include "support/system.h"

namespace {

using tavlo::platform::FullPath;
using tavlo::platform::ModuleFileName;
using tavlo::platform::ThisModule;

#if !defined(_WIN32)
// Relative paths are taken from the current directory ("" without one);
// nothing lies above the root; only "." and ".." are special; no link is
// followed; a trailing separator is kept.
TEST(FullPath, ResolvesPathsByTheirText) {
    char buffer[4096];
    const std::string saved = getcwd(buffer, sizeof buffer);
    const std::string gone = tavlo::test::TestFilePath(".d");
    const struct { const char* directory; const char* path; const char* full; } cases[] = {
        {"/", "/a/./b/../c", "/a/c"},    {"/", "//a///b//", "/a/b/"},   {"/", "/a/b/..", "/a"},
        {"/", "/../../x", "/x"},          {"/", "/a/../../..", "/"},     {"/", "/./.", "/"},
        {"/", "/a/.h/..b/.../c.", "/a/.h/..b/.../c."},                  {"/", "", ""},
        {"/tmp", "net.dbc", "/tmp/net.dbc"}, {"/tmp", "sub//deeper/./net.dbc", "/tmp/sub/deeper/net.dbc"},
        {"/tmp", "sub/", "/tmp/sub/"},   {"/tmp", ".", "/tmp"},          {"/tmp", "..", "/"},
        {"/tmp", "../net.dbc", "/net.dbc"}, {"/", "../../x", "/x"},       {"/", "./a/../", "/"},
        {gone.c_str(), "net.dbc", ""},   {gone.c_str(), "/net.dbc", "/net.dbc"},
    };
    for (const auto& c : cases) {
        if (c.directory == gone.c_str()) {
            ASSERT_EQ(mkdir(gone.c_str(), 0700), 0);
            ASSERT_EQ(chdir(gone.c_str()), 0);
            ASSERT_EQ(rmdir(gone.c_str()), 0);
        } else {
            ASSERT_EQ(chdir(c.directory), 0);
        }
        EXPECT_EQ(FullPath(c.path), c.full) << c.path << " in " << c.directory;
    }
    EXPECT_EQ(FullPath(nullptr), "");
    // The program is named wherever the current directory is.
    ASSERT_EQ(chdir("/"), 0);
    char name[4096];
    EXPECT_GT(ModuleFileName(ThisModule(), name, sizeof name), 0u);
    EXPECT_EQ(name, tavlo::test::ProgramPath());
    EXPECT_EQ(chdir(saved.c_str()), 0);
}
#else
TEST(FullPath, IsTheRuntimesFullPathWithDriveAndBackslashes) {
    const struct { const char* path; const char* full; } cases[] = {
        {"C:/a/./b", "C:\\a\\b"}, {"C:\\a\\b\\..\\c.dbc", "C:\\a\\c.dbc"}, {"C:\\a\\..\\..\\x", "C:\\x"}, {"", ""}};
    for (const auto& c : cases) {
        EXPECT_EQ(FullPath(c.path), c.full) << c.path;
    }
    char cwd[MAX_PATH];
    ASSERT_GT(GetCurrentDirectoryA(sizeof cwd, cwd), 0u);
    const std::string base = std::string(cwd) + (cwd[std::strlen(cwd) - 1] != '\\' ? "\\" : "");
    EXPECT_EQ(FullPath("sub/deeper/../net.dbc"), base + "sub\\net.dbc");
}
#endif

TEST(FileTitle, IsTheFileNameWithoutDirectoryAndExtension) {
    const struct { const char* path; const char* title; } cases[] = {
        {"/a/b/net.dbc", "net"}, {"net", "net"}, {"a.b.c", "a.b"}, {"dir.x/sub/file", "file"}, {"/a/.hidden", ""},
        {"net.", "net"}, {"/a/b/", ""}, {"", ""}};
    for (const auto& c : cases) {
        EXPECT_EQ(tavlo::platform::FileTitle(c.path), c.title) << c.path;
    }
    EXPECT_EQ(tavlo::platform::FileTitle(nullptr), "");
}

// The permission bits only; Windows keeps only whether the file may be
// written (read access for all, write access for all or none).
TEST(FileMode, ReadsThePermissionBits) {
    const std::string path = tavlo::test::TestFilePath(".dbc");
    std::FILE* file = std::fopen(path.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    for (const unsigned int set : {0444u, 0644u, 0751u, 0200u}) {
        ASSERT_TRUE(tavlo::test::SetFileMode(path, set));
        unsigned int mode = 0xFFFFu;
        EXPECT_TRUE(tavlo::platform::FileMode(path.c_str(), mode));
#if defined(_WIN32)
        EXPECT_EQ(mode & 0666u, (set & 0200u) != 0 ? 0666u : 0444u) << std::oct << mode;
#else
        EXPECT_EQ(mode, set) << std::oct << mode;
#endif
    }
    EXPECT_EQ(std::remove(path.c_str()), 0);
    unsigned int mode = 0;
    EXPECT_FALSE(tavlo::platform::FileMode(path.c_str(), mode));
    EXPECT_FALSE(tavlo::platform::FileMode(nullptr, mode));
}

// The tests link the library statically: its code lives in this program. A
// name too long for the buffer is cut and terminated. (The shared library's
// own file name is tested from C, in tests/c.)
TEST(ModuleFileName, NamesTheFileTheCodeLivesIn) {
    char full[4096];
    const unsigned int length = ModuleFileName(ThisModule(), full, sizeof full);
    EXPECT_EQ(full, tavlo::test::ProgramPath());
    for (const unsigned int size : {1u, 2u, length, length + 1}) {
        std::string buffer(length + 8, 'x');
        const unsigned int expected = size - 1 < length ? size - 1 : length;
        EXPECT_EQ(ModuleFileName(ThisModule(), &buffer[0], size), expected);
        EXPECT_EQ(buffer.substr(0, expected + 2), std::string(full, expected) + '\0' + 'x') << size;
    }
    char buffer[8] = "xxxxxxx";  // nothing without a module or room
    EXPECT_EQ(ModuleFileName(nullptr, buffer, sizeof buffer) + ModuleFileName(ThisModule(), buffer, 0), 0u);
    EXPECT_EQ(ModuleFileName(reinterpret_cast<void*>(static_cast<uintptr_t>(0x10)), buffer, sizeof buffer), 0u);
    EXPECT_STREQ(buffer, "xxxxxxx");
}

}  // namespace
