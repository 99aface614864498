#include "StoreLock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace {

using storage::Severity;
using storage::StoreLock;

class RecordedReport : public storage::Report {
public:
    void add(Severity severity, const std::string &text) override {
        EXPECT_EQ(Severity::error, severity) << text;
        texts.push_back(text);
    }
    std::vector<std::string> texts;
};

class StoreLockTest : public testing::Test {
protected:
    StoreLockTest() {
        std::string pattern = (std::filesystem::temp_directory_path() / "lock-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary folder " + pattern);
        }
        m_folder = pattern;
        m_store = m_folder + "/s.store";
    }
    ~StoreLockTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    StoreLockTest(const StoreLockTest &) = delete;
    StoreLockTest &operator=(const StoreLockTest &) = delete;

    std::string lockFile() const { return m_store + ".lock"; }
    std::string contentOfLockFile() const {
        std::ifstream stream(lockFile());
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    std::string m_folder;
    std::string m_store;
    RecordedReport m_report;
};

/// A process that holds a store until it is ended.
class Holder {
public:
    /// @param helper  what a child does that it forks, without an exec.
    explicit Holder(const std::string &store, const std::function<void()> &helper = nullptr) {
        int ready[2];
        if (pipe(ready) != 0) {
            throw std::runtime_error("no pipe");
        }
        m_process = fork();
        if (m_process == 0) {
            StoreLock lock;
            RecordedReport report;
            const char answer = lock.acquire(store, report) == eAF_S_OK ? 'y' : 'n';
            if (helper && fork() == 0) {
                helper();
                _exit(0);
            }
            static_cast<void>(!write(ready[1], &answer, 1));
            pause();
            _exit(0);
        }
        char answer = 0;
        EXPECT_EQ(1, read(ready[0], &answer, 1));
        EXPECT_EQ('y', answer);
        close(ready[0]);
        close(ready[1]);
    }
    ~Holder() { end(); }
    Holder(const Holder &) = delete;
    Holder &operator=(const Holder &) = delete;

    void end() {
        if (m_process > 0) {
            kill(m_process, SIGKILL);
            waitpid(m_process, nullptr, 0);
            m_process = 0;
        }
    }
    pid_t process() const { return m_process; }

private:
    pid_t m_process = 0;
};

TEST_F(StoreLockTest, Acquire_OfAFreeStore_NotesThisProcess) {
    StoreLock lock;
    EXPECT_FALSE(lock.isHeld());
    EXPECT_EQ(eAF_S_OK, lock.acquire(m_store, m_report));
    EXPECT_TRUE(lock.isHeld());
    EXPECT_EQ(std::to_string(getpid()) + "\n", contentOfLockFile());
    EXPECT_FALSE(std::filesystem::exists(m_store)) << "the store itself is not touched";
    EXPECT_TRUE(m_report.texts.empty());
}

TEST_F(StoreLockTest, Acquire_OfALockThatIsHeldAlready_Succeeds) {
    StoreLock lock;
    ASSERT_EQ(eAF_S_OK, lock.acquire(m_store, m_report));
    EXPECT_EQ(eAF_S_OK, lock.acquire(m_store, m_report));
    lock.release();
    EXPECT_FALSE(lock.isHeld());
    StoreLock other;
    EXPECT_EQ(eAF_S_OK, other.acquire(m_store, m_report)) << "one release gives it up";
}

TEST_F(StoreLockTest, Acquire_OfAStoreThatAnotherProcessHolds_NamesThatProcess) {
    const Holder holder(m_store);
    StoreLock lock;
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, lock.acquire(m_store, m_report));
    EXPECT_FALSE(lock.isHeld());
    ASSERT_EQ(1u, m_report.texts.size());
    EXPECT_EQ("the store " + m_store + " is in use by process " + std::to_string(holder.process()) + ": stop it first",
              m_report.texts[0]);
    EXPECT_EQ(std::to_string(holder.process()) + "\n", contentOfLockFile()) << "whoever failed noted nothing";
}

TEST_F(StoreLockTest, Acquire_OfAKilledProcesssStore_Succeeds) {
    Holder holder(m_store);
    holder.end();
    StoreLock lock;
    EXPECT_EQ(eAF_S_OK, lock.acquire(m_store, m_report));
    EXPECT_EQ(std::to_string(getpid()) + "\n", contentOfLockFile());
}

TEST_F(StoreLockTest, Acquire_OfAKilledProcesssStore_WaitsForTheEndOfAChildThatItForked) {
    int over[2];
    ASSERT_EQ(0, pipe(over));
    Holder holder(m_store, [&over] {
        char byte = 0;
        close(over[1]);
        static_cast<void>(!read(over[0], &byte, 1));
    });
    const std::string holdersName = std::to_string(holder.process());
    holder.end();
    StoreLock lock;
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, lock.acquire(m_store, m_report));
    ASSERT_EQ(1u, m_report.texts.size());
    EXPECT_NE(std::string::npos, m_report.texts[0].find(holdersName)) << m_report.texts[0];
    close(over[1]);
    close(over[0]);
    // Nobody tells this process of the child's end but the lock itself.
    const int file = open(lockFile().c_str(), O_RDWR | O_CLOEXEC);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    ASSERT_EQ(0, fcntl(file, F_OFD_SETLKW, &whole));
    close(file);
    EXPECT_EQ(eAF_S_OK, lock.acquire(m_store, m_report));
}

