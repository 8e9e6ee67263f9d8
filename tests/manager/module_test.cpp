// tests/manager/module_test.cpp: the module frame: attach counting by the
// load hook, the version question, database names split and checked, the
// "None" records and file status.
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "manager/fixture.h"
#include "manager/frame.h"
#include "platform/platform.h"

namespace tavlo::test {
namespace {

void* Instance(std::uintptr_t value) {
    return reinterpret_cast<void*>(value);
}

TEST(LoadHook, FirstAttachStoresTheInstanceAndLastDetachClearsIt) {
    // The library attached itself once when it was loaded.
    ASSERT_EQ(manager::ModuleAttachCount(), 1u);
    void* const own = manager::ModuleInstance();
    EXPECT_EQ(own, platform::ThisModule());
    manager::ModuleLoadHook(nullptr, manager::kProcessDetach);
    const std::uintptr_t steps[][4] = {
        // instance, reason (1 attach, 0 detach, others nothing), count, stored
        {0xA000, 1, 1, 0xA000}, {0xB000, 1, 2, 0xA000}, {0xB000, 2, 2, 0xA000},
        {0xB000, 7, 2, 0xA000}, {0xB000, 0, 1, 0xA000}, {0xC000, 0, 0, 0},
        {0xC000, 3, 0, 0},      {0xC000, 1, 1, 0xC000}, {0xD000, 0, 0, 0}};
    for (const auto& [instance, reason, count, stored] : steps) {
        SCOPED_TRACE(::testing::Message() << std::hex << instance << " " << reason);
        EXPECT_EQ(manager::ModuleLoadHook(Instance(instance), static_cast<unsigned long>(reason)), 1);
        EXPECT_EQ(manager::ModuleAttachCount(), count);
        EXPECT_EQ(manager::ModuleInstance(), Instance(stored));
    }
    char name[64] = "unchanged";  // no module, no module file name
    EXPECT_EQ(TAVLOMSGETMODULEPARAMETERS(name, sizeof name, nullptr, 0, 250), 1);
    EXPECT_STREQ(name, "unchanged");
    manager::ModuleLoadHook(own, manager::kProcessAttach);
}

TEST(ModuleParameters, AcceptCallersUpTo250AndCopyTheTextsCutWithoutATerminator) {
    for (const int callerVersion : {INT_MIN, 0, 250, 251, INT_MAX}) {
        EXPECT_EQ(TAVLOMSGETMODULEPARAMETERS(nullptr, 100, nullptr, 100, callerVersion),
                  callerVersion <= 250 ? 1 : 0);
    }
    // The library is linked into this program, so the module file name is its own.
    char own[4096];
    platform::ModuleFileName(platform::ThisModule(), own, sizeof own);
    const std::string file = own;
    EXPECT_EQ(platform::FullPath(file.c_str()), file);
    const std::string version = "Tavloms Version 2.53";
    for (const int size : {static_cast<int>(file.size()) + 2, 22, 21, 20, 8, 2, 1, 0, INT_MIN}) {
        SCOPED_TRACE(size);
        std::string name(file.size() + 8, 'x');
        std::string text = name;
        EXPECT_EQ(TAVLOMSGETMODULEPARAMETERS(&name[0], size, &text[0], size, 251), 0);
        // At most size - 1 bytes: the caller's buffer ends in a zero already.
        const std::size_t room = size > 1 ? static_cast<std::size_t>(size) - 1 : 0;
        const std::size_t copied = std::min(room, version.size());
        EXPECT_EQ(text.substr(0, copied), version.substr(0, copied));
        EXPECT_EQ(text.find_first_not_of('x', room), std::string::npos);
        EXPECT_TRUE(room <= version.size() || text[copied] == '\0');
        const std::size_t named = room > 0 ? std::min(room - 1, file.size()) : 0;
        EXPECT_EQ(name.substr(0, named), file.substr(0, named));
        EXPECT_EQ(name.find_first_not_of('x', room), std::string::npos);
        EXPECT_TRUE(room == 0 || name[named] == '\0');
    }
}

TEST(DatabaseNames, SplitInPlaceAtTheFirstDoubleColon) {
    // Text, database name, object name (null: not split).
    const char* const cases[][3] = {{"Net::Speed", "Net", "Speed"}, {"a::b::c", "a", "b::c"},
                                    {"::x", "", "x"},               {"a:::b", "a", ":b"},
                                    {"::", "", ""},                 {"Net", "Net", nullptr},
                                    {"Net_1.dbc", "Net_1.dbc", nullptr}, {"", "", nullptr}};
    for (const auto& [qualified, dbPart, objPart] : cases) {
        SCOPED_TRACE(qualified);
        std::vector<char> text(qualified, qualified + std::strlen(qualified) + 1);
        const char* dbName = "unset";
        const char* objName = "unset";
        EXPECT_EQ(TAVLOSPLITQUALIFIEDNAME(text.data(), &dbName, &objName), objPart != nullptr);
        EXPECT_EQ(dbName, text.data());
        EXPECT_STREQ(dbName, dbPart);
        const std::size_t cut = std::strlen(dbPart);
        EXPECT_EQ(objName, objPart != nullptr ? text.data() + cut + 2 : nullptr);
        EXPECT_TRUE(objPart == nullptr || text[cut + 1] == ':');  // the second colon stays
        EXPECT_STREQ(objName, objPart);
    }
}

TEST(DatabaseNames, LettersDigitsAndUnderscoreUpTo32NotStartingWithADigit) {
    const std::pair<std::string, bool> cases[] = {
        {"_x1", true},  {"A", true},   {"z", true},        {"Net_2", true},
        {std::string(32, 'n'), true},  {"_" + std::string(31, '9'), true},
        {std::string(33, 'n'), false}, {"1abc", false},    {"", false},
        {"a b", false}, {"a:b", false}, {"Net\xE4", false}, {"\xC4net", false},
        // The characters next to the letters, the digits and the underscore.
        {"a@", false},  {"a[", false}, {"a`", false},      {"a{", false},
        {"a/", false},  {"@a", false}, {"[a", false},      {"`a", false}};
    for (const auto& [name, valid] : cases) {
        EXPECT_EQ(TAVLOVERIFYDATABASENAME(name.c_str()), valid) << '"' << name << '"';
    }
    EXPECT_FALSE(TAVLOVERIFYDATABASENAME(nullptr));
}

// The bytes of a record: zeros, and "None" where its name is.
template <class Record>
void ExpectNoneRecord(const Record* record, std::size_t nameOffset) {
    std::vector<unsigned char> expected(sizeof(Record), 0);
    std::memcpy(expected.data() + nameOffset, "None", 4);
    const auto* bytes = reinterpret_cast<const unsigned char*>(record);
    EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + sizeof(Record)), expected);
}

