// The module frame: attach counting by the load hook, the version question,
// database names split and checked, the "None" records, file status and the
// notification message.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "manager/frame.h"
#include "platform/platform.h"
#include "tavloms/module.h"
#include "tavloms/platform.h"

namespace {

using tavlo::manager::GetFileStatus;
using tavlo::manager::kProcessAttach;
using tavlo::manager::kProcessDetach;
using tavlo::manager::ModuleAttachCount;
using tavlo::manager::ModuleInstance;
using tavlo::manager::ModuleLoadHook;

void* Handle(uintptr_t value) {
    return reinterpret_cast<void*>(value);
}

// A name of this test's own under the temporary directory.
std::string TempName(const char* suffix) {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    return ::testing::TempDir() + "tavloms_" + test->test_suite_name() + "_" + test->name() + "_" +
           std::to_string(getpid()) + suffix;
}

std::string ModuleFileNameOfThisProgram() {
    char name[4096];
    tavlo::platform::ModuleFileName(tavlo::platform::ThisModule(), name, sizeof name);
    return name;
}

// ---- The load hook ----------------------------------------------------------

// Whatever a test does to the attach count, the state the library's own
// constructor left is back afterwards.
class LoadHook : public ::testing::Test {
protected:
    void SetUp() override {
        startCount_ = ModuleAttachCount();
        startInstance_ = ModuleInstance();
    }
    void TearDown() override {
        while (ModuleAttachCount() > 0) {
            ModuleLoadHook(nullptr, kProcessDetach);
        }
        for (unsigned int i = 0; i < startCount_; ++i) {
            ModuleLoadHook(startInstance_, kProcessAttach);
        }
        EXPECT_EQ(ModuleAttachCount(), startCount_);
        EXPECT_EQ(ModuleInstance(), startInstance_);
    }

    // Detaches every attach, ending with no instance stored.
    void DetachAll() {
        while (ModuleAttachCount() > 0) {
            EXPECT_EQ(ModuleLoadHook(Handle(0x99), kProcessDetach), 1);
        }
        ASSERT_EQ(ModuleInstance(), nullptr);
    }

