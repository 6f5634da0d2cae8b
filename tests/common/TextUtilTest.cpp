#include <gtest/gtest.h>

#include "common/RuntimeError.h"
#include "common/TextUtil.h"

namespace mervasto {
namespace {

TEST(TextUtilBounds, AThousandFieldsAndNoMore) {
    const std::string most(kMaxFields - 1, ',');
    EXPECT_EQ(SplitFields(most).size(), kMaxFields);
    std::vector<std::string> table{"kept"};
    EXPECT_EQ(SplitFieldsInto(most, table), kMaxFields);

    const std::string tooMany(kMaxFields, ',');
    EXPECT_THROW(SplitFields(tooMany), RuntimeError);
    std::vector<std::string> untouched{"a", "b"};
    EXPECT_THROW(SplitFieldsInto(tooMany, untouched), RuntimeError);
    EXPECT_EQ(untouched, (std::vector<std::string>{"a", "b"}));
}

TEST(TextUtilNames, NamesThatCouldLeaveTheirFolderAreRefused) {
    struct Case {
        std::string name;
        bool ok;
    };
    const Case cases[] = {
        {"pulse", true},
        {"Sample 1.2", true},
        {"パルス", true},
        {"", true},
        {".", true},
        {"../up", false},
        {"..", false},
        {"a..b", false},
        {"sub/dir", false},
        {"sub\\dir", false},
        {"C:name", false},
        {"tab\tname", false},
        {std::string("nul\0x", 5), false},
        {"line\nend", false},
        {"del\x7f", false},
    };
    for (const auto& c : cases) {
        const Outcome o = CheckFileNamePart(c.name, "SampleNo");
        EXPECT_EQ(o.ok(), c.ok) << c.name;
        if (!c.ok) {
            EXPECT_EQ(o.text().rfind("SampleNo \"", 0), 0u) << o.text();
        }
    }
}

}  // namespace
}  // namespace mervasto
