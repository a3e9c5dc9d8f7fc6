// The platform calls that a measured operation makes through the library, those that are made by
// hand for comparison, and those that its row says.
#include "operations.h"

#include <describe.h>
#include <platform.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <dlfcn.h>

namespace
{

using Names = std::vector<std::string>;

Names made;

template <class Function, auto... which>
Function *noted(const char *name)
{
    static const auto bare = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
    made.emplace_back(name);
    return bare;
}

} // namespace

// These stand before those of the bare platform.
extern "C" {

#define NOTED(library, kind, returns, function, ...)                                               \
    PLATFORM_DEFINE((noted<decltype(function), &function>(#function)), function, __VA_ARGS__)
LIBRARY_FUNCTIONS(NOTED)

int kv_log(int, int, const char *, const char *, int, const char *, ...)
{
    made.emplace_back("kv_log");
    return 0;
}

int settimeofday(const timeval *time, const struct timezone *zone) noexcept
{
    return noted<int(const timeval *, const struct timezone *)>("settimeofday")(time, zone);
}

int gettimeofday(timeval *time, void *zone) noexcept
{
    return noted<int(timeval *, void *)>("gettimeofday")(time, zone);
}
}

namespace
{

Names callsOf(void (*run)())
{
    made.clear();
    run();
    return made;
}

// Whether these calls are those of a case of the row, on groups with and without links, on one or
// on all of them.
bool isCaseOf(const describe::Operation &row, Names calls)
{
    constexpr uint32_t LINKS = 8, GROUPS = 8;
    std::erase(calls, "kv_log");
    for (const uint32_t links : {0U, LINKS})
        for (const describe::Case &each : casesOf(row, links))
            for (const uint32_t groups : {1U, GROUPS}) {
                Names expected;
                for (uint32_t group = 0; group < groups; ++group)
                    expected.insert(expected.end(), each.calls.begin(), each.calls.end());
                std::erase(expected, "kv_log");
                if (calls == expected)
                    return true;
            }
    return false;
}

TEST(AMeasuredOperation, MakesTheCallsOfItsRowThroughTheLibraryAndByHand)
{
    bench::setUp();
    for (const bench::Operation &operation : bench::operations()) {
        const std::string name = nameOf(operation);
        const auto *row = describe::find("vexo_cmi_" + std::string{operation.name});
        ASSERT_NE(row, nullptr) << name << " has no row in describe/operations.cpp";
        operation.library(); // the first keep-alive of all is due
        const Names byLibrary = callsOf(operation.library);
        EXPECT_EQ(callsOf(operation.bare.run), byLibrary)
            << name << ": by hand, bench/operations.cpp makes other calls than the library";
        EXPECT_TRUE(isCaseOf(*row, byLibrary))
            << name << " makes " << testing::PrintToString(byLibrary)
            << ", and no case of its row in describe/operations.cpp does";
    }
}

} // namespace
