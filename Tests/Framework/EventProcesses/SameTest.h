/// @file
/// The running test once more, in a process of another kind: another user's, or one with queues of its own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace test {

/// The command that runs the test, and no other, in this program.
inline std::vector<std::string> sameTest() {
    const testing::TestInfo &test = *testing::UnitTest::GetInstance()->current_test_info();
    return {THIS_PROGRAM, "--gtest_filter=" + std::string(test.test_suite_name()) + "." + test.name()};
}

/// @param program  that command's, which has ended or is waited for; a ChildProgram or what is like one.
template <class Program>
void expectPassed(Program &program) {
    EXPECT_EQ(0, program.exitCode()) << program.output() << program.errors();
    EXPECT_THAT(program.output(), testing::HasSubstr("[  PASSED  ] 1 test.")) << "and neither none nor skipped";
}

} // namespace test
