// tests/manager/fixture.cpp
#include "manager/fixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tavlo::test {

std::string SmallDatabaseText(const SmallDatabase& content) {
    std::string text = "VERSION \"" + content.version + "\"\n\nNS_ :\n\nBS_:\n\nBU_: A B\n\n";
    text += "BO_ 100 Msg1: 8 A\n SG_ Sig1 : 0|8@1+ (1,0) [0|255] \"\" B\n\n";
    if (content.maxEnvvarHandle != 0) {
        text += "EV_ EnvLow: 0 [0|10] \"\" 0 1 DUMMY_NODE_CORVAN0 Corvan__XXX;\n";
        text += "EV_ EnvHigh: 0 [0|10] \"\" 0 " + std::to_string(content.maxEnvvarHandle) +
                " DUMMY_NODE_CORVAN0 Corvan__XXX;\n\n";
    }
    if (!content.dbName.empty()) {
        text += "BA_DEF_  \"DBName\" STRING ;\nBA_DEF_DEF_  \"DBName\" \"\";\n";
        text += "BA_ \"DBName\" \"" + content.dbName + "\";\n";
    }
    return text;
}

std::vector<CaseLine> ReadCases(const std::string& name) {
    std::ifstream in(DataFile(name));
    EXPECT_TRUE(in.is_open()) << name;
    std::vector<CaseLine> cases;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        std::istringstream words(line);
        CaseLine entry{number, {}};
        for (std::string word; words >> word;) {
            entry.fields.push_back(word);
        }
        if (!entry.fields.empty() && entry.fields[0][0] != '#') {
            cases.push_back(entry);
        }
    }
    return cases;
}

void LinkPowertrainFilterNodes(TavloDatabase& db) {
    auto* none = static_cast<rxblk*>(TAVLO_MALLOC(sizeof(rxblk)));
    auto* engine = static_cast<rxblk*>(TAVLO_MALLOC(sizeof(rxblk)));
    engine->symbol = db.GetNode("Engine");
    engine->next = none;
    db.mFilter.nodes = engine;
}

void ManagerTest::SetUp() {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(info->test_suite_name()) + "." + info->name();
    std::replace(name.begin(), name.end(), '/', '_');  // parameterized tests
    dir_ = (std::filesystem::temp_directory_path() /
            ("tavloms." + name + "." + std::to_string(getpid())))
               .string();
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
}

void ManagerTest::TearDown() {
    TavloDatabase::ReleaseCache();
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

std::string ManagerTest::WriteFile(const std::string& relative, const std::string& text) {
    const std::filesystem::path path = std::filesystem::path(dir_) / relative;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return path.string();
}

const char* ManagerTest::Open(TavloManager& mgr, const std::string& path, const char* name,
                              unsigned int priority) {
    const char* handle = nullptr;
    EXPECT_EQ(mgr.OpenDatabase(path.c_str(), &handle, name, priority), TAVLO_STATUS_OK) << path;
    return handle;
}

void ManagerTest::SetReadOnly(const std::string& path, bool readOnly) {
    ::chmod(path.c_str(), readOnly ? 0444 : 0644);
}

}  // namespace tavlo::test
