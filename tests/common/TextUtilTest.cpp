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
    for (const char* name : {"pulse", "Sample 1.2", "パルス", "", "."})
        EXPECT_TRUE(CheckFileNamePart(name, "SampleNo").ok()) << name;
    const std::string refused[] = {"../up",     "..",     "a..b",      "sub/dir",
                                   "sub\\dir",  "C:name", "tab\tname", std::string("nul\0x", 5),
                                   "line\nend", "del\x7f"};
    for (const std::string& name : refused) {
        const Outcome o = CheckFileNamePart(name, "SampleNo");
        EXPECT_FALSE(o.ok()) << name;
        EXPECT_EQ(o.text().rfind("SampleNo \"", 0), 0u) << o.text();
    }
}

}  // namespace
}  // namespace mervasto