TEST(NoneRecords, HoldTheNameNoneAndZerosElsewhere) {
    ExpectNoneRecord(TAVLONONEFILTERCATEGORY(), offsetof(cat, name));
    ExpectNoneRecord(TAVLONONEFILTERNODE(), offsetof(symblk, name));
    ExpectNoneRecord(TAVLONONESUBSIGNAL(), offsetof(sigblk, name));
}

class FileStatusTest : public ManagerTest {};

TEST_F(FileStatusTest, ReadOnlyWhenTheOwnerMayNotWriteMissingWhenUnreadable) {
    const std::string path = WriteFile("net.dbc", "");
    // The owner's write bit decides, even where root may write regardless.
    const std::pair<mode_t, unsigned int> cases[] = {  // 0577: others may write, the owner not
        {0644, manager::kFileWritable}, {0200, manager::kFileWritable},
        {0444, manager::kFileReadOnly}, {0577, manager::kFileReadOnly}};
    for (const auto& [mode, status] : cases) {
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        EXPECT_EQ(manager::GetFileStatus(path.c_str()), status) << std::oct << mode;
    }
    EXPECT_EQ(manager::GetFileStatus((dir_ + "/missing/net.dbc").c_str()), manager::kFileMissing);
    EXPECT_EQ(manager::GetFileStatus(""), manager::kFileMissing);
}

}  // namespace
}  // namespace tavlo::test
