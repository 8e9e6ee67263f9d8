// The generated benchmark database (bench/generated_database.h) read back:
// the kinds of line it makes arrive in the records, so that the benchmarks
// and the fuzz seeds exercise what they claim to, and the writer gives back
// the very same text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "generated_database.h"
#include "support/read_database.h"
#include "tavloms/tavloms.h"

namespace {

template <class T>
unsigned int Count(const T* list) {
    unsigned int count = 0;
    for (; list != nullptr; list = list->next) {
        ++count;
    }
    return count;
}

TEST(GeneratedDatabase, ReadsWithEveryKindOfLineAndWritesBackTheSameText) {
    constexpr unsigned int kMessages = 300;
    const std::string text = tavloms_bench::GenerateDatabaseText(kMessages);
    tavlo_root_t root = {};
    const tavlo::test::ReadOutcome outcome = tavlo::test::ReadText(text, &root);
    EXPECT_FALSE(outcome.raised);
    EXPECT_EQ(outcome.messages, std::vector<std::string>{});
    EXPECT_EQ(Count(root.messages), kMessages);
    unsigned int extended = 0;
    unsigned int modes = 0;
    unsigned int multiplexed = 0;
    unsigned int transmitters = 0;
    for (const msgblk* m = root.messages; m != nullptr; m = m->next) {
        EXPECT_EQ(Count(m->signals), tavloms_bench::kGeneratedSignalsPerMessage) << m->name;
        extended += (m->id & 0x80000000u) != 0;
        transmitters += m->transmitters != nullptr;
        for (const sigblk* s = m->signals; s != nullptr; s = s->next) {
            modes += (s->flags & TAVLO_SIG_MODE) != 0;
            multiplexed += (s->flags & TAVLO_SIG_MULTIPLEXED) != 0;
        }
    }
    EXPECT_EQ(extended, kMessages / 5);
    EXPECT_GT(modes, 0u);
    EXPECT_GT(multiplexed, 0u);
    EXPECT_GT(transmitters, 0u);
    EXPECT_EQ(Count(root.nodes), 6u);
    EXPECT_EQ(Count(root.value_tables), 4u);
    EXPECT_EQ(Count(root.attr_defs), 21u);
    EXPECT_EQ(Count(root.db_attrs), 4u);
    ASSERT_NE(root.messages, nullptr);
    const sigblk* speed = root.messages->signals;
    EXPECT_STREQ(speed->comment, "Raw Speed value,\nsee the \"km/h\" chapter.");
    EXPECT_NE(+speed->attributes, nullptr);
    EXPECT_EQ(Count(speed->next->next->value_descriptions), 4u);
    EXPECT_EQ(Count(speed->next->next->receivers), 2u);

    const std::string path = tavlo::test::TestFilePath(".dbc");
    ASSERT_EQ(tavlo::test::WriteDatabase(path, root), 0u);
    const std::string written = tavlo::test::FileContent(path);
    std::remove(path.c_str());
    TAVLO_FREE_ROOT(&root);
    ASSERT_EQ(written.size(), text.size());
    EXPECT_TRUE(written == text) << "first difference at byte "
                                 << std::mismatch(written.begin(), written.end(), text.begin()).first -
                                        written.begin();
}

}  // namespace
