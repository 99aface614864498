#include "Harness.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace {

/// GoogleTest's own printer, which was there first, has told by now what failed.
class EndOnFailure : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult &result) override {
        if (result.failed()) {
            std::fflush(stdout);
            std::fprintf(stderr, "%s:%d: %s\n", result.file_name() != nullptr ? result.file_name() : "",
                         result.line_number(), result.message());
            std::abort();
        }
    }
};

} // namespace

void fuzz::found(const char *file, int line, const char *condition, const std::string &detail) {
    std::fprintf(stderr, "%s:%d: not so: %s\n  %s\n", file, line, condition, detail.c_str());
    std::abort();
}

void fuzz::failOnAssertions() {
    testing::UnitTest::GetInstance()->listeners().Append(new EndOnFailure); // owned by the list
}