    unsigned int startCount_ = 0;
    void* startInstance_ = nullptr;
};

TEST_F(LoadHook, TheLibraryAttachesItselfOnceWhenLoaded) {
    EXPECT_EQ(startCount_, 1u);
    EXPECT_NE(startInstance_, nullptr);
    EXPECT_EQ(startInstance_, tavlo::platform::ThisModule());
}

TEST_F(LoadHook, FurtherAttachesCountButKeepTheFirstInstance) {
    EXPECT_EQ(ModuleLoadHook(Handle(0x1000), kProcessAttach), 1);
    EXPECT_EQ(ModuleAttachCount(), startCount_ + 1);
    EXPECT_EQ(ModuleInstance(), startInstance_);
    EXPECT_EQ(ModuleLoadHook(Handle(0x2000), kProcessAttach), 1);
    EXPECT_EQ(ModuleAttachCount(), startCount_ + 2);
    EXPECT_EQ(ModuleInstance(), startInstance_);

    EXPECT_EQ(ModuleLoadHook(Handle(0x2000), kProcessDetach), 1);
    EXPECT_EQ(ModuleLoadHook(Handle(0x1000), kProcessDetach), 1);
    EXPECT_EQ(ModuleAttachCount(), startCount_);
    EXPECT_EQ(ModuleInstance(), startInstance_);
}

TEST_F(LoadHook, FirstAttachStoresTheInstanceAndLastDetachClearsIt) {
    DetachAll();
    EXPECT_EQ(ModuleAttachCount(), 0u);

    struct Step {
        uintptr_t instance;
        unsigned long reason;
        unsigned int count;
        uintptr_t stored;
    };
    const Step steps[] = {
        {0xA000, kProcessAttach, 1, 0xA000},
        {0xB000, kProcessAttach, 2, 0xA000},
        {0xB000, 2, 2, 0xA000},  // thread attach
        {0xB000, 3, 2, 0xA000},  // thread detach
        {0xB000, 7, 2, 0xA000},  // unknown
        {0xB000, kProcessDetach, 1, 0xA000},
        {0xC000, kProcessDetach, 0, 0},
        {0xC000, 2, 0, 0},
        {0xC000, kProcessAttach, 1, 0xC000},  // attached anew: the new instance
        {0xD000, kProcessDetach, 0, 0},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(::testing::Message() << std::hex << step.instance << " reason "
                                          << step.reason);
        EXPECT_EQ(ModuleLoadHook(Handle(step.instance), step.reason), 1);
        EXPECT_EQ(ModuleAttachCount(), step.count);
        EXPECT_EQ(ModuleInstance(), Handle(step.stored));
    }
}

TEST_F(LoadHook, NoModuleFileNameWhileNotAttached) {
    DetachAll();
    char name[64];
    std::memset(name, 'x', sizeof name);
    EXPECT_EQ(TAVLOMSGETMODULEPARAMETERS(name, sizeof name, nullptr, 0, 250), 1);
    EXPECT_EQ(name[0], 'x');
}

// ---- The version question ---------------------------------------------------

TEST(ModuleParameters, AcceptCallersUpToVersion250) {
    struct Case {
        int callerVersion;
        int result;
    };
    const Case cases[] = {
        {INT_MIN, 1}, {-1, 1}, {0, 1}, {100, 1}, {249, 1},
        {250, 1},     {251, 0}, {253, 0}, {1000, 0}, {INT_MAX, 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(TAVLOMSGETMODULEPARAMETERS(nullptr, 0, nullptr, 0, c.callerVersion), c.result)
            << c.callerVersion;
        EXPECT_EQ(TAVLOMSGETMODULEPARAMETERS(nullptr, 100, nullptr, 100, c.callerVersion), c.result)
            << c.callerVersion;
    }
}

TEST(ModuleParameters, CopyTheVersionTextCutAndUnterminatedWhenTooLong) {
    const std::string version = "Tavloms Version 2.53";
    struct Case {
        int size;
        size_t copied;     // characters of the text written
        bool terminated;   // a zero written behind them
    };
    const Case cases[] = {
        {40, 20, true}, {22, 20, true},                   // room for the zero
        {21, 20, false},                                  // the caller's zero ends it
        {20, 19, false}, {8, 7, false}, {2, 1, false},    // cut, no zero
        {1, 0, false},  {0, 0, false}, {-1, 0, false}, {INT_MIN, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size);
        std::vector<char> buffer(48, 'x');
        buffer.back() = '\0';
        // The result does not depend on the buffers.
        EXPECT_EQ(TAVLOMSGETMODULEPARAMETERS(nullptr, 0, buffer.data(), c.size, 250), 1);
        EXPECT_EQ(std::string(buffer.data(), c.copied), version.substr(0, c.copied));
        size_t untouched = c.copied;
        if (c.terminated) {
            EXPECT_EQ(buffer[c.copied], '\0');
            untouched = static_cast<size_t>(c.size) - 1;  // at most size - 1 bytes written
        }
        for (size_t i = untouched; i + 1 < buffer.size(); ++i) {
            EXPECT_EQ(buffer[i], 'x') << "byte " << i;
        }
    }
}

TEST(ModuleParameters, WriteTheModuleFileNameAsAFullPathThatExists) {
    char name[4096];
    std::memset(name, 'x', sizeof name);
    EXPECT_EQ(TAVLOMSGETMODULEPARAMETERS(name, sizeof name, nullptr, 0, 250), 1);
    ASSERT_NE(std::memchr(name, '\0', sizeof name), nullptr);
    EXPECT_TRUE(std::filesystem::path(name).is_absolute()) << name;
    EXPECT_EQ(tavlo::platform::FullPath(name), name);
    struct stat status;
    EXPECT_EQ(stat(name, &status), 0) << name;
    // The tests link the library statically, so its code lives in this program.
    EXPECT_EQ(name, ModuleFileNameOfThisProgram());
}

TEST(ModuleParameters, CutTheModuleFileNameOneShorterThanTheBuffer) {
    const std::string full = ModuleFileNameOfThisProgram();
    ASSERT_GT(full.size(), 8u);
    struct Case {
        int size;
        int written;  // characters written, -1 for nothing at all
    };
    const Case cases[] = {
        {8, 6}, {6, 4}, {3, 1}, {2, 0}, {1, -1}, {0, -1}, {-1, -1}, {INT_MIN, -1},
        {static_cast<int>(full.size()) + 2, static_cast<int>(full.size())},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size);
        std::string buffer(full.size() + 8, 'x');
        char version[4] = "xxx";
        EXPECT_EQ(TAVLOMSGETMODULEPARAMETERS(&buffer[0], c.size, version, 0, 251), 0);
        EXPECT_STREQ(version, "xxx");
        if (c.written < 0) {
            EXPECT_EQ(buffer, std::string(full.size() + 8, 'x'));
            continue;
        }
        const size_t written = static_cast<size_t>(c.written);
        EXPECT_EQ(buffer.substr(0, written), full.substr(0, written));
        EXPECT_EQ(buffer[written], '\0');
        EXPECT_EQ(buffer.find_first_not_of('x', written + 1), std::string::npos);
    }
}

// ---- Database names ---------------------------------------------------------

TEST(SplitQualifiedName, SplitsInPlaceAtTheFirstDoubleColon) {
    struct Case {
        const char* text;
        bool split;
        const char* dbName;
        const char* objName;  // null when not split
        size_t cut;           // where the zero goes in
    };
    const Case cases[] = {
        {"Net::Speed", true, "Net", "Speed", 3},
        {"a::b::c", true, "a", "b::c", 1},
        {"::x", true, "", "x", 0},
        {"Net::", true, "Net", "", 3},
        {"a:::b", true, "a", ":b", 1},
        {"::", true, "", "", 0},
        {"Net", false, "Net", nullptr, 0},
        {"", false, "", nullptr, 0},
        {"Net_1.dbc", false, "Net_1.dbc", nullptr, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::vector<char> text(c.text, c.text + std::strlen(c.text) + 1);
        const char* dbName = "unset";
        const char* objName = "unset";
        EXPECT_EQ(TAVLOSPLITQUALIFIEDNAME(text.data(), &dbName, &objName), c.split);
        EXPECT_EQ(dbName, text.data());
        EXPECT_STREQ(dbName, c.dbName);
        if (c.split) {
            EXPECT_EQ(text[c.cut], '\0');
            EXPECT_EQ(text[c.cut + 1], ':');  // the second colon stays
            ASSERT_NE(objName, nullptr);
            EXPECT_EQ(objName, text.data() + c.cut + 2);
            EXPECT_STREQ(objName, c.objName);
        } else {
            EXPECT_EQ(objName, nullptr);
            EXPECT_EQ(std::string(text.data()), c.text);  // left as it was
        }
    }
}

TEST(SplitQualifiedNameDeathTest, BothOutPointersMustBeGiven) {
    char text[] = "Net::Speed";
    const char* name = nullptr;
    EXPECT_DEATH(TAVLOSPLITQUALIFIEDNAME(text, nullptr, &name),
                 "Assertion failed: dbName != NULL, module tavloms, line ");
    EXPECT_DEATH(TAVLOSPLITQUALIFIEDNAME(text, &name, nullptr),
                 "Assertion failed: objName != NULL, module tavloms, line ");
}

TEST(VerifyDatabaseName, LettersDigitsAndUnderscoreUpTo32NotStartingWithADigit) {
    const std::string letters32(32, 'n');
    const std::string letters33(33, 'n');
    const std::string underscore32 = "_" + std::string(30, '9') + "Z";
    struct Case {
        std::string name;
        bool valid;
    };
    const Case cases[] = {
        {"_x1", true},
        {"A", true},
        {"_", true},
        {"z", true},
        {"Net_2", true},
        {"CAN_Body_Network", true},
        {letters32, true},
        {underscore32, true},
        {letters33, false},
        {"1abc", false},
        {"9", false},
        {"", false},
        {"a-b", false},
        {"a b", false},
        {" ab", false},
        {"ab ", false},
        {"a:b", false},
        {"a.b", false},
        {"a\tb", false},
        {"Net\xE4", false},  // letters of other alphabets do not count
        {"\xC4net", false},
        {"a@", false},
        {"a[", false},  // the characters next to the letters and digits
        {"a`", false},
        {"a{", false},
        {"a/", false},
        {"@a", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(TAVLOVERIFYDATABASENAME(c.name.c_str()), c.valid) << '"' << c.name << '"';
    }
    EXPECT_FALSE(TAVLOVERIFYDATABASENAME(nullptr));
}

// ---- The "None" records -----------------------------------------------------

// The bytes a "None" record must hold: zeros, and "None" where the name is.
std::vector<unsigned char> NoneImage(size_t size, size_t nameOffset) {
    std::vector<unsigned char> image(size, 0);
    std::memcpy(image.data() + nameOffset, "None", 4);
    return image;
}

template <class Record>
std::vector<unsigned char> BytesOf(const Record* record) {
    std::vector<unsigned char> bytes(sizeof(Record));
    std::memcpy(bytes.data(), record, sizeof(Record));
    return bytes;
}

TEST(NoneRecords, HoldTheNameNoneAndZerosElsewhere) {
    const cat* category = TAVLONONEFILTERCATEGORY();
    const symblk* node = TAVLONONEFILTERNODE();
    const sigblk* signal = TAVLONONESUBSIGNAL();
    ASSERT_NE(category, nullptr);
    ASSERT_NE(node, nullptr);
    ASSERT_NE(signal, nullptr);

    EXPECT_STREQ(category->name, "None");
    EXPECT_STREQ(node->name, "None");
    EXPECT_STREQ(signal->name, "None");
    EXPECT_EQ(BytesOf(category), NoneImage(sizeof(cat), offsetof(cat, name)));
    EXPECT_EQ(BytesOf(node), NoneImage(sizeof(symblk), offsetof(symblk, name)));
    EXPECT_EQ(BytesOf(signal), NoneImage(sizeof(sigblk), offsetof(sigblk, name)));
    EXPECT_EQ(+category->next, nullptr);
    EXPECT_EQ(+node->next, nullptr);
    EXPECT_EQ(+signal->factor, 0.0);
}

TEST(NoneRecords, AreTheSameRecordOnEveryCall) {
    EXPECT_EQ(TAVLONONEFILTERCATEGORY(), TAVLONONEFILTERCATEGORY());
    EXPECT_EQ(TAVLONONEFILTERNODE(), TAVLONONEFILTERNODE());
    EXPECT_EQ(TAVLONONESUBSIGNAL(), TAVLONONESUBSIGNAL());
    EXPECT_NE(static_cast<const void*>(TAVLONONEFILTERCATEGORY()),
              static_cast<const void*>(TAVLONONEFILTERNODE()));
}

// ---- File status ------------------------------------------------------------

TEST(FileStatus, ReadOnlyWhenTheOwnerMayNotWrite) {
    // The owner's write bit decides, even where root may write regardless.
    const std::string path = TempName(".dbc");
    std::FILE* file = std::fopen(path.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);

    struct Case {
        mode_t mode;
        unsigned int status;
    };
    const Case cases[] = {
        {0644, tavlo::manager::kFileWritable},
        {0200, tavlo::manager::kFileWritable},
        {0444, tavlo::manager::kFileReadOnly},
        {0577, tavlo::manager::kFileReadOnly},  // others may write; the owner may not
        {0000, tavlo::manager::kFileReadOnly},
        {0600, tavlo::manager::kFileWritable},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(chmod(path.c_str(), c.mode), 0);
        EXPECT_EQ(GetFileStatus(path.c_str()), c.status) << std::oct << c.mode;
    }
    EXPECT_EQ(std::remove(path.c_str()), 0);
    EXPECT_EQ(GetFileStatus(path.c_str()), tavlo::manager::kFileMissing);
}

TEST(FileStatus, MissingWhenTheStatusCannotBeRead) {
    EXPECT_EQ(tavlo::manager::kFileWritable, 0u);
    EXPECT_EQ(tavlo::manager::kFileMissing, 2u);
    EXPECT_EQ(tavlo::manager::kFileReadOnly, 8u);
    EXPECT_EQ(GetFileStatus(TempName(".missing").c_str()), 2u);
    EXPECT_EQ(GetFileStatus(""), 2u);
    EXPECT_EQ(GetFileStatus((TempName(".missing") + "/net.dbc").c_str()), 2u);
}

TEST(FileStatusDeathTest, ThePathMustBeGiven) {
    EXPECT_DEATH(GetFileStatus(nullptr), "Assertion failed: path != NULL, module tavloms, line ");
}

// ---- Shared texts and the notification message -----------------------------

TEST(SharedTexts, NameTheNotificationMessageAndTheDatabaseNameAttribute) {
    EXPECT_STREQ(TAVLONOTIFICATIONMESSAGESTRING, "TavloMessageNotification");
    EXPECT_STREQ(TAVLODATABASENAMEATTRIBUTE, "DBName");
}

TEST(NotificationMessage, IsTheMessageRegisteredUnderItsName) {
    const unsigned int number = tavlo::manager::NotificationMessage();
    EXPECT_GE(number, 0xC000u);
    EXPECT_LE(number, 0xFFFFu);
    EXPECT_EQ(TAVLO_REGISTER_WINDOW_MESSAGE("TavloMessageNotification"), number);
    EXPECT_EQ(TAVLO_REGISTER_WINDOW_MESSAGE("TAVLOMESSAGENOTIFICATION"), number);
    EXPECT_NE(TAVLO_REGISTER_WINDOW_MESSAGE("TavloMessageNotification2"), number);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(tavlo::manager::NotificationMessage(), number);
    }
}

}  // namespace
