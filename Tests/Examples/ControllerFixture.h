/// @file
/// Runs of the controller with options, in a folder of their own, and what must hold after every one of them.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace test {

/// The options behind those that keep this test's controller apart from others.
std::vector<std::string> arguments(std::vector<std::string> more);

bool contains(const std::string &text, const std::string &part);

/// Each test has a folder of its own, and ends with no queue left behind.
class ControllerFixture : public testing::Test {
protected:
    ControllerFixture();
    void SetUp() override;
    void TearDown() override;

    std::string file(const std::string &name) const { return m_folder / name; }
    std::string fileWith(const std::string &name, const std::string &text) const;

private:
    const std::filesystem::path m_folder;
};

} // namespace test
