// tests/support/read_database.cpp
#include "support/read_database.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "support/message_capture.h"
#include "tavloms/dbfile.h"
#include "tavloms/exception.h"

namespace tavlo::test {

ReadOutcome ReadDatabase(const std::string& path, tavlo_root_t* root) {
    ReadOutcome outcome;
    MessageCapture capture;
    try {
        outcome.result = TAVLO_READ(path.c_str(), &root->nodes, &root->messages, &root->envvars, &root->bit_timings,
                                    &root->attr_defs, &root->db_attrs, &root->categories, &root->filter,
                                    &root->comment, &root->version, &root->sig_types, &root->value_tables);
    } catch (const TavloException&) {
        outcome.raised = true;
    }
    for (const ShownMessage& message : capture.messages()) {
        outcome.messages.push_back(message.text);
    }
    return outcome;
}

std::string TestName(const std::string& text) {
    std::string name;
    for (const char c : text) {
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    }
    return name;
}

std::string TestFilePath(const std::string& suffix) {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info != nullptr ? std::string(info->test_suite_name()) + "." + info->name() : "tavloms";
    for (char& c : name) {
        if (c == '/') {
            c = '_';
        }
    }
    return (std::filesystem::temp_directory_path() / (name + "." + std::to_string(getpid()) + suffix))
        .string();
}

ReadOutcome ReadText(const std::string& text, tavlo_root_t* root) {
    const std::string path = TestFilePath(".dbc");
    {
        std::ofstream out(path, std::ios::binary);
        out << text;
    }
    ReadOutcome outcome = ReadDatabase(path, root);
    std::remove(path.c_str());
    return outcome;
}

std::string FileContent(const std::string& path) {
    // In text mode: the library writes database files in the platform's text
    // mode, so on Windows their lines end in "\r\n", which reads back as "\n".
    std::ifstream in(path);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

unsigned int WriteDatabase(const std::string& path, const tavlo_root_t& root) {
    return TAVLO_WRITE(path.c_str(), root.nodes, root.messages, root.envvars, root.bit_timings, root.attr_defs,
                       root.db_attrs, root.categories, root.filter, root.comment, root.version, root.sig_types, root.value_tables);
}

}  // namespace tavlo::test
