#include "ControllerFixture.h"

#include <mqueue.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "NamedQueue.h"

namespace test {
namespace {

std::vector<std::string> remainingQueues() {
    const std::vector<std::string> names = controllerQueues();
    std::vector<std::string> remaining;
    std::copy_if(names.begin(), names.end(), std::back_inserter(remaining), queueExists);
    return remaining;
}

} // namespace

std::vector<std::string> arguments(std::vector<std::string> more) {
    more.insert(more.begin(), {"--port", std::to_string(port())});
    return more;
}

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

ControllerFixture::ControllerFixture()
    : m_folder(std::filesystem::temp_directory_path() / ("ControllerFixture." + std::to_string(getpid()))) {}

void ControllerFixture::SetUp() {
    // Process ids come round again: a test that was killed may have left queues of this port.
    for (const std::string &name : remainingQueues()) {
        mq_unlink(name.c_str());
    }
    ASSERT_EQ(remainingQueues(), std::vector<std::string>{});
    std::filesystem::create_directory(m_folder);
    setenv("TMPDIR", m_folder.c_str(), 1); // for the controller, which a test may kill before it cleans up
}

void ControllerFixture::TearDown() {
    EXPECT_EQ(remainingQueues(), std::vector<std::string>{});
    std::filesystem::remove_all(m_folder);
    setenv("TMPDIR", m_folder.parent_path().c_str(), 1); // where the next test of this process makes its own
}

std::string ControllerFixture::fileWith(const std::string &name, const std::string &text) const {
    std::ofstream(file(name), std::ios::binary) << text;
    return file(name);
}

} // namespace test
