// Paths made full and cut to their file title, file modes read from the
// file system, and the file name of a loaded module. On POSIX systems full
// paths are made by text alone; on Windows the runtime makes them, with
// drive letters.
#if defined(_WIN32)
#  include <windows.h>
#  include <process.h>
#else
#  include <dlfcn.h>
#  include <unistd.h>
#endif
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "support/system.h"

namespace {

using tavlo::platform::FileMode;
using tavlo::platform::FileTitle;
using tavlo::platform::FullPath;
using tavlo::platform::ModuleFileName;
using tavlo::platform::ThisModule;

#if !defined(_WIN32)
std::string CurrentDirectory() {
    char buffer[4096];
    return getcwd(buffer, sizeof buffer) != nullptr ? buffer : "";
}
#endif

// A name of this test's own under the temporary directory.
std::string TempName(const char* suffix) {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    return ::testing::TempDir() + "tavloms_" + test->test_suite_name() + "_" + test->name() + "_" +
           std::to_string(getpid()) + suffix;
}

bool Exists(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

struct PathCase {
    const char* path;
    const char* full;
};

#if !defined(_WIN32)

TEST(FullPath, ResolvesAbsolutePathsByTheirText) {
    const PathCase cases[] = {
        {"/", "/"},
        {"/a/b/c", "/a/b/c"},
        {"/a/./b", "/a/b"},
        {"/a/b/../c", "/a/c"},
        {"//a///b", "/a/b"},
        {"/a/b/.", "/a/b"},
        {"/a/b/..", "/a"},
        {"/a/b/", "/a/b/"},  // a trailing separator is kept
        {"//a///b//", "/a/b/"},
        {"/a/b/../", "/a/"},
        {"/..", "/"},  // nothing above the root
        {"/../../x", "/x"},
        {"/a/../../..", "/"},
        {"/./.", "/"},
        {"/a/.hidden/..b/.../c.", "/a/.hidden/..b/.../c."},  // only "." and ".." are special
        {"/tavloms/no/such/dir/net.dbc", "/tavloms/no/such/dir/net.dbc"},
        {"/x/sym/../y", "/x/y"},  // no link is followed
    };
    for (const PathCase& c : cases) {
        EXPECT_EQ(FullPath(c.path), c.full) << c.path;
    }
}

TEST(FullPath, NullAndEmptyGiveEmpty) {
    EXPECT_EQ(FullPath(nullptr), "");
    EXPECT_EQ(FullPath(""), "");
}

TEST(FullPath, TakesRelativePathsFromTheCurrentDirectory) {
    const std::string cwd = CurrentDirectory();
    ASSERT_FALSE(cwd.empty());
    ASSERT_EQ(cwd[0], '/');
    const size_t slash = cwd.rfind('/');
    const std::string parent = slash == 0 ? "/" : cwd.substr(0, slash);
    const std::string base = cwd == "/" ? "" : cwd;

    struct Case {
        const char* path;
        std::string full;
    };
    const Case cases[] = {
        {"net.dbc", base + "/net.dbc"},
        {"./net.dbc", base + "/net.dbc"},
        {"sub/../net.dbc", base + "/net.dbc"},
        {"sub//deeper/./net.dbc", base + "/sub/deeper/net.dbc"},
        {"tavloms-missing-dir/net.dbc", base + "/tavloms-missing-dir/net.dbc"},
        {"sub/", base + "/sub/"},
        {".", cwd},
        {"..", parent},
        {"../net.dbc", (parent == "/" ? "" : parent) + "/net.dbc"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(FullPath(c.path), c.full) << c.path;
    }
}

// Changes the current directory for one test and goes back afterwards.
class InDirectory : public ::testing::Test {
protected:
    void SetUp() override {
        saved_ = CurrentDirectory();
        ASSERT_FALSE(saved_.empty());
    }
    void TearDown() override { EXPECT_EQ(chdir(saved_.c_str()), 0); }

private:
    std::string saved_;
};

TEST_F(InDirectory, RelativePathsAtTheRootStayBelowIt) {
    ASSERT_EQ(chdir("/"), 0);
    const PathCase cases[] = {
        {"a/b", "/a/b"},
        {".", "/"},
        {"..", "/"},
        {"../../x", "/x"},
        {"./a/../", "/"},
    };
    for (const PathCase& c : cases) {
        EXPECT_EQ(FullPath(c.path), c.full) << c.path;
    }
}

TEST_F(InDirectory, NoFullPathWithoutACurrentDirectory) {
    const std::string gone = TempName(".d");
    ASSERT_EQ(mkdir(gone.c_str(), 0700), 0);
    ASSERT_EQ(chdir(gone.c_str()), 0);
    ASSERT_EQ(rmdir(gone.c_str()), 0);
    EXPECT_EQ(FullPath("net.dbc"), "");
    EXPECT_EQ(FullPath("/net.dbc"), "/net.dbc");  // an absolute path needs none
}

// The program's own name is known only as it was started, perhaps relative to
// a directory that has been left since.
TEST_F(InDirectory, TheProgramIsNamedWhereverTheCurrentDirectoryIs) {
    ASSERT_EQ(chdir("/"), 0);
    char name[4096];
    EXPECT_GT(ModuleFileName(ThisModule(), name, sizeof name), 0u);
    EXPECT_EQ(name, tavlo::test::ProgramPath());
}

#endif  // !defined(_WIN32)

TEST(FileTitle, IsTheFileNameWithoutDirectoryAndExtension) {
    const PathCase cases[] = {
        {"/a/b/net.dbc", "net"},
        {"net", "net"},
        {"net.dbc", "net"},
        {"a.b.c", "a.b"},
        {"/dir.x/file", "file"},
        {"dir.x/sub/file", "file"},
        {".hidden", ""},
        {"/a/.hidden", ""},
        {"2nd-net.dbc", "2nd-net"},
        {"net.", "net"},
        {"/a/b/", ""},
        {"/", ""},
        {"", ""},
    };
    for (const PathCase& c : cases) {
        EXPECT_EQ(FileTitle(c.path), c.full) << c.path;
    }
    EXPECT_EQ(FileTitle(nullptr), "");
}

#if defined(_WIN32)

TEST(FullPath, IsTheRuntimesFullPathWithDriveAndBackslashes) {
    const PathCase cases[] = {
        {"C:\\a\\b\\c", "C:\\a\\b\\c"},
        {"C:/a/./b", "C:\\a\\b"},
        {"C:\\a\\b\\..\\c.dbc", "C:\\a\\c.dbc"},
        {"C:\\a\\..\\..\\x", "C:\\x"},  // nothing above the root
        {"C:\\tavloms\\no\\such\\dir\\net.dbc", "C:\\tavloms\\no\\such\\dir\\net.dbc"},
    };
    for (const PathCase& c : cases) {
        EXPECT_EQ(FullPath(c.path), c.full) << c.path;
    }
    EXPECT_EQ(FullPath(nullptr), "");
    EXPECT_EQ(FullPath(""), "");
}

TEST(FullPath, TakesRelativePathsFromTheCurrentDirectory) {
    char cwd[MAX_PATH];
    ASSERT_GT(GetCurrentDirectoryA(sizeof cwd, cwd), 0u);
    std::string base = cwd;
    if (base.back() != '\\') {
        base += '\\';
    }
    EXPECT_EQ(FullPath("net.dbc"), base + "net.dbc");
    EXPECT_EQ(FullPath("sub\\..\\net.dbc"), base + "net.dbc");
    EXPECT_EQ(FullPath("sub/deeper/./net.dbc"), base + "sub\\deeper\\net.dbc");
}

TEST(WithExtension, ReplacesOrAddsTheExtension) {
    EXPECT_EQ(tavlo::platform::WithExtension("C:\\data\\net.dbc", ".DBC"), "C:\\data\\net.DBC");
    EXPECT_EQ(tavlo::platform::WithExtension("C:\\data\\net.json", ".DBC"), "C:\\data\\net.DBC");
    EXPECT_EQ(tavlo::platform::WithExtension("net", ".DBC"), "net.DBC");
}

// Windows keeps only whether a file may be written: read access for all,
// write access for all or none.
TEST(FileMode, TellsWhetherTheFileMayBeWritten) {
    const std::string path = TempName(".dbc");
    std::FILE* file = std::fopen(path.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    for (const unsigned int set : {0444u, 0644u}) {
        ASSERT_TRUE(tavlo::test::SetFileMode(path, set));
        unsigned int mode = 0xFFFFu;
        EXPECT_TRUE(FileMode(path.c_str(), mode));
        EXPECT_EQ(mode & 0222u, (set & 0200u) != 0 ? 0222u : 0u) << std::oct << mode;
        EXPECT_EQ(mode & 0444u, 0444u) << std::oct << mode;
    }
    EXPECT_EQ(std::remove(path.c_str()), 0);
}

TEST(ModuleFileName, NamesASystemLibraryByItsFullPath) {
    void* kernel = GetModuleHandleA("kernel32.dll");
    ASSERT_NE(kernel, nullptr);
    char name[4096];
    const unsigned int length = ModuleFileName(kernel, name, sizeof name);
    ASSERT_GT(length, 3u);
    EXPECT_EQ(name[1], ':') << name;
    EXPECT_TRUE(Exists(name)) << name;
    EXPECT_NE(name, tavlo::test::ProgramPath());
}

#else

TEST(FileMode, ReadsThePermissionBitsOnly) {
    const std::string path = TempName(".dbc");
    std::FILE* file = std::fopen(path.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);

    const unsigned int modes[] = {0644u, 0444u, 0600u, 0751u, 0200u, 0u};
    for (unsigned int expected : modes) {
        ASSERT_EQ(chmod(path.c_str(), expected), 0);
        unsigned int mode = 0xFFFFu;
        EXPECT_TRUE(FileMode(path.c_str(), mode));
        EXPECT_EQ(mode, expected) << std::oct << expected;
    }
    EXPECT_EQ(std::remove(path.c_str()), 0);
}

TEST(ModuleFileName, NamesASharedLibraryByItsFullPath) {
    Dl_info info;
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&dladdr), &info), 0);
    ASSERT_NE(info.dli_fbase, nullptr);
    char name[4096];
    const unsigned int length = ModuleFileName(info.dli_fbase, name, sizeof name);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(name[0], '/');
    EXPECT_TRUE(Exists(name)) << name;
    EXPECT_NE(name, tavlo::test::ProgramPath());
    EXPECT_EQ(FullPath(name), name);
}

#endif  // defined(_WIN32)

TEST(FileMode, FailsForAMissingFile) {
    unsigned int mode = 0;
    EXPECT_FALSE(FileMode(TempName(".missing").c_str(), mode));
    EXPECT_FALSE(FileMode("", mode));
    EXPECT_FALSE(FileMode(nullptr, mode));
}

TEST(ModuleFileName, NamesTheFileTheLibraryCodeLivesIn) {
    // The tests link the library statically: its code lives in this program.
    void* module = ThisModule();
    ASSERT_NE(module, nullptr);
    char name[4096];
    const unsigned int length = ModuleFileName(module, name, sizeof name);
    EXPECT_EQ(length, std::strlen(name));
    EXPECT_EQ(name, tavlo::test::ProgramPath());
}

TEST(ModuleFileName, CutsALongNameAndTerminatesIt) {
    char full[4096];
    const unsigned int fullLength = ModuleFileName(ThisModule(), full, sizeof full);
    ASSERT_GT(fullLength, 3u);

    const unsigned int sizes[] = {1, 2, 4, fullLength, fullLength + 1, fullLength + 2};
    for (unsigned int size : sizes) {
        SCOPED_TRACE(size);
        std::string buffer(fullLength + 8, 'x');
        const unsigned int written = ModuleFileName(ThisModule(), &buffer[0], size);
        const unsigned int expected = size - 1 < fullLength ? size - 1 : fullLength;
        EXPECT_EQ(written, expected);
        EXPECT_EQ(buffer.compare(0, expected, full, expected), 0);
        EXPECT_EQ(buffer[expected], '\0');
        EXPECT_EQ(buffer.find_first_not_of('x', expected + 1), std::string::npos);
    }
}

TEST(ModuleFileName, WritesNothingWithoutAModuleOrRoom) {
    char buffer[8] = "xxxxxxx";
    EXPECT_EQ(ModuleFileName(nullptr, buffer, sizeof buffer), 0u);
    EXPECT_EQ(ModuleFileName(ThisModule(), buffer, 0), 0u);
    EXPECT_EQ(ModuleFileName(ThisModule(), nullptr, 8), 0u);
    // An address in no loaded file names no module.
    EXPECT_EQ(ModuleFileName(reinterpret_cast<void*>(static_cast<uintptr_t>(0x10)), buffer,
                             sizeof buffer),
              0u);
    EXPECT_STREQ(buffer, "xxxxxxx");
}

}  // namespace
