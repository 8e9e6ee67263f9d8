// tests/tools/case_test.cpp: runs the tavlo command's test cases, one test
// per file of tests/tools/cases (see its README.md for the format): a
// command line, input files, and the expected exit status, standard output,
// standard error and written files, each compared byte for byte.
// With TAVLO_BLESS set in the environment the expectations are rewritten
// from what the command does instead: for writing a new case, then reading it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/read_database.h"
#include "tools/run_tavlo.h"

namespace tavlo::test {
namespace {

namespace fs = std::filesystem;

const std::string kCases = TAVLOMS_TOOL_CASES_DIR;

// A "--- KIND [NAME] [FLAG...] [< PATH]" line and the bytes below it.
struct Section {
    std::string kind;  // stdout, stderr, file, input
    std::string name;  // of a file or input
    std::set<std::string> flags;
    std::string from;  // the content's file, when not below the line
    std::string content;
};

struct Case {
    std::vector<std::string> header;  // the lines above the sections, as they are
    std::vector<std::pair<std::size_t, std::string>> runs;  // line number, arguments
    int status = 0;
    bool needsJson = false;
    bool inTmp = false;  // the runs start in the case's directory
    std::vector<Section> sections;
};

std::vector<std::string> Words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

Case Parse(const std::string& text) {
    Case c;
    std::size_t number = 0;
    for (std::size_t at = 0, end = 0; at < text.size(); at = end, ++number) {
        end = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::string raw = text.substr(at, end - at);  // with its line end
        const std::string line = raw.substr(0, raw.find('\n'));
        const std::vector<std::string> words = Words(line);
        if (line.rfind("--- ", 0) == 0) {
            Section& s = c.sections.emplace_back();
            s.kind = words.at(1);
            std::size_t w = s.kind == "file" || s.kind == "input" ? 3 : 2;
            s.name = w == 3 ? words.at(2) : "";
            for (; w < words.size() && words[w] != "<"; ++w) {
                s.flags.insert(words[w]);
            }
            s.from = w + 1 < words.size() ? words[w + 1] : "";
        } else if (!c.sections.empty()) {
            c.sections.back().content += raw;
        } else {
            c.header.push_back(line);
            if (line.rfind("$ tavlo", 0) == 0) {
                c.runs.emplace_back(number + 1, line.substr(7));
            } else if (!words.empty() && words[0] == "status") {
                c.status = std::stoi(words.at(1));
            } else if (line == "needs json") {
                c.needsJson = true;
            } else if (line == "in @TMP@") {
                c.inTmp = true;
            } else if (!words.empty() && line[0] != '#') {
                ADD_FAILURE() << "line " << number + 1 << ": what is \"" << line << "\"?";
            }
        }
    }
    return c;
}

#ifndef TAVLOMS_JSON_MODULE
#define TAVLOMS_JSON_MODULE "(no JSON module)"
#endif

// The placeholders, in the order they are put back when blessing: paths
// (one inside another after it), then the modules' file suffix, which is
// too short to be told from other text and is not put back.
std::vector<std::pair<std::string, std::string>> Places(const std::string& tmp) {
    return {{"@TMP@", tmp},
            {"@JSON_MODULE@", TAVLOMS_JSON_MODULE},
            {"@CORPUS@", TAVLOMS_CORPUS_DIR},
            {"@MANAGER@", TAVLOMS_MANAGER_DATA_DIR},
            {"@EXAMPLES@", TAVLOMS_EXAMPLES_DIR},
            {"@DATA@", TAVLOMS_TOOL_DATA_DIR},
            {"@SO@", TAVLOMS_MODULE_SUFFIX}};
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
    return text;
}

std::string Expand(std::string text, const std::string& tmp) {
    for (const auto& [mark, path] : Places(tmp)) {
        text = Replaced(text, mark, path);
    }
    return text;
}

// What the case expects of a section: its text, or its file's, with the
// placeholders filled in. A text written in the system's text mode (flag
// "text") has its lines ended by CR LF on Windows.
std::string Expected(const Section& s, const std::string& tmp) {
    std::string text = Expand(s.from.empty() ? s.content : FileBytes(Expand(s.from, tmp)), tmp);
#if defined(_WIN32)
    if (s.flags.count("text") != 0) {
        text = Replaced(text, "\n", "\r\n");
    }
#endif
    return text;
}

// Where two texts part: the first differing line of each.
std::string Difference(const std::string& actual, const std::string& expected) {
    const auto split = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    const std::size_t at = static_cast<std::size_t>(split.first - actual.begin());
    const std::size_t start = at == 0 ? 0 : actual.rfind('\n', at - 1) + 1;
    const auto lineAt = [start](const std::string& text) {
        return text.size() <= start ? std::string("(the end)")
                                    : "\"" + text.substr(start, text.find('\n', start) - start) + "\"";
    };
    return "line " + std::to_string(std::count(actual.begin(), split.first, '\n') + 1) + ": " +
           lineAt(actual) + ", expected " + lineAt(expected);
}

// The command line of a run: every word is one argument, placeholders
// filled in; a word "<" takes standard input from the file that follows
// (named with the system's separators: cmd.exe wants '\\').
std::string Arguments(const std::string& run, const std::string& tmp) {
    std::string line;
    const std::vector<std::string> words = Words(run);
    for (std::size_t i = 0; i < words.size(); ++i) {
        line += words[i] == "<" && i + 1 < words.size()
                    ? " < " + fs::path(Expand(words[++i], tmp)).make_preferred().string()
                    : " " + ShellQuoted(Expand(words[i], tmp));
    }
    return line;
}

// The case's text with the sections' contents as they are now; the files
// of sections taken from the tool tests' own data are written too.
std::string Text(const Case& c, int status, std::vector<Section> sections, const std::string& tmp) {
    std::string text;
    for (const std::string& line : c.header) {
        text += line.rfind("status", 0) == 0 ? "" : line + "\n";
    }
    text += status != 0 ? "status " + std::to_string(status) + "\n" : "";
    const auto places = Places(tmp);
    for (Section& s : sections) {
        for (auto place = places.begin(); s.kind != "input" && place + 1 != places.end(); ++place) {
            s.content = Replaced(s.content, place->second, place->first);
        }
        if (s.content.empty() && s.flags.empty() && s.kind.rfind("std", 0) == 0) {
            continue;
        }
        text += "--- " + s.kind + (s.name.empty() ? "" : " " + s.name);
        for (const std::string& flag : s.flags) {
            text += " " + flag;
        }
        if (s.from.rfind("@DATA@/", 0) == 0 && s.kind != "input" && s.flags.count("any") == 0) {
            std::ofstream(Expand(s.from, tmp), std::ios::binary) << s.content;
        }
        text += s.from.empty() ? "\n" + s.content : " < " + s.from + "\n";
    }
    return text;
}

class Tavlo : public testing::TestWithParam<std::string> {};

TEST_P(Tavlo, Case) {
    const std::string path = kCases + "/" + GetParam() + ".case";
    const Case c = Parse(FileBytes(path));
    if (c.needsJson) {
#ifndef TAVLOMS_HAVE_JSON_MODULE
        GTEST_SKIP() << "built without the JSON module";
#endif
    }
    ASSERT_FALSE(c.runs.empty()) << path << ": no \"$ tavlo\" line";
    const fs::path tmp = TestFilePath(".d");  // of this process and case
    fs::create_directories(tmp);
    for (const Section& s : c.sections) {
        if (s.kind == "input") {
            std::ofstream(tmp / s.name, std::ios::binary) << Expected(s, tmp.string());
        }
        if (s.flags.count("readonly") != 0) {
            fs::permissions(tmp / s.name, fs::perms::owner_write | fs::perms::group_write |
                            fs::perms::others_write, fs::perm_options::remove);
        }
    }
    Outcome run{};
    for (const auto& [line, arguments] : c.runs) {
        run = tavlo::test::Tavlo(Arguments(arguments, tmp.string()), c.inTmp ? tmp.string() : "");
        if (line != c.runs.back().first) {  // a step before the case: it must succeed
            EXPECT_EQ(run.status, 0) << path << ":" << line << "\n" << run.err;
        }
    }
    // Compared: both outputs, each file the case names (an input it does not
    // name again stays as it was), and any other file left, which should not be.
    std::vector<Section> sections = c.sections;
    const auto named = [&sections](const std::string& kind, const std::string& name) {
        return std::count_if(sections.begin(), sections.end(), [&](const Section& s) {
            return (kind.empty() || s.kind == kind) && s.name == name;
        });
    };
    for (const char* stream : {"stdout", "stderr"}) {
        if (named(stream, "") == 0) {
            sections.emplace_back().kind = stream;
        }
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(tmp)) {
        const std::string name = entry.path().filename().string();
        if (named("", name) == 0) {
            sections.emplace_back().kind = "file";
            sections.back().name = name;
        }
        fs::permissions(entry.path(), fs::perms::owner_write, fs::perm_options::add);
    }
    const std::string where = path + ":" + std::to_string(c.runs.back().first);
    const bool bless = std::getenv("TAVLO_BLESS") != nullptr;
    for (Section& s : sections) {
        if (s.flags.count("any") != 0 || (s.kind == "input" && (bless || named("", s.name) > 1))) {
            continue;
        }
        const std::string actual = s.kind == "stdout"   ? run.out
                                   : s.kind == "stderr" ? run.err
                                                        : FileBytes((tmp / s.name).string());
        const std::string expected = Expected(s, tmp.string());
        s.content = bless ? actual : s.content;
        EXPECT_TRUE(bless || actual == expected)
            << where << ": " << s.kind << " " << s.name << " at " << Difference(actual, expected);
    }
    EXPECT_TRUE(bless || run.status == c.status) << where << ": status " << run.status << "\n" << run.err;
    if (bless) {
        std::ofstream(path, std::ios::binary) << Text(c, run.status, sections, tmp.string());
    }
    fs::remove_all(tmp);
}

// Every case file, by its name.
std::vector<std::string> CaseNames() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(kCases)) {
        if (entry.path().extension() == ".case") {
            names.push_back(entry.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(Cases, Tavlo, testing::ValuesIn(CaseNames()),
                         [](const testing::TestParamInfo<std::string>& info) { return info.param; });

}  // namespace
}  // namespace tavlo::test