TEST_F(StoreLockTest, Acquire_BySomebodyElseOfThisProcess_Fails) {
    StoreLock first;
    ASSERT_EQ(eAF_S_OK, first.acquire(m_store, m_report));
    StoreLock second;
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, second.acquire(m_store, m_report));
    ASSERT_EQ(1u, m_report.texts.size());
    EXPECT_NE(std::string::npos, m_report.texts[0].find(std::to_string(getpid()))) << m_report.texts[0];
    // The failed attempt closed its own descriptor: that must not have given up the first one's lock.
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, StoreLock().acquire(m_store, m_report));
}

TEST_F(StoreLockTest, ALockFileThatNamesNobody_IsStillALock) {
    const Holder holder(m_store);
    std::ofstream(lockFile(), std::ios::trunc) << "somebody";
    StoreLock lock;
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, lock.acquire(m_store, m_report));
    ASSERT_EQ(1u, m_report.texts.size());
    EXPECT_NE(std::string::npos, m_report.texts[0].find("(unknown)")) << m_report.texts[0];
}

TEST_F(StoreLockTest, ALockFileThatCanNotBeRead_IsStillALock) {
    ASSERT_EQ(0, mkfifo(lockFile().c_str(), 0600)) << "it can be locked, and neither cut nor read at an offset";
    const Holder holder(m_store);
    StoreLock lock;
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, lock.acquire(m_store, m_report));
    EXPECT_FALSE(lock.isHeld());
    ASSERT_EQ(1u, m_report.texts.size());
    EXPECT_EQ("the store " + m_store + " is in use by process (unknown): stop it first", m_report.texts[0]);
}

TEST_F(StoreLockTest, ALongerTextOfAnEarlierHolder_IsReplacedWhole) {
    std::ofstream(lockFile()) << "1234567890123\nand more\n";
    StoreLock lock;
    ASSERT_EQ(eAF_S_OK, lock.acquire(m_store, m_report));
    EXPECT_EQ(std::to_string(getpid()) + "\n", contentOfLockFile());
}

TEST_F(StoreLockTest, TheLock_GoesWithItsObject) {
    {
        StoreLock lock;
        ASSERT_EQ(eAF_S_OK, lock.acquire(m_store, m_report));
    }
    StoreLock next;
    EXPECT_EQ(eAF_S_OK, next.acquire(m_store, m_report));
    EXPECT_TRUE(std::filesystem::exists(lockFile())) << "the file stays: to remove it would let two hold it";
}

TEST_F(StoreLockTest, Acquire_InAMissingFolder_SaysWhatToDo) {
    StoreLock lock;
    const std::string store = m_folder + "/missing/s.store";
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, lock.acquire(store, m_report));
    EXPECT_FALSE(lock.isHeld());
    ASSERT_EQ(1u, m_report.texts.size());
    EXPECT_NE(std::string::npos, m_report.texts[0].find(store)) << m_report.texts[0];
    EXPECT_NE(std::string::npos, m_report.texts[0].find("make the folder")) << m_report.texts[0];
}

TEST_F(StoreLockTest, Acquire_WhereAFolderHasTheLocksName_Fails) {
    std::filesystem::create_directory(lockFile());
    StoreLock lock;
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, lock.acquire(m_store, m_report));
    ASSERT_EQ(1u, m_report.texts.size());
    EXPECT_NE(std::string::npos, m_report.texts[0].find(lockFile())) << m_report.texts[0];
}

TEST_F(StoreLockTest, Acquire_InAFolderThatTakesNoFile_WarnsWithItsCodeAlone) {
    std::filesystem::permissions(m_folder, std::filesystem::perms(0555));
    // Nothing is read-only to root: another user asks.
    const pid_t asker = fork();
    if (asker == 0) {
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) {
            _exit(2);
        }
        StoreLock lock;
        RecordedReport report;
        const bool isRight = lock.acquire(m_store, report) == eAF_W_WARNING && !lock.isHeld() && report.texts.empty();
        _exit(isRight ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(asker, waitpid(asker, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status)) << "2: could not become another user";
    std::filesystem::permissions(m_folder, std::filesystem::perms(0755));
}

TEST_F(StoreLockTest, TheLocksDescriptor_IsNotInheritedByPrograms) {
    StoreLock lock;
    ASSERT_EQ(eAF_S_OK, lock.acquire(m_store, m_report));
    struct stat ofLock {};
    ASSERT_EQ(0, stat(lockFile().c_str(), &ofLock));
    int noOfDescriptors = 0;
    for (int descriptor = 0; descriptor < 256; ++descriptor) {
        struct stat status {};
        if (fstat(descriptor, &status) == 0 && status.st_ino == ofLock.st_ino && status.st_dev == ofLock.st_dev) {
            ++noOfDescriptors;
            EXPECT_NE(0, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
        }
    }
    EXPECT_EQ(1, noOfDescriptors);
}

} // namespace
