/// @file
/// What a host that is about to be killed tells the test: a file that both have mapped, because it outlives the host.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <new>
#include <string>

namespace test {

/// Where in one life of its event service a host is.
enum class HostPhase : std::uint32_t { unborn, starting, firing, pumping, stopping, ended, count };

struct HostState {
    std::atomic<HostPhase> phase;
    std::atomic<std::uint32_t> lives; ///< Ended by this process with everything as it should be.
    std::atomic<std::uint64_t> delivered;
    std::atomic<std::uint64_t> delayed; ///< What the event task made of messages on its queue.
    char fault[256];                    ///< What was not as it should be.
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free, "shared by two processes");

/// The state in its file, which is made if it is missing.
class MappedHostState {
public:
    explicit MappedHostState(const std::string &path) {
        const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (file != -1 && ftruncate(file, sizeof(HostState)) == 0) {
            void *memory = mmap(nullptr, sizeof(HostState), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
            m_state = memory != MAP_FAILED ? static_cast<HostState *>(memory) : nullptr;
        }
        if (file != -1) {
            close(file);
        }
    }
    ~MappedHostState() {
        if (m_state != nullptr) {
            munmap(m_state, sizeof(HostState));
        }
    }
    MappedHostState(const MappedHostState &) = delete;
    MappedHostState &operator=(const MappedHostState &) = delete;

    explicit operator bool() const { return m_state != nullptr; }
    HostState *operator->() const { return m_state; }
    void clear() { m_state = new (m_state) HostState{}; }

private:
    HostState *m_state = nullptr;
};

} // namespace test
